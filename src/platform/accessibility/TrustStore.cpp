#include "platform/accessibility/TrustStore.h"

#include "platform/accessibility/AccessibilityError.h"
#include "platform/accessibility/ExecutableFile.h"
#include "platform/accessibility/ExecutingProcess.h"
#include "platform/accessibility/TrustFolder.h"
#include "platform/foundation/log/Log.h"
#include "platform/foundation/values/UTF8.h"

#include <fmt/core.h>

#include <filesystem>
#include <unistd.h>
#include <utility>

namespace qv {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kDeleted = " (deleted)"; // as the kernel marks a path
constexpr std::string_view kNever = "trust was never granted";

bool isIllegalArgument(const Error& error) { return error.code() == kAXErrorIllegalArgument; }

std::string causeOf(const Error& error) {
    const Value info = error.userInfo();
    return std::string(info.find(error_key::kLocalizedFailureReason)->asString());
}

// A path without the links that there are, whether or not anything is at its end; itself where
// that cannot be told.
std::string resolved(const std::string& path) {
    std::error_code error;
    const fs::path whole = fs::absolute(path, error);
    const fs::path real = error ? fs::path() : fs::weakly_canonical(whole, error);
    return error ? path : real.native();
}

tl::expected<TrustVerdict, Error> compare(const TrustedProgram& program,
                                          const ExecutableFile& file) {
    bool same = program.settled && program.file == file.key();
    if (!same && program.file.size == file.key().size) {
        const auto digest = file.digest();
        if (!digest) {
            return tl::unexpected(digest.error());
        }
        same = *digest == program.digest;
    }
    return same ? TrustVerdict{Trust::granted, file.path(), "trusted"}
                : TrustVerdict{Trust::changed, file.path(),
                               "the file has changed since trust was granted"};
}

// Of a path at which there is nothing to compare with.
TrustVerdict verdictWithoutFile(const TrustList& list, const std::string& path,
                                const std::string& why) {
    const auto entry = list.find(resolved(path));
    if (entry == list.end()) {
        return {Trust::neverGranted, path, why};
    }
    return {Trust::changed, entry->first,
            fmt::format("it is no longer the file that trust was granted to: {}", why)};
}

tl::expected<TrustVerdict, Error> judge(const TrustList& list, const ExecutableFile& file) {
    if (const auto entry = list.find(file.path()); entry != list.end()) {
        return compare(entry->second, file);
    }
    const std::string_view path = file.path();
    if (path.ends_with(kDeleted) && list.contains(path.substr(0, path.size() - kDeleted.size()))) {
        return TrustVerdict{Trust::changed, file.path(),
                            "the file was replaced or removed since the process started"};
    }
    return TrustVerdict{Trust::neverGranted, file.path(), std::string(kNever)};
}

} // namespace

std::string TrustStore::defaultFolder() { return QV_STATE_DIR; }

TrustStore::TrustStore(std::string folder, std::optional<uid_t> requester,
                       std::chrono::milliseconds patience)
    : folder_(std::move(folder)), requester_(requester), patience_(patience) {}

AXError TrustStore::makeProcessTrusted(const std::string& path) {
    const auto granted = grant(path);
    if (granted) {
        return kAXErrorSuccess;
    }
    // Who asked is told a number only.
    log::NSLog("Trust not granted: " + granted.error().localizedDescription());
    return static_cast<AXError>(granted.error().code());
}

tl::expected<TrustedProgram, Error> TrustStore::grant(const std::string& path) {
    if (::geteuid() != 0) {
        return tl::unexpected(
            accessibilityError(kAXErrorAPIDisabled, path, "only root can grant trust"));
    }
    const auto file = ExecutableFile::at(path);
    if (!file) {
        return tl::unexpected(file.error());
    }
    if (!isUTF8(file->path())) { // the store's keys are text
        return tl::unexpected(accessibilityError(kAXErrorFailure, path, "its path is not UTF-8"));
    }
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto content = file->contentMark(std::chrono::nanoseconds(now).count());
    if (!content) {
        return tl::unexpected(content.error());
    }
    TrustedProgram program{.path = file->path(),
                           .file = file->key(),
                           .settled = content->settled,
                           .digest = content->digest,
                           .granted = std::chrono::floor<std::chrono::seconds>(now).count(),
                           .requester = requester_};
    Error error = change([&](TrustList& list) {
        list.insert_or_assign(program.path, program);
        return true;
    });
    if (error) {
        return tl::unexpected(std::move(error));
    }
    return program;
}

tl::expected<bool, Error> TrustStore::revoke(const std::string& path) {
    if (::geteuid() != 0) {
        return tl::unexpected(
            accessibilityError(kAXErrorAPIDisabled, path, "only root can revoke trust"));
    }
    const auto list = load();
    if (!list) {
        return tl::unexpected(list.error());
    }
    if (list->empty()) { // nor need there be a folder
        return false;
    }
    bool revoked = false;
    Error error = change([&](TrustList& current) {
        revoked = current.erase(path) != 0 || current.erase(resolved(path)) != 0;
        return revoked;
    });
    if (error) {
        return tl::unexpected(std::move(error));
    }
    return revoked;
}

tl::expected<std::vector<TrustedProgram>, Error> TrustStore::list() const {
    return load().map([](const TrustList& list) {
        std::vector<TrustedProgram> programs;
        programs.reserve(list.size());
        for (const auto& [path, program] : list) {
            programs.push_back(program);
        }
        return programs;
    });
}

tl::expected<TrustVerdict, Error> TrustStore::check(const std::string& path) const {
    const auto list = load();
    if (!list) {
        return tl::unexpected(list.error());
    }
    const auto file = ExecutableFile::at(path);
    if (file) {
        return judge(*list, *file);
    }
    if (isIllegalArgument(file.error())) {
        return verdictWithoutFile(*list, path, causeOf(file.error()));
    }
    return tl::unexpected(file.error());
}

tl::expected<TrustVerdict, Error> TrustStore::checkProcess(pid_t process) const {
    const auto list = load();
    if (!list) {
        return tl::unexpected(list.error());
    }
    const auto found = ExecutingProcess::find(process);
    const auto file = found.and_then([](const ExecutingProcess& one) { return one.executable(); });
    if (!file) {
        if (isIllegalArgument(file.error())) {
            return TrustVerdict{Trust::neverGranted, {}, causeOf(file.error())};
        }
        return tl::unexpected(file.error());
    }
    auto verdict = judge(*list, *file);
    if (verdict && verdict->trust == Trust::granted && !found->stillExecutes(*file)) {
        return tl::unexpected(
            accessibilityError(kAXErrorFailure, fmt::format("process {}", process),
                               "has ended, or executed something else, while it was looked at"));
    }
    return verdict;
}

tl::expected<TrustList, Error> TrustStore::load() const {
    const auto folder = TrustFolder::find(folder_);
    if (!folder) {
        return tl::unexpected(folder.error());
    }
    const std::optional<TrustFolder>& found = *folder;
    return found ? found->load() : TrustList();
}

// `change` says whether there is anything to be saved.
Error TrustStore::change(const std::function<bool(TrustList&)>& change) const {
    const auto folder = TrustFolder::make(folder_);
    if (!folder) {
        return folder.error();
    }
    const auto lock = folder->lock(patience_);
    if (!lock) {
        return lock.error();
    }
    auto list = folder->load();
    if (!list) {
        return list.error();
    }
    return change(*list) ? folder->save(*list) : Error();
}

} // namespace qv
