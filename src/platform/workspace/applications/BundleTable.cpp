#include "platform/workspace/applications/BundleTable.h"

#include "platform/foundation/files/walk/TreeWalk.h"
#include "platform/foundation/os/CopiedPath.h"
#include "platform/foundation/os/Folder.h"
#include "platform/workspace/applications/ApplicationFolders.h"
#include "platform/workspace/applications/Bundle.h"
#include "platform/workspace/applications/FoldedText.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace qv {

namespace {

constexpr std::string_view kBundleExtension = ".app";

bool leadsThroughLink(int folder, const char* name) {
    open_how how{};
    how.flags = O_PATH | O_CLOEXEC;
    how.resolve = RESOLVE_NO_SYMLINKS;
    const Descriptor file(static_cast<int>(::syscall(SYS_openat2, folder, name, &how, sizeof how)));
    return !file && errno == ELOOP;
}

// Watches all that the information list of a bundle, or its lack, depends on.
void watchInfoLists(int folder, const std::string& path, const std::string& copy,
                    ChangeWatch& watch) {
    watch.watch(folder, ChangeWatch::Interest::infoLists);
    for (const char* name : {"Contents", "Resources"}) {
        if (const Descriptor inner = openFolderIn(folder, name)) {
            watch.watch(inner.get(), ChangeWatch::Interest::infoLists);
        }
    }
    for (const char* name : kInfoLists) {
        if (leadsThroughLink(folder, name)) {
            watch.links().note(copiedPath(copy, path + "/" + name).value_or(""));
        }
    }
}

bool hasFolderName(std::string_view path, std::string_view name) {
    const std::string_view folder = path.substr(path.rfind('/') + 1);
    return folder == name || (folder.ends_with(kBundleExtension) &&
                              folder.substr(0, folder.size() - kBundleExtension.size()) == name);
}

} // namespace

/// Walks one folder.
class BundleFinder : public TreeVisitor {
public:
    BundleFinder(const BundleFolder& root, const std::string& copy, ChangeWatch& watch,
                 std::vector<BundleTable::Record>& into)
        : root_(root), copy_(copy), watch_(watch), records_(into) {}

    void visit(const TreeEntry& /*entry*/) override { ++items_; }
    bool enter(const TreeEntry& folder, int folderFd) override {
        if (++folders_ > kMostFolders) {
            return false;
        }
        const std::string path = folder.path();
        watchInfoLists(folderFd, path, copy_, watch_);
        const Bundle bundle = Bundle::bundleInFolder(folderFd, path);
        if (bundle.hasInfoDictionary() || path.ends_with(kBundleExtension)) {
            const std::string identifier = bundle.bundleIdentifier().value_or("");
            records_.push_back({path, identifier, folded(identifier),
                                bundle.displayName().value_or(""),
                                bundle.bundleName().value_or("")});
            return false;
        }
        if (folder.parentPath.size() > rootLength_ || root_.levels < 2) {
            return false;
        }
        watch_.watch(folderFd, ChangeWatch::Interest::folders);
        return true;
    }
    [[nodiscard]] bool hasStopped() const override { return items_ > kMostItems; }
    void failed(const std::string& /*path*/, const Error& /*error*/) override {}

private:
    const BundleFolder& root_;
    const std::string& copy_;
    ChangeWatch& watch_;
    std::vector<BundleTable::Record>& records_;
    std::size_t rootLength_ = root_.path.size();
    std::size_t folders_ = 0;
    std::size_t items_ = 0;
};

void BundleTable::read(const ApplicationFolders& folders, ChangeWatch& watch) {
    records_.clear();
    for (const BundleFolder& root : folders.bundles) {
        Descriptor folder = watch.openRoot(root.path, folders.root);
        if (!folder) {
            continue;
        }
        watch.watch(folder.get(), ChangeWatch::Interest::folders);
        const std::size_t before = records_.size();
        BundleFinder finder(root, folders.root, watch, records_);
        walkTree(std::move(folder), root.path, finder);
        std::sort(records_.begin() + static_cast<std::ptrdiff_t>(before), records_.end(),
                  [](const Record& left, const Record& right) { return left.path < right.path; });
    }
}

std::optional<std::string> BundleTable::pathForIdentifier(std::string_view identifier) const {
    const auto found = std::ranges::find(records_, identifier, &Record::identifier);
    return found == records_.end() || identifier.empty() ? std::nullopt
                                                         : std::optional(found->path);
}

std::optional<std::string> BundleTable::pathForName(std::string_view name) const {
    if (name.empty()) {
        return std::nullopt;
    }
    auto found = std::ranges::find_if(
        records_, [&](const Record& record) { return hasFolderName(record.path, name); });
    if (found == records_.end()) {
        found = std::ranges::find(records_, name, &Record::displayName);
    }
    if (found == records_.end()) {
        found = std::ranges::find(records_, name, &Record::name);
    }
    return found == records_.end() ? std::nullopt : std::optional(found->path);
}

std::vector<InstalledApplication> BundleTable::applications() const {
    std::vector<InstalledApplication> applications;
    for (const Record& record : records_) {
        std::string name = !record.displayName.empty() ? record.displayName : record.name;
        if (name.empty()) {
            name = record.path.substr(record.path.rfind('/') + 1);
        }
        applications.push_back({record.bundleID, std::move(name), record.path});
    }
    return applications;
}

} // namespace qv
