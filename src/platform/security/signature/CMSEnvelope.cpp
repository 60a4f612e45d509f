#include "platform/security/signature/CMSEnvelope.h"

#include "platform/security/requirement/CodeSigningStatus.h"
#include "platform/security/signature/DERReader.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <optional>

namespace qv {

namespace {

using namespace std::string_view_literals;

// Contents of object identifiers.
constexpr auto kSignedData = "\x2A\x86\x48\x86\xF7\x0D\x01\x07\x02"sv;
constexpr auto kData = "\x2A\x86\x48\x86\xF7\x0D\x01\x07\x01"sv;
constexpr auto kContentType = "\x2A\x86\x48\x86\xF7\x0D\x01\x09\x03"sv;
constexpr auto kMessageDigest = "\x2A\x86\x48\x86\xF7\x0D\x01\x09\x04"sv;

constexpr std::size_t kMostAttributes = 16; // signers write three or four

enum class Digest : std::uint8_t { sha256, sha384, sha512 };
struct DigestAlgorithm {
    std::string_view oid;
    Digest digest;
    std::size_t length;
};
constexpr std::array kDigests = {
    DigestAlgorithm{"\x60\x86\x48\x01\x65\x03\x04\x02\x01"sv, Digest::sha256, 32},
    DigestAlgorithm{"\x60\x86\x48\x01\x65\x03\x04\x02\x02"sv, Digest::sha384, 48},
    DigestAlgorithm{"\x60\x86\x48\x01\x65\x03\x04\x02\x03"sv, Digest::sha512, 64},
};

struct SignatureAlgorithm {
    std::string_view oid;
    SignerKeyType keyType;
    std::optional<Digest> digest; // none: any
};
constexpr std::array kSignatures = {
    SignatureAlgorithm{"\x2A\x86\x48\x86\xF7\x0D\x01\x01\x01"sv, SignerKeyType::rsa, std::nullopt},
    SignatureAlgorithm{"\x2A\x86\x48\x86\xF7\x0D\x01\x01\x0B"sv, SignerKeyType::rsa,
                       Digest::sha256},
    SignatureAlgorithm{"\x2A\x86\x48\x86\xF7\x0D\x01\x01\x0C"sv, SignerKeyType::rsa,
                       Digest::sha384},
    SignatureAlgorithm{"\x2A\x86\x48\x86\xF7\x0D\x01\x01\x0D"sv, SignerKeyType::rsa,
                       Digest::sha512},
    SignatureAlgorithm{"\x2A\x86\x48\xCE\x3D\x04\x03\x02"sv, SignerKeyType::ellipticCurve,
                       Digest::sha256},
    SignatureAlgorithm{"\x2A\x86\x48\xCE\x3D\x04\x03\x03"sv, SignerKeyType::ellipticCurve,
                       Digest::sha384},
    SignatureAlgorithm{"\x2A\x86\x48\xCE\x3D\x04\x03\x04"sv, SignerKeyType::ellipticCurve,
                       Digest::sha512},
};

// An AlgorithmIdentifier whose parameters, if any, are NULL.
struct Algorithm {
    std::string_view oid;
    bool hasNull = false;
};

// Each step reads one part; it notes a fault and returns false if it cannot.
class EnvelopeReader {
public:
    bool readContentInfo(std::string_view der);
    [[nodiscard]] const std::string& complaint() const noexcept { return complaint_; }
    [[nodiscard]] CMSEnvelope takeEnvelope() noexcept { return std::move(envelope_); }

private:
    bool fail(std::string_view what) {
        complaint_ = fmt::format("signature: {}", what);
        return false;
    }
    bool readSignedData(DERReader reader);
    bool readCertificates(DERReader reader);
    bool readSigner(DERReader reader);
    bool readSignerName(std::string_view content);
    [[nodiscard]] static bool readAttributes(DERReader reader, const DigestAlgorithm& digest);
    bool readSignatureAlgorithm(DERReader& reader, const DigestAlgorithm& digest);
    static bool isVersion1(DERReader& reader) {
        const auto version = reader.next(der::kInteger);
        return version && version->content == "\x01"sv;
    }
    static std::optional<Algorithm> readAlgorithm(DERReader& reader);
    static std::optional<DigestAlgorithm> readDigest(DERReader& reader);

    CMSEnvelope envelope_;
    std::string complaint_;
    std::string_view declaredDigest_;
};

std::optional<Algorithm> EnvelopeReader::readAlgorithm(DERReader& reader) {
    const auto sequence = reader.next(der::kSequence);
    if (!sequence) {
        return std::nullopt;
    }
    DERReader inner(sequence->content);
    const auto oid = inner.next(der::kObjectIdentifier);
    const auto null = inner.next(der::kNull);
    if (!oid || (null && !null->content.empty()) || !inner.atEnd()) {
        return std::nullopt;
    }
    return Algorithm{oid->content, null.has_value()};
}

std::optional<DigestAlgorithm> EnvelopeReader::readDigest(DERReader& reader) {
    const auto algorithm = readAlgorithm(reader);
    if (!algorithm) {
        return std::nullopt;
    }
    const auto* known = std::ranges::find_if(kDigests, [&](const DigestAlgorithm& candidate) {
        return candidate.oid == algorithm->oid;
    });
    return known == kDigests.end() ? std::nullopt : std::optional(*known);
}

bool EnvelopeReader::readContentInfo(std::string_view der) {
    DERReader outside(der);
    const auto contentInfo = outside.next(der::kSequence);
    if (!contentInfo) {
        return fail("not the distinguished encoding of a sequence");
    }
    if (!outside.atEnd()) {
        return fail("bytes follow its end");
    }
    DERReader reader(contentInfo->content);
    const auto type = reader.next(der::kObjectIdentifier);
    const auto content = reader.next(der::kContext0);
    if (!type || type->content != kSignedData || !content || !reader.atEnd()) {
        return fail("content is not of type signed-data");
    }
    DERReader inner(content->content);
    const auto signedData = inner.next(der::kSequence);
    if (!signedData || !inner.atEnd()) {
        return fail("malformed signed-data");
    }
    return readSignedData(DERReader(signedData->content));
}

bool EnvelopeReader::readSignedData(DERReader reader) {
    if (!isVersion1(reader)) {
        return fail("signed-data of a version other than 1");
    }
    const auto digests = reader.next(der::kSet);
    DERReader digestReader(digests ? digests->content : std::string_view());
    const auto digest = readDigest(digestReader);
    if (!digest || !digestReader.atEnd()) {
        return fail("digest algorithms other than one of SHA-256, SHA-384, SHA-512");
    }
    declaredDigest_ = digest->oid;
    const auto encapsulated = reader.next(der::kSequence);
    DERReader encapsulatedReader(encapsulated ? encapsulated->content : std::string_view());
    const auto contentType = encapsulatedReader.next(der::kObjectIdentifier);
    if (!contentType || contentType->content != kData) {
        return fail("content is not of type data");
    }
    if (!encapsulatedReader.atEnd()) {
        return fail("carries its content instead of being detached");
    }
    const auto certificates = reader.next(der::kContext0);
    if (!certificates) {
        return fail("no certificates");
    }
    if (!readCertificates(DERReader(certificates->content))) {
        return false;
    }
    const auto signers = reader.next(der::kSet);
    if (!signers || !reader.atEnd()) {
        return fail("something other than the signers follows the certificates");
    }
    DERReader signerReader(signers->content);
    const auto signer = signerReader.next(der::kSequence);
    if (!signer || !signerReader.atEnd()) {
        return fail("number of signers is not one");
    }
    return readSigner(DERReader(signer->content));
}

bool EnvelopeReader::readCertificates(DERReader reader) {
    auto& found = envelope_.certificates;
    while (!reader.atEnd()) {
        const auto certificate = reader.next(der::kSequence);
        if (!certificate) {
            return fail("a certificate that is not X.509");
        }
        if (found.size() == CMSEnvelope::kMostCertificates) {
            return fail(fmt::format("more than {} certificates", CMSEnvelope::kMostCertificates));
        }
        if (std::ranges::find(found, certificate->whole) != found.end()) {
            return fail("the same certificate twice");
        }
        found.push_back(certificate->whole);
    }
    return !found.empty() || fail("no certificates");
}

bool EnvelopeReader::readSigner(DERReader reader) {
    const bool version1 = isVersion1(reader);
    const auto name = reader.next(der::kSequence);
    if (!version1 || !name || !readSignerName(name->content)) {
        return fail("signer is not named by issuer and serial number");
    }
    const auto digest = readDigest(reader);
    if (!digest || digest->oid != declaredDigest_) {
        return fail("signer's digest algorithm is not the declared one");
    }
    const auto attributes = reader.next(der::kContext0);
    if (!attributes) {
        return fail("no signed attributes");
    }
    if (!readAttributes(DERReader(attributes->content), *digest)) {
        return fail("signed attributes without one content type and one message digest");
    }
    if (!readSignatureAlgorithm(reader, *digest)) {
        return fail("signature algorithm is not RSA or ECDSA with the digest algorithm");
    }
    const auto value = reader.next(der::kOctetString);
    if (!value || value->content.empty()) {
        return fail("no signature value");
    }
    return reader.atEnd() || fail("unsigned attributes");
}

bool EnvelopeReader::readSignerName(std::string_view content) {
    DERReader reader(content);
    const auto issuer = reader.next(der::kSequence);
    const auto serial = reader.next(der::kInteger);
    if (!issuer || !serial || !reader.atEnd()) {
        return false;
    }
    envelope_.signerIssuer = issuer->whole;
    envelope_.signerSerial = serial->whole;
    return true;
}

bool EnvelopeReader::readAttributes(DERReader reader, const DigestAlgorithm& digest) {
    std::vector<std::string_view> types;
    bool typed = false;
    bool digested = false;
    while (!reader.atEnd()) {
        const auto attribute = reader.next(der::kSequence);
        DERReader inner(attribute ? attribute->content : std::string_view());
        const auto type = inner.next(der::kObjectIdentifier);
        const auto values = inner.next(der::kSet);
        DERReader valueReader(values ? values->content : std::string_view());
        const auto value = valueReader.next();
        if (!type || !value || !inner.atEnd() || types.size() == kMostAttributes ||
            std::ranges::find(types, type->content) != types.end()) {
            return false;
        }
        types.push_back(type->content);
        if (type->content == kContentType) {
            typed = value->tag == der::kObjectIdentifier && value->content == kData &&
                    valueReader.atEnd();
        } else if (type->content == kMessageDigest) {
            digested = value->tag == der::kOctetString && value->content.size() == digest.length &&
                       valueReader.atEnd();
        }
    }
    return typed && digested;
}

bool EnvelopeReader::readSignatureAlgorithm(DERReader& reader, const DigestAlgorithm& digest) {
    const auto algorithm = readAlgorithm(reader);
    if (!algorithm) {
        return false;
    }
    for (const SignatureAlgorithm& known : kSignatures) {
        if (known.oid == algorithm->oid && known.digest.value_or(digest.digest) == digest.digest) {
            envelope_.keyType = known.keyType;
            return algorithm->hasNull == (known.keyType == SignerKeyType::rsa);
        }
    }
    return false;
}

} // namespace

tl::expected<CMSEnvelope, SignatureFailure> CMSEnvelope::read(std::string_view der) {
    EnvelopeReader reader;
    if (!reader.readContentInfo(der)) {
        return signatureFailure(codesign_status::kSignatureInvalid, reader.complaint());
    }
    return reader.takeEnvelope();
}

} // namespace qv
