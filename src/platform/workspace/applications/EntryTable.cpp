#include "platform/workspace/applications/EntryTable.h"

#include "platform/foundation/files/walk/TreeWalk.h"
#include "platform/foundation/os/CopiedPath.h"
#include "platform/foundation/os/RegularFile.h"
#include "platform/workspace/applications/ApplicationFolders.h"
#include "platform/workspace/applications/ExecLine.h"
#include "platform/workspace/applications/FoldedText.h"

#include <algorithm>
#include <functional>
#include <tuple>

namespace qv {

namespace {

constexpr std::size_t kMostEntries = 20'000;
constexpr std::ptrdiff_t kMostLevels = 4;
constexpr std::size_t kMostContent = std::size_t{64} << 20U;
constexpr std::string_view kEntryExtension = ".desktop";

std::size_t hashOf(std::string_view text) { return std::hash<std::string_view>{}(text); }

std::string_view fileNameOf(std::string_view place) {
    const std::string_view name = place.substr(place.rfind('/') + 1);
    return name.substr(0, name.size() - kEntryExtension.size());
}

} // namespace

/// Walks one folder.
class EntryFinder : public TreeVisitor {
public:
    EntryFinder(std::size_t rootLength, std::uint32_t folder, ChangeWatch& watch,
                std::vector<EntryTable::Entry>& into)
        : rootLength_(rootLength), folder_(folder), watch_(watch), entries_(into) {}

    void visit(const TreeEntry& entry) override {
        ++items_;
        const std::string_view name = entry.name;
        const bool isLink = entry.type == EntryType::symbolicLink;
        if ((entry.type != EntryType::file && !isLink) || name.size() <= kEntryExtension.size() ||
            !name.ends_with(kEntryExtension) || found_ == kMostEntries) {
            return;
        }
        ++found_;
        EntryTable::Entry found{.hash = 0, .folder = folder_, .isLink = isLink, .place = {}};
        if (entry.parentPath.size() > rootLength_) {
            found.place = entry.parentPath.substr(rootLength_ + 1);
            found.place += '/';
        }
        found.place += name;
        found.hash = hashOf(EntryTable::identifierOf(found));
        entries_.push_back(std::move(found));
    }
    bool enter(const TreeEntry& folder, int folderFd) override {
        const std::string_view above = folder.parentPath.substr(rootLength_);
        if (++folders_ > kMostFolders || std::ranges::count(above, '/') >= kMostLevels) {
            return false;
        }
        watch_.watch(folderFd, ChangeWatch::Interest::entries);
        return true;
    }
    [[nodiscard]] bool hasStopped() const override { return items_ > kMostItems; }
    void failed(const std::string& /*path*/, const Error& /*error*/) override {}

private:
    std::size_t rootLength_;
    std::uint32_t folder_;
    ChangeWatch& watch_;
    std::vector<EntryTable::Entry>& entries_;
    std::size_t items_ = 0;
    std::size_t found_ = 0;
    std::size_t folders_ = 0;
};

void EntryTable::list(const ApplicationFolders& folders, ChangeWatch& watch) {
    root_ = folders.root;
    folders_ = folders.entries;
    entries_.clear();
    texts_.clear();
    links_.clear();
    hasContents_ = false;
    for (std::size_t index = 0; index < folders_.size(); ++index) {
        Descriptor folder = watch.openRoot(folders_[index], root_);
        if (folder) {
            watch.watch(folder.get(), ChangeWatch::Interest::entries);
            EntryFinder finder(folders_[index] == "/" ? 0 : folders_[index].size(),
                               static_cast<std::uint32_t>(index), watch, entries_);
            walkTree(std::move(folder), folders_[index], finder);
        }
    }
    std::ranges::sort(entries_, [](const Entry& left, const Entry& right) {
        return std::tie(left.hash, left.folder, left.place) <
               std::tie(right.hash, right.folder, right.place);
    });
}

std::string EntryTable::spelledIdentifierOf(const Entry& entry) {
    std::string identifier = entry.place.substr(0, entry.place.size() - kEntryExtension.size());
    std::ranges::replace(identifier, '/', '-');
    return identifier;
}

std::string EntryTable::identifierOf(const Entry& entry) {
    return folded(spelledIdentifierOf(entry));
}

std::string EntryTable::pathOf(const Entry& entry) const {
    return folders_[entry.folder] + "/" + entry.place;
}

tl::expected<DesktopEntry, std::string> EntryTable::contentsAt(const std::string& path) const {
    return DesktopEntry::contentsOfFile(copiedPath(root_, path).value_or(""));
}

bool EntryTable::isShadowed(std::size_t index) const {
    const Entry& entry = entries_[index];
    while (index > 0 && entries_[index - 1].hash == entry.hash) {
        --index;
        if (entries_[index].folder < entry.folder &&
            identifierOf(entries_[index]) == identifierOf(entry)) {
            return true;
        }
    }
    return false;
}

bool EntryTable::isThere(std::string_view program) const {
    return programPath_.empty() || findProgram(program, programPath_).has_value();
}

bool EntryTable::isInstalled(const DesktopEntry& entry) const {
    if (!entry.isApplication() || entry.hidden ||
        (!entry.tryExec.empty() && !isThere(entry.tryExec))) {
        return false;
    }
    if (entry.exec.empty()) {
        return entry.dbusActivatable;
    }
    const auto command = commandOf(entry);
    return command && (command->front() == entry.tryExec || // found already
                       isThere(command->front()));
}

EntryTable::Answer EntryTable::withIdentifier(std::string_view identifier) const {
    const std::string wanted = folded(identifier);
    const Entry* chosen = nullptr;
    for (const Entry& entry :
         std::ranges::equal_range(entries_, hashOf(wanted), {}, &Entry::hash)) {
        if (identifierOf(entry) != wanted) {
            continue;
        }
        if (chosen == nullptr) {
            chosen = &entry;
        }
        if (entry.folder == chosen->folder && spelledIdentifierOf(entry) == identifier) {
            chosen = &entry;
            break;
        }
    }
    if (chosen == nullptr) {
        return {};
    }
    std::string path = pathOf(*chosen);
    const auto content = contentsAt(path);
    return {true, content && isInstalled(*content) ? std::optional(std::move(path)) : std::nullopt};
}

void EntryTable::readContents() {
    if (hasContents_ && !links_.haveChanged()) {
        return;
    }
    texts_.clear();
    links_.clear();
    std::size_t read = 0;
    for (std::size_t index = 0; index < entries_.size() && read < kMostContent; ++index) {
        if (isShadowed(index)) {
            continue;
        }
        const std::string path = copiedPath(root_, pathOf(entries_[index])).value_or("");
        if (entries_[index].isLink) {
            links_.note(path);
        }
        const Descriptor file = openRegularFile(path);
        const auto bytes =
            file ? contentOfRegularFile(file.get(), DesktopEntry::kLongestFile) : std::nullopt;
        if (!bytes) {
            continue;
        }
        read += bytes->size();
        const auto content = DesktopEntry::parse(*bytes, path);
        if (content && content->isApplication() && !content->hidden) {
            addTexts(static_cast<std::uint32_t>(index), *content);
        }
    }
    std::ranges::sort(texts_, {}, &Text::hash);
    hasContents_ = true;
}

void EntryTable::addTexts(std::uint32_t index, const DesktopEntry& content) {
    const auto add = [&](std::string_view text, Kind kind) {
        if (!text.empty()) {
            texts_.push_back({hashOf(text), kind, index});
        }
    };
    add(folded(content.flatpakID), Kind::flatpakID);
    add(content.name, Kind::name);
    for (const auto& name : content.localizedNames) {
        if (name.second != content.name) {
            add(name.second, Kind::localizedName);
        }
    }
    add(fileNameOf(entries_[index].place), Kind::fileName);
}

std::optional<std::string> EntryTable::pathForFlatpakID(std::string_view identifier) const {
    return pathForText(folded(identifier), Kind::flatpakID, Kind::flatpakID);
}

std::optional<std::string> EntryTable::pathForName(std::string_view name) const {
    return pathForText(name, Kind::name, Kind::fileName);
}

std::optional<std::string> EntryTable::pathForText(std::string_view text, Kind first,
                                                   Kind last) const {
    std::vector<Text> candidates;
    for (const Text& candidate : std::ranges::equal_range(texts_, hashOf(text), {}, &Text::hash)) {
        if (candidate.kind >= first && candidate.kind <= last) {
            candidates.push_back(candidate);
        }
    }
    std::ranges::sort(candidates, [&](const Text& left, const Text& right) {
        const Entry& leftEntry = entries_[left.entry];
        const Entry& rightEntry = entries_[right.entry];
        return std::tie(left.kind, leftEntry.folder, leftEntry.place) <
               std::tie(right.kind, rightEntry.folder, rightEntry.place);
    });
    const auto has = [&](const DesktopEntry& content, const Text& candidate) {
        switch (candidate.kind) {
        case Kind::flatpakID:
            return folded(content.flatpakID) == text;
        case Kind::name:
            return content.name == text;
        case Kind::localizedName:
            return std::ranges::find(content.localizedNames, text, [](const auto& pair) {
                       return std::string_view(pair.second);
                   }) != content.localizedNames.end();
        case Kind::fileName:
            return fileNameOf(entries_[candidate.entry].place) == text;
        }
        return false;
    };
    for (const Text& candidate : candidates) {
        std::string path = pathOf(entries_[candidate.entry]);
        const auto content = contentsAt(path);
        if (content && has(*content, candidate) && isInstalled(*content)) {
            return path;
        }
    }
    return std::nullopt;
}

std::vector<InstalledApplication> EntryTable::applications() const {
    std::vector<InstalledApplication> applications;
    for (std::size_t index = 0; index < entries_.size(); ++index) {
        if (isShadowed(index)) {
            continue;
        }
        std::string path = pathOf(entries_[index]);
        const auto content = contentsAt(path);
        if (content && isInstalled(*content)) {
            applications.push_back(
                {spelledIdentifierOf(entries_[index]), content->name, std::move(path)});
        }
    }
    return applications;
}

} // namespace qv
