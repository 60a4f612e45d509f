#include "platform/security/signature/CertificateRules.h"

#include "platform/foundation/log/Log.h"
#include "platform/security/signature/CertificateReader.h"

#include <fmt/core.h>
#include <openssl/core_names.h>
#include <openssl/objects.h>

#include <algorithm>
#include <array>

namespace qv {

namespace {

constexpr int kFewestRSABits = 2048;
constexpr int kMostRSABits = 8192; // a verification stays below a millisecond

constexpr std::string_view kStoreMarker = "1.2.840.113635.100.6.1.9";
constexpr std::string_view kDistributionMarker = "1.2.840.113635.100.6.1.13";
constexpr std::array<std::string_view, 4> kMarkers = {
    kStoreMarker, kDistributionMarker,
    "1.2.840.113635.100.6.1.33", // a date of the distribution marker
    "1.2.840.113635.100.6.2.6",  // intermediate of the distribution marker
};

// Extensions that the library checks or this file does; a policy restricts nothing by itself, it is
// there for requirements to ask about.
constexpr std::array kChecked = {NID_basic_constraints, NID_key_usage, NID_ext_key_usage,
                                 NID_name_constraints, NID_certificate_policies};

constexpr bool contains(const auto& list, const auto& wanted) {
    return std::find(list.begin(), list.end(), wanted) != list.end();
}

bool isFromExplicitParameters(const EVP_PKEY& key) {
    int isExplicit = 1;
    return EVP_PKEY_get_int_param(&key, OSSL_PKEY_PARAM_EC_DECODED_FROM_EXPLICIT_PARAMS,
                                  &isExplicit) != 1 ||
           isExplicit != 0;
}

enum class AnyPurpose : std::uint8_t { refused, accepted };

bool purposesIncludeCodeSigning(X509& certificate, AnyPurpose anyPurpose) {
    const std::uint32_t purposes = X509_get_extended_key_usage(&certificate);
    return (purposes & XKU_CODE_SIGN) != 0 ||
           (anyPurpose == AnyPurpose::accepted && (purposes & XKU_ANYEKU) != 0);
}

// Includes faults that the library found when it read the extensions.
std::string extensionFault(X509& certificate) {
    const std::uint32_t flags = X509_get_extension_flags(&certificate);
    return (flags & (EXFLAG_INVALID | EXFLAG_PROXY)) == 0 ? std::string()
                                                          : "has invalid extensions";
}

} // namespace

std::string keyFault(const X509& certificate) {
    const EVP_PKEY* key = X509_get0_pubkey(&certificate);
    if (key == nullptr) {
        return "has no key that can be read";
    }
    if (EVP_PKEY_is_a(key, "RSA") == 1) {
        const int bits = EVP_PKEY_get_bits(key);
        return bits >= kFewestRSABits && bits <= kMostRSABits
                   ? std::string()
                   : fmt::format("has an RSA key of {} bits", bits);
    }
    std::array<char, 64> group{};
    std::size_t length = 0;
    if (EVP_PKEY_is_a(key, "EC") == 1 &&
        EVP_PKEY_get_group_name(key, group.data(), group.size(), &length) == 1 &&
        !isFromExplicitParameters(*key)) {
        const std::string_view name(group.data(), length);
        return name == SN_X9_62_prime256v1 || name == SN_secp384r1
                   ? std::string()
                   : fmt::format("has a key on the curve {}", name);
    }
    return "has a key that is neither RSA nor on a named curve";
}

std::string criticalExtensionFault(const X509& certificate) {
    for (int index = 0; index < X509_get_ext_count(&certificate); ++index) {
        X509_EXTENSION* extension = X509_get_ext(&certificate, index);
        if (X509_EXTENSION_get_critical(extension) == 0) {
            continue;
        }
        const ASN1_OBJECT* object = X509_EXTENSION_get_object(extension);
        const std::string oid = dottedOID(object);
        if (!contains(kChecked, OBJ_obj2nid(object)) && !contains(kMarkers, oid)) {
            return fmt::format("has the unknown critical extension {}", log::foreign(oid));
        }
    }
    return {};
}

std::string signerFault(X509& certificate) {
    if (std::string fault = extensionFault(certificate); !fault.empty()) {
        return fault;
    }
    const std::uint32_t flags = X509_get_extension_flags(&certificate);
    if ((flags & EXFLAG_CA) != 0) {
        return "is an authority, which must not sign code";
    }
    if ((flags & EXFLAG_KUSAGE) == 0 ||
        (X509_get_key_usage(&certificate) & KU_DIGITAL_SIGNATURE) == 0) {
        return "is not for digital signatures";
    }
    if ((flags & EXFLAG_XKUSAGE) == 0 ||
        !purposesIncludeCodeSigning(certificate, AnyPurpose::refused)) {
        return "is not for code signing";
    }
    return {};
}

std::string issuerFault(X509& certificate) {
    if (std::string fault = extensionFault(certificate); !fault.empty()) {
        return fault;
    }
    const std::uint32_t flags = X509_get_extension_flags(&certificate);
    if ((flags & EXFLAG_CA) == 0) {
        return "issued a certificate but is not an authority";
    }
    if ((flags & EXFLAG_KUSAGE) == 0 ||
        (X509_get_key_usage(&certificate) & KU_KEY_CERT_SIGN) == 0) {
        return "issued a certificate but is not for signing certificates";
    }
    if ((flags & EXFLAG_XKUSAGE) != 0 &&
        !purposesIncludeCodeSigning(certificate, AnyPurpose::accepted)) {
        return "is an authority for other purposes than code signing";
    }
    return {};
}

bool hasDistributionMarker(const CertificateFacts& certificate) {
    return contains(certificate.extensionOIDs, kStoreMarker) ||
           contains(certificate.extensionOIDs, kDistributionMarker);
}

std::string shownName(const X509& certificate) {
    const std::string name = commonName(certificate);
    return name.empty() ? "certificate without a name"
                        : fmt::format("certificate \"{}\"", log::foreign(name));
}

} // namespace qv
