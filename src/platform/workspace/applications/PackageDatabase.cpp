#include "platform/workspace/applications/PackageDatabase.h"

#include "platform/foundation/os/CopiedPath.h"
#include "platform/foundation/os/RegularFile.h"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <system_error>
#include <vector>

namespace qv {

namespace {

constexpr std::string_view kListSuffix = ".list";

std::optional<std::string> contentUpTo(const std::string& path, std::size_t most) {
    const Descriptor file = openRegularFile(path);
    return file ? contentOfRegularFile(file.get(), most) : std::nullopt;
}

// The names of packages that have a list of files, in their order.
std::vector<std::string> packagesIn(const std::string& folder) {
    constexpr std::size_t kMostPackages = 100'000;
    std::vector<std::string> packages;
    std::error_code error;
    std::filesystem::directory_iterator each(folder, error);
    for (;
         !error && each != std::filesystem::directory_iterator() && packages.size() < kMostPackages;
         each.increment(error)) {
        const std::string file = each->path().filename();
        if (file.ends_with(kListSuffix)) {
            packages.push_back(file.substr(0, file.size() - kListSuffix.size()));
        }
    }
    std::ranges::sort(packages);
    return packages;
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

// `package`: its name, and behind a colon its architecture where there may be several.
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
    const std::string line = "\n" + path + "\n";
    std::size_t left = std::size_t{256} << 20U;
    const std::string lists = database + "/info";
    for (const std::string& package : packagesIn(copiedPath(root, lists).value_or(""))) {
        const std::string file = std::string(lists).append("/").append(package).append(kListSuffix);
        const auto list = contentUpTo(copiedPath(root, file).value_or(""), left);
        left -= list ? list->size() : 0;
        if (list && (list->find(line) != std::string::npos ||
                     list->starts_with(std::string_view(line).substr(1)))) {
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
