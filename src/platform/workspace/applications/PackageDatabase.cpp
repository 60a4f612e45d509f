#include "platform/workspace/applications/PackageDatabase.h"

#include "platform/foundation/os/CopiedPath.h"
#include "platform/foundation/os/RegularFile.h"
#include "platform/workspace/applications/FoldedText.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <iterator>
#include <system_error>
#include <vector>

namespace qv {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kListSuffix = ".list";
constexpr auto kRegularFile = fs::file_type::regular;

std::optional<std::string> contentUpTo(const std::string& path, std::size_t most) {
    const Descriptor file = openRegularFile(path);
    return file ? contentOfRegularFile(file.get(), most) : std::nullopt;
}

// A package and an entry that it installs usually share a part of their names.
bool isNamedLike(std::string_view package, std::string_view entry) {
    return entry.find(package.substr(0, package.find(':'))) != std::string_view::npos ||
           package.find(entry) != std::string_view::npos;
}

// The names of packages that have a list of files, those first that are named like the entry.
std::vector<std::string> packagesIn(const std::string& folder, std::string_view entry) {
    constexpr std::size_t kMostPackages = 100'000;
    std::vector<std::string> packages;
    std::vector<std::string> others;
    std::error_code error;
    fs::directory_iterator each(folder, error);
    for (; !error && each != fs::directory_iterator() &&
           packages.size() + others.size() < kMostPackages;
         each.increment(error)) {
        const std::string file = each->path().filename();
        if (file.ends_with(kListSuffix) && each->symlink_status(error).type() == kRegularFile) {
            const std::string package = file.substr(0, file.size() - kListSuffix.size());
            (isNamedLike(package, entry) ? packages : others).push_back(package);
        }
    }
    std::ranges::sort(packages);
    std::ranges::sort(others);
    std::ranges::move(others, std::back_inserter(packages));
    return packages;
}

// `line` is the text between line feeds.
bool holdsLine(std::string_view text, std::string_view line) {
    // A search for the whole line is faster than one for the first character, which each line has.
    return ::memmem(text.data(), text.size(), line.data(), line.size()) != nullptr ||
           text.starts_with(line.substr(1));
}

// A field of a paragraph of lines "NAME: value".
std::string_view fieldNamed(std::string_view name, std::string_view paragraph) {
    while (!paragraph.empty()) {
        const std::string_view line = paragraph.substr(0, paragraph.find('\n'));
        if (line.starts_with(name) && line.substr(name.size()).starts_with(": ")) {
            return line.substr(name.size() + 2);
        }
        paragraph.remove_prefix(std::min(line.size() + 1, paragraph.size()));
    }
    return {};
}

// `package` is its name, and behind a colon its architecture where there may be several.
std::optional<std::string> installedVersion(std::string_view status, std::string_view package) {
    const std::size_t colon = std::min(package.find(':'), package.size());
    const std::string_view name = package.substr(0, colon);
    const std::string_view architecture = package.substr(std::min(colon + 1, package.size()));
    while (!status.empty()) {
        const std::size_t end = std::min(status.find("\n\n"), status.size());
        const std::string_view paragraph = status.substr(0, end);
        status.remove_prefix(std::min(end + 2, status.size()));
        if (fieldNamed("Package", paragraph) == name &&
            fieldNamed("Status", paragraph).ends_with(" installed") &&
            (architecture.empty() || fieldNamed("Architecture", paragraph) == architecture)) {
            const std::string_view version = upstreamVersion(fieldNamed("Version", paragraph));
            return version.empty() ? std::nullopt : std::optional(std::string(version));
        }
    }
    return std::nullopt;
}

} // namespace

std::optional<std::string> packageVersionOfFile(const std::string& path, const std::string& root) {
    constexpr std::size_t kLongestStatus = std::size_t{64} << 20U;
    if (!path.starts_with('/') || path.find('\n') != std::string::npos) {
        return std::nullopt;
    }
    const std::string database = root + "/var/lib/dpkg";
    const std::string lists = copiedPath(root, database + "/info").value_or("");
    const Descriptor folder(::open(lists.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    const std::string line = "\n" + path + "\n";
    const std::string entry = folded(fs::path(path).stem().native());
    std::size_t left = std::size_t{256} << 20U;
    for (const std::string& package : packagesIn(lists, entry)) {
        const std::string name = package + std::string(kListSuffix);
        const Descriptor file(::openat(folder.get(), name.c_str(),
                                       O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        const auto list = file ? contentOfRegularFile(file.get(), left) : std::nullopt;
        left -= list ? list->size() : 0;
        if (list && holdsLine(*list, line)) {
            const auto status =
                contentUpTo(copiedPath(root, database + "/status").value_or(""), kLongestStatus);
            return status ? installedVersion(*status, package) : std::nullopt;
        }
    }
    return std::nullopt;
}

std::string_view upstreamVersion(std::string_view packageVersion) {
    const std::size_t colon = packageVersion.find(':');
    packageVersion.remove_prefix(colon == std::string_view::npos ? 0 : colon + 1);
    return packageVersion.substr(0, packageVersion.rfind('-'));
}

} // namespace qv
