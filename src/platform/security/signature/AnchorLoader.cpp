#include "platform/security/signature/AnchorLoader.h"

#include "platform/foundation/values/ASCII.h"
#include "platform/security/signature/CertificateReader.h"
#include "platform/security/signature/OpenSSLHandles.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <utility>

namespace qv {

namespace {

constexpr std::string_view kRevokedList = "revoked";

struct RoleFolder {
    std::string_view name;
    bool AnchorSet::Roles::* role;
};
constexpr std::array kFolders = {RoleFolder{"vendor", &AnchorSet::Roles::vendor},
                                 RoleFolder{"platform", &AnchorSet::Roles::platform},
                                 RoleFolder{"trusted", &AnchorSet::Roles::trusted}};

tl::unexpected<std::string> fault(std::string_view path, std::string_view what) {
    return GuardedPath::fault(path, what);
}

// A digest of 20 or 32 bytes; empty for anything else.
std::string digestOfText(std::string_view text) {
    std::string bytes;
    if (text.size() != 40 && text.size() != 64) {
        return bytes;
    }
    for (std::size_t at = 0; at < text.size(); at += 2) {
        const int high = hexDigitValue(text[at]);
        const int low = hexDigitValue(text[at + 1]);
        if (high < 0 || low < 0) {
            return {};
        }
        bytes += static_cast<char>(high * 16 + low);
    }
    return bytes;
}

std::string_view withoutBlanks(std::string_view text) {
    constexpr std::string_view kBlanks = " \t\r";
    const std::size_t begin = text.find_first_not_of(kBlanks);
    return begin == std::string_view::npos
               ? std::string_view()
               : text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

} // namespace

AnchorLoader::AnchorLoader(std::string folder, uid_t allowedOwner)
    : files_(std::move(folder), allowedOwner) {
    // Otherwise no certificate can be read, and nobody is trusted.
    static_cast<void>(startOpenSSL());
}

WatchedContent<AnchorSet>::Reading AnchorLoader::load() {
    Outcome outcome =
        files_.folder().empty() ? Outcome(fault("trust anchors", "no folder")) : readAll();
    if (outcome && set_.isEmpty()) {
        outcome = fault(files_.folder(), "holds no certificate");
    }
    // A folder that broke a rule counts for nothing.
    return {.content = outcome ? set_.finish() : AnchorSetBuilder::nobody(outcome.error()),
            .paths = files_.takePaths(),
            .mayBeKept = outcome.has_value()};
}

AnchorLoader::Outcome AnchorLoader::readAll() {
    const auto folder = files_.enter();
    if (!folder) {
        return tl::unexpected(folder.error());
    }
    const auto items = GuardedFiles::itemsIn(folder->get(), files_.folder());
    if (!items) {
        return tl::unexpected(items.error());
    }
    for (const GuardedFiles::Item& item : *items) {
        const auto* known = std::ranges::find_if(
            kFolders, [&](const RoleFolder& each) { return each.name == item.name; });
        Outcome outcome;
        if (known != kFolders.end()) {
            outcome = readCertificates(folder->get(), item, known->role);
        } else if (item.name == kRevokedList) {
            outcome = readRevoked(folder->get(), item);
        } else {
            outcome = fault(item.path, "has no business here");
        }
        if (!outcome) {
            return outcome;
        }
    }
    return {};
}

AnchorLoader::Outcome AnchorLoader::readCertificates(int parent, const GuardedFiles::Item& role,
                                                     bool AnchorSet::Roles::* member) {
    const auto folder = files_.openFolder(parent, role);
    if (!folder) {
        return tl::unexpected(folder.error());
    }
    const auto files = GuardedFiles::itemsIn(folder->get(), role.path);
    if (!files) {
        return tl::unexpected(files.error());
    }
    for (const GuardedFiles::Item& file : *files) {
        const auto content = files_.contentOf(folder->get(), file);
        if (!content) {
            return tl::unexpected(content.error());
        }
        if (const Outcome added = addCertificates(*content, member); !added) {
            return fault(file.path, added.error());
        }
    }
    return {};
}

AnchorLoader::Outcome AnchorLoader::addCertificates(std::string_view text,
                                                    bool AnchorSet::Roles::* role) {
    const auto certificates = certificatesWithPEM(text);
    if (!certificates) {
        return tl::unexpected(certificates.error());
    }
    for (const X509Handle& certificate : *certificates) {
        if (auto added = set_.add(*certificate, role); !added) {
            return added;
        }
    }
    return {};
}

AnchorLoader::Outcome AnchorLoader::readRevoked(int parent, const GuardedFiles::Item& list) {
    const auto content = files_.contentOf(parent, list);
    if (!content) {
        return tl::unexpected(content.error());
    }
    std::size_t line = 0;
    for (std::string_view rest = *content; !rest.empty();) {
        ++line;
        const std::size_t end = std::min(rest.find('\n'), rest.size());
        std::string_view text = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 1, rest.size()));
        text = withoutBlanks(text.substr(0, text.find('#')));
        if (text.empty()) {
            continue;
        }
        std::string digest = digestOfText(text);
        if (digest.empty()) {
            return fault(list.path, fmt::format("line {}: no digest of 40 or 64 digits", line));
        }
        set_.revoke(std::move(digest));
    }
    return {};
}

} // namespace qv
