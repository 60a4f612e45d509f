#include "platform/applescript/running/Comparison.h"

#include "platform/applescript/running/Coercions.h"
#include "platform/applescript/running/Failure.h"
#include "platform/applescript/running/TextElements.h"
#include "platform/foundation/text/UTF16.h"
#include "platform/foundation/values/ASCII.h"
#include "platform/foundation/values/UTF8.h"

#include <unicode/coll.h>
#include <unicode/uchar.h>
#include <unicode/unorm.h>

#include <algorithm>
#include <array>
#include <limits>
#include <memory>
#include <span>
#include <string_view>
#include <unordered_map>

namespace qv::applescript {

namespace {

using Kind = ScriptValue::Kind;

constexpr std::uint8_t kPassedOver =
    Attention::kHyphens | Attention::kPunctuation | Attention::kWhiteSpace;

bool isASCIIOnlyText(std::string_view text) noexcept {
    return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

bool isPassedOver(char32_t point, const Context& context) {
    const auto code = static_cast<UChar32>(point);
    if (u_hasBinaryProperty(code, UCHAR_HYPHEN) != 0 ||
        u_hasBinaryProperty(code, UCHAR_DASH) != 0) {
        return !context.considers(Attention::kHyphens);
    }
    if (u_isUWhiteSpace(code) != 0) {
        return !context.considers(Attention::kWhiteSpace);
    }
    return (u_ispunct(code) != 0 || point == '`') && !context.considers(Attention::kPunctuation);
}

/// The text without the characters that the context ignores.
std::string attended(std::string_view text, const Context& context) {
    std::string rest;
    rest.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        const char32_t point = decodeUTF8(text, i);
        if (!isPassedOver(point, context)) {
            appendUTF8(rest, point);
        }
    }
    return rest;
}

std::unique_ptr<icu::Collator> makeCollator(std::uint8_t attention) {
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::Collator> collator(
        icu::Collator::createInstance(icu::Locale::getRoot(), status));
    if (U_FAILURE(status) != 0 || !collator) {
        return nullptr;
    }
    const bool hasCase = (attention & Attention::kCase) != 0;
    const bool hasMarks = (attention & Attention::kDiacriticals) != 0;
    const bool hasNumbers = (attention & Attention::kNumericStrings) != 0;
    collator->setStrength(!hasMarks ? icu::Collator::PRIMARY
                          : hasCase ? icu::Collator::TERTIARY
                                    : icu::Collator::SECONDARY);
    collator->setAttribute(UCOL_CASE_LEVEL, hasCase && !hasMarks ? UCOL_ON : UCOL_OFF, status);
    collator->setAttribute(UCOL_NORMALIZATION_MODE, UCOL_ON, status);
    collator->setAttribute(UCOL_ALTERNATE_HANDLING, UCOL_NON_IGNORABLE, status);
    collator->setAttribute(UCOL_NUMERIC_COLLATION, hasNumbers ? UCOL_ON : UCOL_OFF, status);
    return collator;
}

int collated(std::string_view left, std::string_view right, const Context& context) {
    static thread_local std::array<std::unique_ptr<icu::Collator>, 64> collators;
    constexpr std::size_t kLongest = std::numeric_limits<std::int32_t>::max();
    if (left.size() > kLongest || right.size() > kLongest) {
        fail(error_number::kOutOfMemory, "Out of memory.");
    }
    std::unique_ptr<icu::Collator>& collator = collators.at(context.attention);
    if (!collator) {
        collator = makeCollator(context.attention);
    }
    UErrorCode status = U_ZERO_ERROR;
    const int order =
        collator
            ? collator->compareUTF8(
                  icu::StringPiece(left.data(), static_cast<std::int32_t>(left.size())),
                  icu::StringPiece(right.data(), static_cast<std::int32_t>(right.size())), status)
            : left.compare(right);
    return order;
}

bool areCanonicallyEqual(std::string_view left, std::string_view right, const Context& context) {
    constexpr std::size_t kBytesPerByte = 3 * sizeof(char16_t); // decomposed as well
    const HeldBytes held((left.size() + right.size()) * kBytesPerByte);
    const std::u16string leftUnits = utf16FromUTF8(left);
    const std::u16string rightUnits = utf16FromUTF8(right);
    UErrorCode status = U_ZERO_ERROR;
    const std::uint32_t options =
        context.considers(Attention::kCase) ? 0U : std::uint32_t{U_COMPARE_IGNORE_CASE};
    return unorm_compare(leftUnits.data(), static_cast<std::int32_t>(leftUnits.size()),
                         rightUnits.data(), static_cast<std::int32_t>(rightUnits.size()), options,
                         &status) == 0 &&
           U_FAILURE(status) == 0;
}

bool areEqualASCII(std::string_view left, std::string_view right) noexcept {
    const auto lower = [](char c) {
        return isLetter(c) ? static_cast<char>(static_cast<unsigned char>(c) | 0x20U) : c;
    };
    return std::ranges::equal(left, right, {}, lower, lower);
}

bool areEqualLists(const ScriptValue& left, const ScriptValue& right, const Context& context,
                   unsigned depth) {
    const std::vector<ScriptValue>& mine = left.asList();
    const std::vector<ScriptValue>& theirs = right.asList();
    return mine.size() == theirs.size() &&
           std::equal(mine.begin(), mine.end(), theirs.begin(),
                      [&](const ScriptValue& one, const ScriptValue& other) {
                          return areEqual(one, other, context, depth + 1);
                      });
}

bool holdsFields(const ScriptValue& whole, const ScriptValue& part, const Context& context,
                 unsigned depth) {
    constexpr std::size_t kBytesOfAField = 64; // in the map
    const HeldBytes held(whole.asRecord().size() * kBytesOfAField);
    std::unordered_map<std::string_view, const ScriptValue*> fields;
    for (const auto& [name, value] : whole.asRecord()) {
        fields.emplace(name, &value);
    }
    return std::ranges::all_of(part.asRecord(), [&](const auto& field) {
        const auto own = fields.find(field.first);
        return own != fields.end() && areEqual(*own->second, field.second, context, depth + 1);
    });
}

bool areEqualSpecifiers(const Specifier& left, const Specifier& right, const Context& context,
                        unsigned depth) {
    const auto sameStep = [&](const Specifier::Step& one, const Specifier::Step& other) {
        return one.form == other.form && one.term == other.term && one.filter.empty() &&
               other.filter.empty() && areEqual(one.key, other.key, context, depth + 1) &&
               areEqual(one.last, other.last, context, depth + 1);
    };
    return areEqualASCII(left.application, right.application) &&
           std::ranges::equal(left.steps, right.steps, sameStep);
}

std::string_view withoutFinalSlash(std::string_view path) noexcept {
    return path.size() > 1 && path.ends_with('/') ? path.substr(0, path.size() - 1) : path;
}

bool holdsText(std::string_view whole, std::string_view part, Place place, const Context& context) {
    if (part.empty()) {
        return true;
    }
    if ((context.attention & kPassedOver) != kPassedOver) {
        const HeldBytes held(whole.size() + part.size());
        const std::string rest = attended(whole, context);
        const std::string wanted = attended(part, context);
        Context usual = context;
        usual.attention |= kPassedOver;
        return holdsText(rest, wanted, place, usual);
    }
    if (place == Place::anywhere) {
        return firstOccurrence(whole, part, context).has_value();
    }
    const bool isBegin = place == Place::begin;
    if (isASCIIOnlyText(whole) && isASCIIOnlyText(part)) {
        const std::size_t size = std::min(whole.size(), part.size());
        return areEqualTexts(isBegin ? whole.substr(0, size) : whole.substr(whole.size() - size),
                             part, context);
    }
    const auto first = isBegin ? firstOccurrence(whole, part, context) : std::nullopt;
    return isBegin ? first && first->begin == 0 : endsWithText(whole, part, context);
}

bool holdsItems(const std::vector<ScriptValue>& whole, const std::vector<ScriptValue>& part,
                Place place, const Context& context) {
    if (part.size() > whole.size()) {
        return false;
    }
    const auto isSame = [&](const ScriptValue& one, const ScriptValue& other) {
        return areEqual(one, other, context);
    };
    switch (place) {
    case Place::begin:
        return std::ranges::equal(std::span(whole).first(part.size()), part, isSame);
    case Place::end:
        return std::ranges::equal(std::span(whole).last(part.size()), part, isSame);
    default:
        return part.empty() || !std::ranges::search(whole, part, isSame).empty();
    }
}

} // namespace

bool areEqualTexts(std::string_view left, std::string_view right, const Context& context) {
    if (left == right) {
        context.bounds.bytes(left.size());
        return true;
    }
    if ((context.attention & kPassedOver) != kPassedOver) {
        const HeldBytes held(left.size() + right.size());
        Context usual = context;
        usual.attention |= kPassedOver;
        return areEqualTexts(attended(left, context), attended(right, context), usual);
    }
    context.bounds.bytes(left.size() + right.size());
    const bool isPlain = context.considers(Attention::kDiacriticals) &&
                         !context.considers(Attention::kNumericStrings);
    if (!isPlain) {
        return collated(left, right, context) == 0;
    }
    if (isASCIIOnlyText(left) && isASCIIOnlyText(right)) {
        return !context.considers(Attention::kCase) && areEqualASCII(left, right);
    }
    return areCanonicallyEqual(left, right, context);
}

// Characters without weight (controls) tell texts apart that are the same for the collation.
int orderOfTexts(std::string_view left, std::string_view right, const Context& context) {
    if ((context.attention & kPassedOver) != kPassedOver) {
        const HeldBytes held(left.size() + right.size());
        Context usual = context;
        usual.attention |= kPassedOver;
        return orderOfTexts(attended(left, context), attended(right, context), usual);
    }
    context.bounds.bytes(left.size() + right.size());
    const int order = collated(left, right, context);
    if (order != 0 || areEqualTexts(left, right, context)) {
        return order;
    }
    return left < right ? -1 : 1;
}

bool areEqual(const ScriptValue& left, const ScriptValue& right, const Context& context,
              unsigned depth) {
    context.bounds.step();
    if (depth > kDeepestValue) {
        failTooDeep();
    }
    if (left.isNumber() && right.isNumber()) {
        return realOf(left) == realOf(right);
    }
    if (left.kind() != right.kind()) {
        return false;
    }
    switch (left.kind()) {
    case Kind::type:
        return sameClass(left.asTerm(), right.asTerm());
    case Kind::text:
        return areEqualTexts(left.asText(), right.asText(), context);
    case Kind::date:
        return left.asDate() == right.asDate();
    case Kind::list:
        return left.sameAs(right) || areEqualLists(left, right, context, depth);
    case Kind::record:
        return left.sameAs(right) || (left.asRecord().size() == right.asRecord().size() &&
                                      holdsFields(left, right, context, depth));
    case Kind::file:
        return withoutFinalSlash(left.asFilePath()) == withoutFinalSlash(right.asFilePath());
    case Kind::specifier:
        return areEqualSpecifiers(left.asSpecifier(), right.asSpecifier(), context, depth);
    case Kind::script:
        return true;
    default:
        return left.sameAs(right);
    }
}

int orderOf(const ScriptValue& left, const ScriptValue& right, const Context& context) {
    const auto ofNumbers = [](double one, double other) {
        return one < other ? -1 : static_cast<int>(one > other);
    };
    switch (left.kind()) {
    case Kind::integer:
    case Kind::real:
        return ofNumbers(realOf(left), realOf(numberOf(right, context)));
    case Kind::text:
        return orderOfTexts(left.asText(), coerced(right, Term::text, context).asText(), context);
    case Kind::date:
        return ofNumbers(left.asDate(), coerced(right, Term::date, context).asDate());
    case Kind::constant:
        if (right.is(Kind::constant)) {
            return ofNumbers(realOf(numberOf(left, context)), realOf(numberOf(right, context)));
        }
        [[fallthrough]];
    default:
        return ofNumbers(realOf(numberOf(left, context)), realOf(numberOf(right, context)));
    }
}

bool holds(const ScriptValue& whole, const ScriptValue& part, Place place, const Context& context) {
    if (whole.is(Kind::record)) {
        const ScriptValue record = coerced(part, Term::record, context);
        return holdsFields(whole, record, context, 0);
    }
    if (whole.is(Kind::list)) {
        const ScriptValue items = coerced(part, Term::list, context);
        return holdsItems(whole.asList(), items.asList(), place, context);
    }
    const ScriptValue text = coerced(whole, Term::text, context);
    return holdsText(text.asText(), coerced(part, Term::text, context).asText(), place, context);
}

} // namespace qv::applescript
