#include "platform/security/signature/AnchorLoader.h"

#include "platform/foundation/files/content/FileBytes.h"
#include "platform/foundation/log/Log.h"
#include "platform/security/signature/CertificateReader.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <utility>

namespace qv {

namespace {

constexpr std::string_view kRevoked = "revoked";
constexpr time_t kSettlingSeconds = 2; // times of changes are as coarse as the file system's clock

struct Folder {
    std::string_view name;
    bool AnchorSet::Roles::* role;
};
constexpr std::array kFolders = {Folder{"vendor", &AnchorSet::Roles::vendor},
                                 Folder{"platform", &AnchorSet::Roles::platform},
                                 Folder{"trusted", &AnchorSet::Roles::trusted}};

tl::unexpected<std::string> fault(std::string_view path, std::string_view what) {
    return GuardedPath::fault(path, what);
}

using DirectoryHandle = std::unique_ptr<DIR, Releaser<::closedir>>;

// The entries of a folder, sorted; one more than `most` when there are more.
tl::expected<std::vector<std::string>, int> namesIn(int folder, std::size_t most) {
    UniqueFd own(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const DirectoryHandle stream(own ? ::fdopendir(own.get()) : nullptr);
    if (!stream) {
        return tl::unexpected(errno);
    }
    static_cast<void>(own.release()); // the stream closes it
    std::vector<std::string> names;
    while (names.size() <= most) {
        errno = 0;
        const dirent* entry =
            ::readdir(stream.get()); // NOLINT(concurrency-mt-unsafe): the stream is ours alone
        if (entry == nullptr) {
            if (errno != 0) {
                return tl::unexpected(errno);
            }
            break;
        }
        const std::string_view name = static_cast<const char*>(entry->d_name);
        if (name != "." && name != "..") {
            names.emplace_back(name);
        }
    }
    std::ranges::sort(names);
    return names;
}

// What a digit stands for; -1 for none.
int hexadecimal(char digit) {
    if (digit >= '0' && digit <= '9') {
        return digit - '0';
    }
    if (digit >= 'a' && digit <= 'f') {
        return digit - 'a' + 10;
    }
    return digit >= 'A' && digit <= 'F' ? digit - 'A' + 10 : -1;
}

// A digest of 20 or 32 bytes; empty for anything else.
std::string digestOfText(std::string_view text) {
    std::string bytes;
    if (text.size() != 40 && text.size() != 64) {
        return bytes;
    }
    for (std::size_t at = 0; at < text.size(); at += 2) {
        const int high = hexadecimal(text[at]);
        const int low = hexadecimal(text[at + 1]);
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
    : folder_(std::move(folder)),
      guard_(allowedOwner, [this](const std::string& path, Place place) { watch(path, place); }) {}

std::shared_ptr<const AnchorSet> AnchorLoader::load() {
    Outcome outcome = folder_.empty() ? Outcome(fault("trust anchors", "no folder")) : readAll();
    if (outcome && set_.isEmpty()) {
        outcome = fault(folder_, "holds no certificate");
    }
    good_ = outcome.has_value();
    // Nothing of a folder that broke a rule counts.
    return good_ ? set_.finish() : AnchorSetBuilder::nobody(outcome.error());
}

bool AnchorLoader::isSettledAt(std::chrono::system_clock::time_point now) const {
    const time_t latest = std::chrono::system_clock::to_time_t(now) - kSettlingSeconds;
    return good_ && std::ranges::all_of(watched_, [&](const TrustAnchors::Watched& watched) {
               return watched.found &&
                      (watched.isOnTheWay || watched.found->st_ctim.tv_sec < latest);
           });
}

AnchorLoader::Outcome AnchorLoader::readAll() {
    const auto folder = guard_.enter(folder_, Place::inside);
    if (!folder) {
        return tl::unexpected(folder.error());
    }
    const auto names = namesIn(folder->get(), kFolders.size() + 1);
    if (!names) {
        return fault(folder_, errnoText(names.error()));
    }
    for (const std::string& name : *names) {
        const auto* known =
            std::ranges::find_if(kFolders, [&](const Folder& each) { return each.name == name; });
        Outcome outcome;
        if (known != kFolders.end()) {
            outcome = readCertificates(folder->get(), name, known->role);
        } else if (name == kRevoked) {
            outcome = readRevoked(folder->get());
        } else {
            outcome = fault(folder_ + "/" + name, "has no business here");
        }
        if (!outcome) {
            return outcome;
        }
    }
    return {};
}

tl::expected<std::string, std::string> AnchorLoader::contentOf(int parent, const std::string& name,
                                                               const std::string& path) {
    if (++files_ > TrustAnchors::kMostFiles) {
        return fault(folder_, fmt::format("holds more than {} files", TrustAnchors::kMostFiles));
    }
    watch(path, Place::inside);
    // O_NONBLOCK: a pipe must not hold us up before it is found to be no file.
    const UniqueFd file(
        ::openat(parent, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (!file) {
        return errno == ELOOP ? fault(path, "is a symbolic link") : fault(path, errnoText(errno));
    }
    struct stat info{};
    if (::fstat(file.get(), &info) != 0) {
        return fault(path, errnoText(errno));
    }
    if (!S_ISREG(info.st_mode)) {
        return fault(path, "is no regular file");
    }
    if (const Outcome fine = guard_.judge(file.get(), path, Place::inside); !fine) {
        return tl::unexpected(fine.error());
    }
    if (std::cmp_greater(info.st_size, TrustAnchors::kLargestFile)) {
        return fault(path, fmt::format("is larger than {} bytes", TrustAnchors::kLargestFile));
    }
    std::string content(static_cast<std::size_t>(info.st_size), '\0');
    if (const int error = readExactly(file.get(), 0, content); error != 0) {
        return fault(path, errnoText(error));
    }
    return content;
}

AnchorLoader::Outcome AnchorLoader::readCertificates(int parent, const std::string& name,
                                                     bool AnchorSet::Roles::* role) {
    const std::string path = folder_ + "/" + name;
    const auto folder = guard_.openFolder(parent, name, path, Place::inside);
    if (!folder) {
        return tl::unexpected(folder.error());
    }
    const auto names = namesIn(folder->get(), TrustAnchors::kMostFiles);
    if (!names) {
        return fault(path, errnoText(names.error()));
    }
    for (const std::string& file : *names) {
        const std::string filePath = fmt::format("{}/{}", path, file);
        const auto content = contentOf(folder->get(), file, filePath);
        if (!content) {
            return tl::unexpected(content.error());
        }
        if (const Outcome added = addCertificates(*content, role); !added) {
            return fault(filePath, added.error());
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

AnchorLoader::Outcome AnchorLoader::readRevoked(int parent) {
    const std::string path = folder_ + "/" + std::string(kRevoked);
    const auto content = contentOf(parent, std::string(kRevoked), path);
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
            return fault(path, fmt::format("line {}: no digest of 40 or 64 digits", line));
        }
        set_.revoke(std::move(digest));
    }
    return {};
}

void AnchorLoader::watch(const std::string& path, Place place) {
    TrustAnchors::Watched watched{path, std::nullopt, place == Place::onTheWay};
    struct stat info{};
    if (::lstat(path.c_str(), &info) == 0) {
        watched.found = info;
    }
    watched_.push_back(std::move(watched));
}

} // namespace qv
