#include "platform/security/signature/StaticCode.h"

#include <fmt/core.h>

#include <algorithm>
#include <limits>
#include <utility>
#include <vector>

// A judgement on its way from the process that made it to the one that acts on it. The second one
// has to take the first one's word for what it says, but not for its being well-formed.

namespace qv {

namespace {

namespace field {
constexpr std::string_view kStatus = "status";
constexpr std::string_view kReason = "reason";
constexpr std::string_view kHasTrailer = "trailer";
constexpr std::string_view kIntact = "intact";
constexpr std::string_view kDigestMatches = "digest-matches";
constexpr std::string_view kFlags = "flags";
constexpr std::string_view kGetTaskAllow = "get-task-allow";
constexpr std::string_view kIdentifier = "identifier";
constexpr std::string_view kTeam = "team";
constexpr std::string_view kCodeHash = "cdhash";
constexpr std::string_view kPlatform = "platform";
constexpr std::string_view kInfo = "info";
constexpr std::string_view kEntitlements = "entitlements";
constexpr std::string_view kChain = "chain";
constexpr std::string_view kSHA1 = "sha1";
constexpr std::string_view kSHA256 = "sha256";
constexpr std::string_view kSubject = "subject";
constexpr std::string_view kExtensions = "extensions";
constexpr std::string_view kPolicies = "policies";
constexpr std::string_view kTimestamps = "timestamps";
constexpr std::string_view kExpires = "expires";
constexpr std::string_view kVendorRoot = "vendor-root";
constexpr std::string_view kPlatformRoot = "platform-root";
constexpr std::string_view kTrusted = "trusted";
constexpr std::string_view kRevoked = "revoked";
} // namespace field

template <typename Bytes> Value bytesValue(const Bytes& bytes) {
    return Value::data(std::string(bytes.begin(), bytes.end()));
}

Value textsValue(const std::vector<std::string>& texts) {
    std::vector<Value> values;
    std::ranges::transform(texts, std::back_inserter(values),
                           [](const std::string& text) { return Value::string(text); });
    return Value::array(std::move(values));
}

// Names with something each: pairs in one flat array, because a name may come twice.
template <typename Pairs, typename Make> Value pairsValue(const Pairs& pairs, const Make& make) {
    std::vector<Value> values;
    for (const auto& [name, value] : pairs) {
        values.push_back(Value::string(name));
        values.push_back(make(value));
    }
    return Value::array(std::move(values));
}

Value encodedCertificate(const CertificateFacts& facts) {
    return Value::dictionary(
        {{field::kSHA1, bytesValue(facts.sha1)},
         {field::kSHA256, bytesValue(facts.sha256)},
         {field::kSubject,
          pairsValue(facts.subject, [](const std::string& text) { return Value::string(text); })},
         {field::kExtensions, textsValue(facts.extensionOIDs)},
         {field::kPolicies, textsValue(facts.policyOIDs)},
         {field::kTimestamps,
          pairsValue(facts.timestamps, [](Date date) { return Value::date(date); })},
         {field::kExpires, Value::date(facts.expires)},
         {field::kVendorRoot, Value::boolean(facts.vendorRoot)},
         {field::kPlatformRoot, Value::boolean(facts.platformRoot)},
         {field::kTrusted, Value::boolean(facts.trusted)},
         {field::kRevoked, Value::boolean(facts.revoked)}});
}

} // namespace

Value StaticCode::encoded() const {
    std::vector<Value> chain;
    std::ranges::transform(facts_.chain, std::back_inserter(chain), encodedCertificate);
    return Value::dictionary({{field::kStatus, Value::integer(status_)},
                              {field::kReason, Value::string(reason_)},
                              {field::kHasTrailer, Value::boolean(hasTrailer_)},
                              {field::kIntact, Value::boolean(signatureIntact_)},
                              {field::kDigestMatches, Value::boolean(digestMatches_)},
                              {field::kFlags, Value::integer(directoryFlags_)},
                              {field::kGetTaskAllow, Value::boolean(getTaskAllow_)},
                              {field::kIdentifier, Value::string(facts_.identifier)},
                              {field::kTeam, Value::string(facts_.team)},
                              {field::kCodeHash, bytesValue(facts_.cdhash)},
                              {field::kPlatform, Value::integer(facts_.platform)},
                              {field::kInfo, facts_.info},
                              {field::kEntitlements, facts_.entitlements},
                              {field::kChain, Value::array(std::move(chain))}});
}

/// Reads fields, each of one kind; keeps the name of the first that is missing or of another.
class StaticCodeDecoder {
public:
    tl::expected<StaticCode, Error> decode(const Value& encoding) {
        StaticCode code;
        read(encoding, field::kStatus, code.status_);
        read(encoding, field::kReason, code.reason_);
        read(encoding, field::kHasTrailer, code.hasTrailer_);
        read(encoding, field::kIntact, code.signatureIntact_);
        read(encoding, field::kDigestMatches, code.digestMatches_);
        read(encoding, field::kFlags, code.directoryFlags_);
        read(encoding, field::kGetTaskAllow, code.getTaskAllow_);
        CodeFacts& facts = code.facts_;
        read(encoding, field::kIdentifier, facts.identifier);
        read(encoding, field::kTeam, facts.team);
        readBytes(encoding, field::kCodeHash, facts.cdhash);
        read(encoding, field::kPlatform, facts.platform);
        if (const Value* info = field(encoding, field::kInfo, Value::Kind::dictionary)) {
            facts.info = *info;
        }
        if (const Value* entitlements =
                field(encoding, field::kEntitlements, Value::Kind::dictionary)) {
            facts.entitlements = *entitlements;
        }
        for (const Value& certificate : elements(encoding, field::kChain)) {
            facts.chain.push_back(certificateFacts(certificate));
        }
        if (!missing_.empty()) {
            return tl::unexpected(Error::withDescription(
                error_domain::kOSStatus, codesign_status::kInternalError,
                fmt::format("the judgement of a program has no proper \"{}\"", missing_)));
        }
        return code;
    }

private:
    CertificateFacts certificateFacts(const Value& encoding) {
        CertificateFacts facts;
        readBytes(encoding, field::kSHA1, facts.sha1);
        readBytes(encoding, field::kSHA256, facts.sha256);
        readPairs(encoding, field::kSubject, Value::Kind::string,
                  [&](std::string_view name, const Value& value) {
                      facts.subject.emplace_back(name, value.asString());
                  });
        readTexts(encoding, field::kExtensions, facts.extensionOIDs);
        readTexts(encoding, field::kPolicies, facts.policyOIDs);
        readPairs(encoding, field::kTimestamps, Value::Kind::date,
                  [&](std::string_view name, const Value& value) {
                      facts.timestamps.emplace_back(name, value.asDate());
                  });
        if (const Value* expires = field(encoding, field::kExpires, Value::Kind::date)) {
            facts.expires = expires->asDate();
        }
        read(encoding, field::kVendorRoot, facts.vendorRoot);
        read(encoding, field::kPlatformRoot, facts.platformRoot);
        read(encoding, field::kTrusted, facts.trusted);
        read(encoding, field::kRevoked, facts.revoked);
        return facts;
    }

    void miss(std::string_view name) {
        if (missing_.empty()) {
            missing_ = name;
        }
    }
    const Value* field(const Value& encoding, std::string_view name, Value::Kind kind) {
        const Value* value = encoding.is(Value::Kind::dictionary) ? encoding.find(name) : nullptr;
        if (value == nullptr || !value->is(kind)) {
            miss(name);
            return nullptr;
        }
        return value;
    }
    std::span<const Value> elements(const Value& encoding, std::string_view name) {
        const Value* list = field(encoding, name, Value::Kind::array);
        return list == nullptr ? std::span<const Value>() : list->asArray();
    }
    void read(const Value& encoding, std::string_view name, bool& into) {
        if (const Value* value = field(encoding, name, Value::Kind::boolean)) {
            into = value->asBoolean();
        }
    }
    void read(const Value& encoding, std::string_view name, std::string& into) {
        if (const Value* value = field(encoding, name, Value::Kind::string)) {
            into = value->asString();
        }
    }
    template <typename Number>
        requires std::integral<Number>
    void read(const Value& encoding, std::string_view name, Number& into) {
        const Value* value = field(encoding, name, Value::Kind::integer);
        if (value == nullptr) {
            return;
        }
        if (!std::in_range<Number>(value->asInteger())) {
            miss(name);
            return;
        }
        into = static_cast<Number>(value->asInteger());
    }
    template <typename Bytes>
    void readBytes(const Value& encoding, std::string_view name, Bytes& into) {
        const Value* value = field(encoding, name, Value::Kind::data);
        if (value == nullptr) {
            return;
        }
        if (value->asData().size() != into.size()) {
            miss(name);
            return;
        }
        std::ranges::copy(value->asData(), into.begin());
    }
    void readTexts(const Value& encoding, std::string_view name, std::vector<std::string>& into) {
        for (const Value& text : elements(encoding, name)) {
            if (!text.is(Value::Kind::string)) {
                miss(name);
                return;
            }
            into.emplace_back(text.asString());
        }
    }
    template <typename Take>
    void readPairs(const Value& encoding, std::string_view name, Value::Kind kind,
                   const Take& take) {
        const std::span<const Value> list = elements(encoding, name);
        for (std::size_t i = 0; i < list.size(); i += 2) {
            if (i + 1 == list.size() || !list[i].is(Value::Kind::string) || !list[i + 1].is(kind)) {
                miss(name);
                return;
            }
            take(list[i].asString(), list[i + 1]);
        }
    }

    std::string_view missing_;
};

tl::expected<StaticCode, Error> StaticCode::decoded(const Value& encoding) {
    return StaticCodeDecoder().decode(encoding);
}

} // namespace qv
