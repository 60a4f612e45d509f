#include "platform/foundation/files/item/ChangeMode.h"
#include "platform/foundation/files/item/NamedItem.h"
#include "platform/foundation/files/walk/TreeWalk.h"
#include "platform/foundation/log/Log.h"
#include "script/ScriptEngine.h"
#include "script/operations/Fields.h"

#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qv {

namespace {

/// One kind of change, applied to an item that is held, or by name below a folder.
class Change {
public:
    Change() = default;
    Change(const Change&) = delete;
    Change& operator=(const Change&) = delete;
    Change(Change&&) = delete;
    Change& operator=(Change&&) = delete;
    virtual ~Change() = default;

    [[nodiscard]] virtual std::string_view name() const = 0;
    /// Whether the held item is what the change would make of it.
    [[nodiscard]] virtual bool isSo(int heldItem) const = 0;
    // Each function returns what the system call behind it returns.
    [[nodiscard]] virtual int apply(int heldItem) const = 0;
    /// An item that was not a link when it was listed is not followed if it has become one since.
    [[nodiscard]] virtual int applyNotFollowing(int parentFd, const char* item) const = 0;
    /// The same change to one descendant as an operation of its own.
    virtual Error asOperation(QVCatalogScript& script, const URL& item) const = 0;
};

class OwnershipChange final : public Change {
public:
    OwnershipChange(std::uint32_t userID, std::uint32_t groupID)
        : userID_(userID), groupID_(groupID) {}

    [[nodiscard]] std::string_view name() const override { return "chown"; }
    [[nodiscard]] bool isSo(int heldItem) const override {
        return isSo(heldItem, "", AT_EMPTY_PATH);
    }
    [[nodiscard]] int apply(int heldItem) const override {
        return applyTo(heldItem, "", AT_EMPTY_PATH);
    }
    [[nodiscard]] int applyNotFollowing(int parentFd, const char* item) const override {
        return applyTo(parentFd, item, AT_SYMLINK_NOFOLLOW);
    }
    Error asOperation(QVCatalogScript& script, const URL& item) const override {
        return script.changeOwnershipOfItem(item, userID_, groupID_, false);
    }

private:
    // The kernel would take set-ID bits and capabilities from an item that belongs to both already.
    [[nodiscard]] int applyTo(int folder, const char* name, int flags) const {
        return isSo(folder, name, flags) ? 0 : ::fchownat(folder, name, userID_, groupID_, flags);
    }
    [[nodiscard]] bool isSo(int folder, const char* name, int flags) const {
        struct stat info{};
        return ::fstatat(folder, name, &info, flags | AT_NO_AUTOMOUNT) == 0 &&
               (userID_ == kUnchanged || info.st_uid == userID_) &&
               (groupID_ == kUnchanged || info.st_gid == groupID_);
    }

    static constexpr std::uint32_t kUnchanged = 0xFFFFFFFF; // chown(2) leaves this one alone
    uid_t userID_;
    gid_t groupID_;
};

class ModeChange final : public Change {
public:
    explicit ModeChange(std::uint16_t mode) : mode_(mode) {}

    [[nodiscard]] std::string_view name() const override { return "chmod"; }
    [[nodiscard]] bool isSo(int heldItem) const override {
        constexpr unsigned kPermissions = 07777;
        struct stat info{};
        return ::fstat(heldItem, &info) == 0 &&
               (info.st_mode & kPermissions) == (mode_ & kPermissions);
    }
    [[nodiscard]] int apply(int heldItem) const override {
        return changeModeOfHeldItem(heldItem, mode_);
    }
    [[nodiscard]] int applyNotFollowing(int parentFd, const char* item) const override {
        return changeModeNotFollowing(parentFd, item, mode_);
    }
    Error asOperation(QVCatalogScript& script, const URL& item) const override {
        return script.changeModeOfItem(item, mode_, false);
    }

private:
    std::uint16_t mode_;
};

/// Applies a change to every descendant. Their errors are not reported.
class ChangeVisitor final : public TreeVisitor {
public:
    ChangeVisitor(QVCatalogScript& script, const Change& change)
        : script_(script), change_(change) {}

    void visit(const TreeEntry& entry) override {
        if (!applyTo(entry) && !script_.isPriviledged()) {
            // The change may still succeed, as an operation of its own, on the privileged side.
            static_cast<void>(change_.asOperation(script_, URL::fileURLWithPath(entry.path())));
        }
    }

    void failed(const std::string& path, const Error& error) override {
        log::NSLog(fmt::format("Error enumerating({}) {}: {} .. continuing..", change_.name(), path,
                               error.description()));
    }

private:
    [[nodiscard]] bool applyTo(const TreeEntry& entry) const {
        if (entry.type != EntryType::symbolicLink) {
            return change_.applyNotFollowing(entry.parentFd, entry.name) == 0;
        }
        const tl::expected<Descriptor, int> target =
            holdItem(entry.parentFd, entry.name, LastLink::follow);
        return target && change_.apply(target->get()) == 0;
    }

    QVCatalogScript& script_;
    const Change& change_;
};

Error lastPosixError() { return Error::posix(errno); }

// The walk is in the folder that was changed, even if the path names another one by then.
Error changeTree(QVCatalogScript& script, const std::string& path, int item, const Change& change) {
    if (change.apply(item) != 0) {
        return lastPosixError();
    }
    Descriptor folder(::openat(item, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder && errno == ENOTDIR) {
        return {};
    }
    if (!folder) {
        return Error::withDescription(kCatalogScriptErrorDomain, 0,
                                      fmt::format("{}: can't enumerate {}", change.name(), path));
    }
    ChangeVisitor visitor(script, change);
    // Without rights the visitor may come back to the script, which one thread drives at a time.
    walkTree(std::move(folder), path, visitor, script.isPriviledged() ? walkingThreads() : 1);
    return {};
}

Error changeItem(QVCatalogScript& script, const NamedItem& named, const Change& change,
                 bool recursive) {
    const tl::expected<Descriptor, Error> item = named.hold();
    if (!item) {
        return item.error();
    }
    ScriptEngine& engine = ScriptEngine::of(script);
    if (recursive) {
        engine.noted = StepOutcome::done; // unchanged items in the tree are not counted
        return changeTree(script, *named.path(), item->get(), change);
    }
    // A look costs a tenth of a change, so a script of very many changes gets only so many.
    constexpr std::size_t kMostLooks = 1000;
    const bool looks = engine.observer != nullptr && ++engine.looks <= kMostLooks;
    if (!looks) {
        engine.noted = StepOutcome::done;
    } else if (change.isSo(item->get())) {
        engine.noted = StepOutcome::unchanged;
    }
    return change.apply(item->get()) == 0 ? Error() : lastPosixError();
}

Error statItem(const NamedItem& named, struct stat& info) {
    const tl::expected<Descriptor, Error> item = named.hold();
    if (!item) {
        return item.error();
    }
    return ::fstat(item->get(), &info) == 0 ? Error() : lastPosixError();
}

} // namespace

Error QVCatalogScript::readOwnershipOfItem(const std::optional<URL>& url, std::uint32_t* userID,
                                           std::uint32_t* groupID) {
    struct stat info{};
    if (Error error = statItem(url, info)) {
        return error;
    }
    if (userID != nullptr) {
        *userID = info.st_uid;
    }
    if (groupID != nullptr) {
        *groupID = info.st_gid;
    }
    return {};
}

Error QVCatalogScript::readModeOfItem(const std::optional<URL>& url, std::uint16_t* mode) {
    struct stat info{};
    if (Error error = statItem(url, info)) {
        return error;
    }
    if (mode != nullptr) {
        *mode = static_cast<std::uint16_t>(info.st_mode);
    }
    return {};
}

Error QVCatalogScript::saveOwnerAndGroupOfURL(const std::optional<URL>& url,
                                              const std::optional<Value>& toID) {
    return engine_->perform(
        OperationCode::saveOwnerAndGroupOfURL, {url, KeyValueStorage::recordable(toID)}, [&] {
            std::uint32_t userID = 0;
            std::uint32_t groupID = 0;
            if (Error error = readOwnershipOfItem(url, &userID, &groupID)) {
                return error;
            }
            checkField(field::kSaveAs, toID);
            engine_->keyValueStorage.setObject(SavedOwner{userID, groupID}.asEntry(), *toID);
            return Error();
        });
}

Error QVCatalogScript::applyOwnerAndGroupOfURL(const std::optional<URL>& url, bool recursive,
                                               const std::optional<Value>& fromID) {
    return engine_->perform(
        OperationCode::applyOwnerAndGroupOfURL,
        {url, recursive, KeyValueStorage::recordable(fromID)}, [&] {
            const Value* saved = fromID ? engine_->keyValueStorage.objectForKey(*fromID) : nullptr;
            if (saved == nullptr) {
                return Error::withDescription(kCatalogScriptErrorDomain, 0, "saveID doesn't exist");
            }
            const SavedOwner owner = SavedOwner::from(*saved);
            return changeOwnershipOfItem(url, owner.user, owner.group, recursive);
        });
}

Error QVCatalogScript::changeOwnershipOfItem(const std::optional<URL>& url, std::uint32_t userID,
                                             std::uint32_t groupID, bool recursive) {
    return engine_->changeOwnership(url, userID, groupID, recursive);
}

Error ScriptEngine::changeOwnership(const NamedItem& item, std::uint32_t userID,
                                    std::uint32_t groupID, bool recursive) {
    return perform(
        OperationCode::changeOwnershipOfItem, {item.url(), userID, groupID, recursive},
        [&] { return changeItem(script_, item, OwnershipChange(userID, groupID), recursive); });
}

Error QVCatalogScript::changeModeOfItem(const std::optional<URL>& url, std::uint16_t toMode,
                                        bool recursive) {
    return engine_->perform(OperationCode::changeModeOfItem, {url, toMode, recursive},
                            [&] { return changeItem(*this, url, ModeChange(toMode), recursive); });
}

} // namespace qv
