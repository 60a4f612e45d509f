#include "platform/accessibility/TrustStore.h"

#include "platform/accessibility/HeldProgram.h"
#include "platform/accessibility/TrustFile.h"
#include "platform/foundation/configuration/Configuration.h"
#include "platform/foundation/log/Log.h"
#include "platform/foundation/values/UTF8.h"

#include <fmt/core.h>

#include <filesystem>
#include <unistd.h>
#include <utility>

namespace qv {

namespace {

namespace fs = std::filesystem;

// A path without the links that there are, whether or not anything is at its end; the path itself
// if that cannot be told.
std::string resolved(const std::string& path) {
    std::error_code error;
    const fs::path whole = fs::absolute(path, error);
    const fs::path real = error ? fs::path() : fs::weakly_canonical(whole, error);
    return error ? path : real.native();
}

tl::expected<TrustVerdict, Error> compare(const TrustList& list, const HeldProgram& program) {
    constexpr std::string_view kDeleted = " (deleted)"; // as the kernel marks a path
    const std::string_view path = program.path;
    const auto entry = list.find(path);
    if (entry != list.end()) {
        return program.digest().map([&](const SHA256Digest& digest) {
            const bool isSame = digest == entry->second.digest;
            return TrustVerdict{isSame, program.path,
                                isSame ? "trusted"
                                       : "the file has changed since trust was granted"};
        });
    }
    if (path.ends_with(kDeleted) && list.contains(path.substr(0, path.size() - kDeleted.size()))) {
        return TrustVerdict{false, program.path,
                            "the file was replaced or removed since the process started"};
    }
    return TrustVerdict{false, program.path, "trust was never granted"};
}

} // namespace

std::string TrustStore::defaultFolder() { return std::string(configuration::kStateFolder); }

TrustStore::TrustStore(std::string folder, std::optional<uid_t> requester,
                       std::chrono::milliseconds patience)
    : folder_(std::move(folder)), requester_(requester), patience_(patience) {}

AXError TrustStore::makeProcessTrusted(const std::string& path) {
    const Error error = grant(path);
    if (!error) {
        return kAXErrorSuccess;
    }
    // The caller is told a number only.
    log::NSLog("Trust not granted: " + error.localizedDescription());
    return static_cast<AXError>(error.code());
}

Error TrustStore::grant(const std::string& path) {
    if (::geteuid() != 0) {
        return accessibilityError(kAXErrorAPIDisabled, path, "only root can grant trust");
    }
    const auto program = HeldProgram::at(path);
    if (!program) {
        return program.error();
    }
    if (!isUTF8(program->path)) { // the store's keys are text
        return accessibilityError(kAXErrorFailure, path, "its path is not UTF-8");
    }
    const auto digest = program->digest();
    if (!digest) {
        return digest.error();
    }
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return changeTrustList(folder_, patience_, [&](TrustList& list) {
        list.insert_or_assign(
            program->path,
            TrustedProgram{.digest = *digest,
                           .granted = std::chrono::floor<std::chrono::seconds>(now).count(),
                           .requester = requester_});
        return true;
    });
}

tl::expected<bool, Error> TrustStore::revoke(const std::string& path) {
    if (::geteuid() != 0) {
        return tl::unexpected(
            accessibilityError(kAXErrorAPIDisabled, path, "only root can revoke trust"));
    }
    bool revoked = false;
    if (Error error = changeTrustList(folder_, patience_, [&](TrustList& list) {
            revoked = list.erase(path) != 0 || list.erase(resolved(path)) != 0;
            return revoked;
        })) {
        return tl::unexpected(std::move(error));
    }
    return revoked;
}

tl::expected<TrustList, Error> TrustStore::list() const { return loadTrustList(folder_); }

tl::expected<TrustVerdict, Error> TrustStore::check(const std::string& path) const {
    return judge(HeldProgram::at(path), path);
}

tl::expected<TrustVerdict, Error> TrustStore::checkProcess(pid_t process) const {
    return judge(HeldProgram::executedBy(process), {});
}

// `place`: a path that led to the program, if one was given.
tl::expected<TrustVerdict, Error> TrustStore::judge(const tl::expected<HeldProgram, Error>& program,
                                                    const std::string& place) const {
    const auto list = this->list();
    if (!list) {
        return tl::unexpected(list.error());
    }
    if (program) {
        return compare(*list, *program);
    }
    if (program.error().code() != kAXErrorIllegalArgument) {
        return tl::unexpected(program.error());
    }
    const Value info = program.error().userInfo();
    std::string cause(info.find(error_key::kLocalizedFailureReason)->asString());
    const auto entry = list->find(resolved(place));
    if (entry == list->end()) {
        return TrustVerdict{false, place, std::move(cause)};
    }
    return TrustVerdict{
        false, entry->first,
        fmt::format("it is no longer the file that trust was granted to: {}", cause)};
}

} // namespace qv
