#include "platform/foundation/values/ASCII.h"
#include "platform/security/requirement/RequirementParser.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <limits>
#include <utility>

namespace qv {

using namespace requirement;

namespace {

using Kind = RequirementToken::Kind;

// Returns true for two or more numbers in the one spelling that certificates are compared with.
bool isOID(std::string_view text) {
    std::size_t arcs = 0;
    while (true) {
        const std::string_view arc = text.substr(0, text.find('.'));
        const bool isNumber = !arc.empty() && std::ranges::all_of(arc, isDigit);
        if (!isNumber || (arc.size() > 1 && arc.front() == '0')) {
            return false;
        }
        ++arcs;
        if (arc.size() == text.size()) {
            return arcs >= 2;
        }
        text.remove_prefix(arc.size() + 1);
    }
}

struct PartName {
    std::string_view prefix;
    CertificateEntry::Part part;
};
constexpr auto kPartNames = std::to_array<PartName>({
    {"subject.", CertificateEntry::Part::subject},
    {"field.", CertificateEntry::Part::field},
    {"extension.", CertificateEntry::Part::field},
    {"policy.", CertificateEntry::Part::policy},
    {"timestamp.", CertificateEntry::Part::timestamp},
});

struct OrderName {
    std::string_view symbol;
    Operator op;
};
constexpr auto kOrderNames = std::to_array<OrderName>({
    {"<", Operator::less},
    {">", Operator::greater},
    {"<=", Operator::lessOrEqual},
    {">=", Operator::greaterOrEqual},
});

// YYYYMMDDhhmmssZ
std::optional<Date> parseInstant(std::string_view text) {
    if (text.size() != 15 || text.back() != 'Z' ||
        !std::ranges::all_of(text.substr(0, 14), isDigit)) {
        return std::nullopt;
    }
    const auto number = [text](std::size_t offset, std::size_t length) {
        unsigned result = 0;
        std::from_chars(text.data() + offset, text.data() + offset + length, result);
        return result;
    };
    const std::chrono::year_month_day day{std::chrono::year(static_cast<int>(number(0, 4))),
                                          std::chrono::month(number(4, 2)),
                                          std::chrono::day(number(6, 2))};
    const unsigned hour = number(8, 2);
    const unsigned minute = number(10, 2);
    const unsigned second = number(12, 2);
    if (!day.ok() || hour > 23 || minute > 59 || second > 59) {
        return std::nullopt;
    }
    constexpr std::chrono::sys_days kReference = std::chrono::year(2001) / 1 / 1;
    const std::chrono::sys_seconds instant = std::chrono::sys_days(day) + std::chrono::hours(hour) +
                                             std::chrono::minutes(minute) +
                                             std::chrono::seconds(second);
    return Date{static_cast<double>((instant - kReference).count())};
}

} // namespace

std::optional<Condition> RequirementParser::condition() {
    if (take("always") || take("true")) {
        return Constant{true};
    }
    if (take("never") || take("false")) {
        return Constant{false};
    }
    if (take("identifier")) {
        return identifier();
    }
    if (take("cdhash")) {
        return codeHash();
    }
    if (take("platform")) {
        return platform();
    }
    if (take("notarized")) {
        return VendorPolicy::notarized;
    }
    if (take("legacy")) {
        return VendorPolicy::legacy;
    }
    if (take("info")) {
        return dictionaryEntry(DictionaryEntry::Source::info);
    }
    if (take("entitlement")) {
        return dictionaryEntry(DictionaryEntry::Source::entitlement);
    }
    if (take("anchor")) {
        return anchor();
    }
    if (take("certificate") || take("cert")) {
        return certificate();
    }
    return failCondition();
}

std::nullopt_t RequirementParser::failCondition() {
    const bool isValue = at(Kind::word) || at(Kind::string);
    if (isValue && previous_.kind == Kind::symbol && previous_.value == "(") {
        return fail(token_, "stored requirements, asked for by name, are not supported");
    }
    for (const std::string_view kind : {"host", "guest", "designated", "library", "plugin"}) {
        if (at(kind)) {
            return fail(token_, "one requirement should stand here, not a set of them");
        }
    }
    if (at(Kind::word) && token_.value == "not") {
        return fail(token_, "negation is written '!'");
    }
    return failToFind("a condition");
}

std::optional<Condition> RequirementParser::identifier() {
    takeEqual();
    std::optional<std::string> name = value("an identifier");
    if (!name.has_value()) {
        return std::nullopt;
    }
    return Identifier{*std::move(name)};
}

std::optional<Condition> RequirementParser::codeHash() {
    takeEqual();
    if (!at(Kind::hash)) {
        return failToFind("a hash constant H\"...\"");
    }
    const std::optional<Hash> constant = hash();
    if (!constant.has_value()) {
        return std::nullopt;
    }
    return CodeHash{*constant};
}

std::optional<Condition> RequirementParser::platform() {
    takeEqual();
    if (!at(Kind::integer)) {
        return failToFind("a platform number");
    }
    advance();
    return Platform{previous_.number};
}

std::optional<Condition> RequirementParser::dictionaryEntry(DictionaryEntry::Source source) {
    const std::optional<RequirementToken> name = key();
    if (!name.has_value()) {
        return std::nullopt;
    }
    std::optional<Match> wanted = match();
    if (!wanted.has_value()) {
        return std::nullopt;
    }
    return DictionaryEntry{source, name->value, *std::move(wanted)};
}

std::optional<Condition> RequirementParser::anchor() {
    if (take("apple")) {
        return appleAnchor();
    }
    if (take("generic")) {
        if (!take("apple")) {
            return failToFind("'apple'");
        }
        return Anchor::appleGeneric;
    }
    if (take("trusted")) {
        return Anchor::trusted;
    }
    return certificateTest(-1);
}

std::optional<Condition> RequirementParser::appleAnchor() {
    if (take("generic")) {
        return Anchor::appleGeneric;
    }
    if (at(Kind::word) || at(Kind::string)) {
        return fail(token_, "stored anchor requirements, asked for by name, are not supported");
    }
    return Anchor::apple;
}

std::optional<Condition> RequirementParser::certificate() {
    if (take("trusted")) {
        return Anchor::trusted;
    }
    const std::optional<std::int32_t> number = slot();
    if (!number.has_value()) {
        return std::nullopt;
    }
    if (take("trusted")) {
        return CertificateTrusted{*number};
    }
    return certificateTest(*number);
}

std::optional<std::int32_t> RequirementParser::slot() {
    if (take("leaf")) {
        return 0;
    }
    if (take("root")) {
        return -1;
    }
    const bool negative = take("-");
    if (!at(Kind::integer)) {
        return failToFind(negative ? "a number" : "'leaf', 'root' or the number of a certificate");
    }
    if (token_.number > static_cast<std::uint32_t>(std::numeric_limits<std::int32_t>::max())) {
        return fail(token_, "no chain has that many certificates");
    }
    advance();
    const auto number = static_cast<std::int32_t>(previous_.number);
    return negative ? -number : number;
}

std::optional<Condition> RequirementParser::certificateTest(std::int32_t slot) {
    if (at("[")) {
        return certificateEntry(slot);
    }
    const bool hasEqual = takeEqual();
    if (at(Kind::hash)) {
        const std::optional<Hash> constant = hash();
        if (!constant.has_value()) {
            return std::nullopt;
        }
        return CertificateHash{slot, *constant};
    }
    if (!at(Kind::word) && !at(Kind::string) && !at(Kind::path)) {
        return failToFind(hasEqual ? "a hash constant H\"...\""
                                   : "a key in brackets or a hash constant H\"...\"");
    }
    if (!loadHash_) {
        return fail(token_, "certificate files are not read here");
    }
    const std::optional<Hash> loaded = loadHash_(token_.value);
    if (!loaded.has_value()) {
        return fail(token_, "this file gives no certificate");
    }
    advance();
    return CertificateHash{slot, *loaded};
}

std::optional<Condition> RequirementParser::certificateEntry(std::int32_t slot) {
    const std::optional<RequirementToken> name = key();
    if (!name.has_value()) {
        return std::nullopt;
    }
    const std::string_view text = name->value;
    const auto* known = std::ranges::find_if(
        kPartNames, [text](const PartName& row) { return text.starts_with(row.prefix); });
    if (known == kPartNames.end()) {
        return fail(*name, "this certificate key is unknown");
    }
    const std::string_view rest = text.substr(known->prefix.size());
    if (known->part != CertificateEntry::Part::subject && !isOID(rest)) {
        return fail(*name, "an object identifier like 1.2.840 should follow the first dot");
    }
    std::optional<Match> wanted = match();
    if (!wanted.has_value()) {
        return std::nullopt;
    }
    return CertificateEntry{slot, known->part, std::string(rest), *std::move(wanted)};
}

std::optional<Hash> RequirementParser::hash() {
    Hash result{};
    if (token_.value.size() != result.size()) {
        return fail(token_, fmt::format("a hash here has {} digits, this one {}", 2 * result.size(),
                                        2 * token_.value.size()));
    }
    std::ranges::transform(token_.value, result.begin(),
                           [](char c) { return static_cast<std::uint8_t>(c); });
    advance();
    return result;
}

std::optional<std::string> RequirementParser::value(std::string_view what) {
    if (at(Kind::word) || at(Kind::string)) {
        advance();
        return previous_.value;
    }
    if (at(Kind::keyword)) {
        return fail(token_, "as a value this keyword must be quoted");
    }
    if (at(Kind::integer)) {
        return failUnquoted(token_, "a value that begins with a digit must be quoted");
    }
    return failToFind(what);
}

std::optional<RequirementToken> RequirementParser::key() {
    if (!take("[")) {
        return failToFind("a key in brackets");
    }
    if (!value("a key").has_value()) {
        return std::nullopt;
    }
    RequirementToken name = previous_;
    if (!take("]")) {
        return failToFind("']'");
    }
    return name;
}

std::optional<Match> RequirementParser::match() {
    if (take("exists")) {
        return Match{};
    }
    if (take("absent")) {
        return Match{Operator::absent, {}};
    }
    if (take("~")) {
        return textMatch(Operator::contains);
    }
    for (const OrderName& order : kOrderNames) {
        if (take(order.symbol)) {
            return at("timestamp") ? instantMatch(order.op) : textMatch(order.op);
        }
    }
    if (!takeEqual()) {
        return Match{};
    }
    if (at("timestamp")) {
        return instantMatch(Operator::equal);
    }
    const bool openBegin = take("*");
    std::optional<Match> wanted = textMatch(Operator::equal);
    if (!wanted.has_value()) {
        return std::nullopt;
    }
    const bool openEnd = take("*");
    if (openBegin) {
        wanted->op = openEnd ? Operator::contains : Operator::endsWith;
    } else if (openEnd) {
        wanted->op = Operator::beginsWith;
    }
    return wanted;
}

std::optional<Match> RequirementParser::textMatch(Operator op) {
    if (at(Kind::data)) {
        advance();
        return Match{op, previous_.value};
    }
    std::optional<std::string> text = value("a value");
    if (!text.has_value()) {
        return std::nullopt;
    }
    return Match{op, *std::move(text)};
}

std::optional<Match> RequirementParser::instantMatch(Operator op) {
    advance(); // "timestamp"
    if (!at(Kind::string)) {
        return failToFind("an instant in quotes");
    }
    const std::optional<Date> instant = parseInstant(token_.value);
    if (!instant.has_value()) {
        return fail(token_, "an instant is written YYYYMMDDhhmmssZ");
    }
    advance();
    // The match is made in place: GCC 12 takes a moved operand for an uninitialised string.
    return std::optional<Match>(std::in_place, op, *instant);
}

} // namespace qv
