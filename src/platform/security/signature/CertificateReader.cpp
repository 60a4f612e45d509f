#include "platform/security/signature/CertificateReader.h"

#include <fmt/core.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <new>
#include <optional>

namespace qv {

namespace {

// Names of subject components as requirements spell them.
struct ComponentName {
    std::string_view oid;
    std::string_view name;
};
constexpr std::array kComponentNames = {
    ComponentName{"2.5.4.3", "CN"},
    ComponentName{"2.5.4.6", "C"},
    ComponentName{"2.5.4.7", "L"},
    ComponentName{"2.5.4.8", "ST"},
    ComponentName{"2.5.4.8.1", "C-ST"},
    ComponentName{"2.5.4.9", "STREET"},
    ComponentName{"2.5.4.9.1", "C-STREET"},
    ComponentName{"2.5.4.10", "O"},
    ComponentName{"2.5.4.10.1", "C-O"},
    ComponentName{"2.5.4.11", "OU"},
    ComponentName{"2.5.4.11.1", "C-OU"},
    ComponentName{"2.5.4.13", "D"},
    ComponentName{"0.9.2342.19200300.100.1.1", "UID"},
};

std::string componentName(const ASN1_OBJECT* object) {
    std::string oid = dottedOID(object);
    for (const ComponentName& known : kComponentNames) {
        if (known.oid == oid) {
            return std::string(known.name);
        }
    }
    return oid;
}

std::optional<std::string> utf8(const ASN1_STRING* text) {
    unsigned char* made = nullptr;
    const int length = ASN1_STRING_to_UTF8(&made, text);
    if (length < 0) {
        ERR_clear_error();
        return std::nullopt;
    }
    std::string result(bytesView(made, static_cast<std::size_t>(length)));
    OPENSSL_free(made);
    return result;
}

std::optional<Date> dateOf(const ASN1_TIME* time) {
    std::tm parts{};
    return time != nullptr && ASN1_TIME_to_tm(time, &parts) == 1
               ? std::optional(Date{static_cast<double>(::timegm(&parts)) - Date::kReference})
               : std::nullopt;
}

template <auto Decode, auto Release> std::optional<Date> decodedTime(std::string_view der) {
    const unsigned char* at = unsignedBytes(der);
    const std::unique_ptr<ASN1_TIME, Releaser<Release>> time(
        Decode(nullptr, &at, static_cast<long>(der.size())));
    return at == unsignedBytes(der) + der.size() ? dateOf(time.get()) : std::nullopt;
}

// The instant that an extension's value spells, if it is nothing but a time.
std::optional<Date> timestamp(const X509_EXTENSION* extension) {
    // The accessor merely lacks its const.
    const ASN1_OCTET_STRING* value = X509_EXTENSION_get_data(
        const_cast<X509_EXTENSION*>(extension)); // NOLINT(cppcoreguidelines-pro-type-const-cast)
    const std::string_view der = bytesView(ASN1_STRING_get0_data(value),
                                           static_cast<std::size_t>(ASN1_STRING_length(value)));
    std::optional<Date> time;
    if (!der.empty() && der.front() == V_ASN1_UTCTIME) {
        time = decodedTime<d2i_ASN1_UTCTIME, ASN1_UTCTIME_free>(der);
    } else if (!der.empty() && der.front() == V_ASN1_GENERALIZEDTIME) {
        time = decodedTime<d2i_ASN1_GENERALIZEDTIME, ASN1_GENERALIZEDTIME_free>(der);
    }
    ERR_clear_error();
    return time;
}

struct PoliciesReleaser {
    void operator()(CERTIFICATEPOLICIES* policies) const noexcept {
        CERTIFICATEPOLICIES_free(policies);
    }
};

// Returns false when the extension is there but cannot be read.
bool readPolicies(const X509& certificate, std::vector<std::string>& oids) {
    int where = -1;
    const std::unique_ptr<CERTIFICATEPOLICIES, PoliciesReleaser> policies(
        static_cast<CERTIFICATEPOLICIES*>(
            X509_get_ext_d2i(&certificate, NID_certificate_policies, &where, nullptr)));
    ERR_clear_error();
    if (!policies) {
        return where == -1;
    }
    for (int index = 0; index < sk_POLICYINFO_num(policies.get()); ++index) {
        oids.push_back(dottedOID(sk_POLICYINFO_value(policies.get(), index)->policyid));
    }
    return true;
}

bool readSubject(const X509& certificate,
                 std::vector<std::pair<std::string, std::string>>& components) {
    const X509_NAME* subject = X509_get_subject_name(&certificate);
    for (int index = 0; index < X509_NAME_entry_count(subject); ++index) {
        const X509_NAME_ENTRY* entry = X509_NAME_get_entry(subject, index);
        auto value = utf8(X509_NAME_ENTRY_get_data(entry));
        if (!value) {
            return false;
        }
        components.emplace_back(componentName(X509_NAME_ENTRY_get_object(entry)),
                                std::move(*value));
    }
    return true;
}

void requireDigest(bool success) {
    if (!success) { // fails for want of memory only
        throw std::bad_alloc();
    }
}

// The text of a block as the library reads it from PEM, released with the library's allocator.
struct PEMBlock {
    PEMBlock() = default;
    PEMBlock(const PEMBlock&) = delete;
    PEMBlock& operator=(const PEMBlock&) = delete;
    PEMBlock(PEMBlock&&) = delete;
    PEMBlock& operator=(PEMBlock&&) = delete;
    ~PEMBlock() {
        OPENSSL_free(name);
        OPENSSL_free(header);
        OPENSSL_free(data);
    }
    bool readFrom(BIO* source) { return PEM_read_bio(source, &name, &header, &data, &length) == 1; }
    [[nodiscard]] bool isCertificate() const {
        return std::string_view(name) == PEM_STRING_X509 && *header == '\0';
    }

    char* name = nullptr;
    char* header = nullptr;
    unsigned char* data = nullptr;
    long length = 0;
};

std::size_t occurrences(std::string_view text, std::string_view of) {
    std::size_t count = 0;
    for (std::size_t at = text.find(of); at != std::string_view::npos; at = text.find(of, at + 1)) {
        ++count;
    }
    return count;
}

} // namespace

X509Handle certificateWithDER(std::string_view der) {
    const unsigned char* at = unsignedBytes(der);
    X509Handle certificate(d2i_X509(nullptr, &at, static_cast<long>(der.size())));
    ERR_clear_error();
    if (!certificate || derOf(i2d_X509, certificate.get()) != der) {
        return nullptr;
    }
    return certificate;
}

tl::expected<std::vector<X509Handle>, std::string> certificatesWithPEM(std::string_view text) {
    std::vector<X509Handle> certificates;
    const BIOHandle source = bioReading(text);
    if (!source) {
        return tl::unexpected<std::string>("is too large");
    }
    // A block that the library does not even see as one must not go unnoticed.
    const std::size_t announced = occurrences(text, "-----BEGIN");
    while (certificates.size() < announced) {
        PEMBlock block;
        if (!block.readFrom(source.get())) {
            return tl::unexpected<std::string>("is damaged: " + openSSLComplaint());
        }
        if (!block.isCertificate()) {
            return tl::unexpected<std::string>("holds something else than certificates");
        }
        X509Handle certificate =
            certificateWithDER(bytesView(block.data, static_cast<std::size_t>(block.length)));
        if (!certificate) {
            return tl::unexpected<std::string>("holds a certificate that cannot be read");
        }
        certificates.push_back(std::move(certificate));
    }
    if (certificates.empty()) {
        return tl::unexpected<std::string>("holds no certificate in PEM");
    }
    return certificates;
}

tl::expected<CertificateFacts, std::string> certificateFacts(const X509& certificate) {
    CertificateFacts facts;
    requireDigest(X509_digest(&certificate, EVP_sha1(), facts.sha1.data(), nullptr) == 1);
    facts.sha256 = certificateDigest(certificate);
    if (!readSubject(certificate, facts.subject)) {
        return tl::unexpected<std::string>("has a subject that is not text");
    }
    if (!readPolicies(certificate, facts.policyOIDs)) {
        return tl::unexpected<std::string>("has certificate policies that cannot be read");
    }
    const auto expires = dateOf(X509_get0_notAfter(&certificate));
    if (!expires) {
        return tl::unexpected<std::string>("has a term whose end cannot be read");
    }
    facts.expires = *expires;
    for (int index = 0; index < X509_get_ext_count(&certificate); ++index) {
        X509_EXTENSION* extension = X509_get_ext(&certificate, index);
        facts.extensionOIDs.push_back(dottedOID(X509_EXTENSION_get_object(extension)));
        if (const auto date = timestamp(extension)) {
            facts.timestamps.emplace_back(facts.extensionOIDs.back(), *date);
        }
    }
    return facts;
}

SHA256Digest certificateDigest(const X509& certificate) {
    SHA256Digest digest{};
    requireDigest(X509_digest(&certificate, EVP_sha256(), digest.data(), nullptr) == 1);
    return digest;
}

std::string commonName(const X509& certificate) {
    const X509_NAME* subject = X509_get_subject_name(&certificate);
    const int index = X509_NAME_get_index_by_NID(subject, NID_commonName, -1);
    if (index < 0) {
        return {};
    }
    return utf8(X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, index))).value_or("");
}

std::string dottedOID(const ASN1_OBJECT* object) {
    const int length = OBJ_obj2txt(nullptr, 0, object, 1);
    if (length <= 0) {
        ERR_clear_error();
        return {};
    }
    std::string text(static_cast<std::size_t>(length) + 1, '\0');
    OBJ_obj2txt(text.data(), length + 1, object, 1);
    text.resize(static_cast<std::size_t>(length));
    return text;
}

} // namespace qv
