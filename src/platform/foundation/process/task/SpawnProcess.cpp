#include "platform/foundation/process/task/SpawnProcess.h"

#include <csignal>
#include <cstring>
#include <spawn.h>
#include <unistd.h>

namespace qv {

namespace {

class SpawnActions {
public:
    SpawnActions() : status_(::posix_spawn_file_actions_init(&actions_)) {}
    SpawnActions(const SpawnActions&) = delete;
    SpawnActions& operator=(const SpawnActions&) = delete;
    SpawnActions(SpawnActions&&) = delete;
    SpawnActions& operator=(SpawnActions&&) = delete;
    ~SpawnActions() { ::posix_spawn_file_actions_destroy(&actions_); }

    /// Returns 0 or the errno: a descriptor may lie above the limit of open files.
    int fill(const SpawnRequest& request) {
        for (std::size_t i = 0; i < request.standard.size() && status_ == 0; ++i) {
            if (request.standard[i] >= 0) {
                status_ = ::posix_spawn_file_actions_adddup2(&actions_, request.standard[i],
                                                             static_cast<int>(i));
            }
        }
        if (status_ == 0) {
            status_ = ::posix_spawn_file_actions_addclosefrom_np(&actions_, kFirstPrivateFd);
        }
        if (status_ == 0) {
            status_ = ::posix_spawn_file_actions_addchdir_np(&actions_, request.directory.c_str());
        }
        return status_;
    }
    [[nodiscard]] const posix_spawn_file_actions_t* get() const { return &actions_; }

private:
    posix_spawn_file_actions_t actions_{};
    int status_;
};

class SpawnAttributes {
public:
    SpawnAttributes() : status_(::posix_spawnattr_init(&attributes_)) {}
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;
    SpawnAttributes(SpawnAttributes&&) = delete;
    SpawnAttributes& operator=(SpawnAttributes&&) = delete;
    ~SpawnAttributes() { ::posix_spawnattr_destroy(&attributes_); }

    /// Returns 0 or the errno.
    int fill(SpawnRequest::Leads leads) {
        sigset_t none{};
        ::sigemptyset(&none);
        // The set holds really all signals: sigfillset leaves out the C library's own two, which a
        // spawn leaves ignored then.
        sigset_t all{};
        std::memset(&all, 0xFF, sizeof(all));
        const auto flags = static_cast<short>(
            POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF |
            (leads == SpawnRequest::Leads::session ? POSIX_SPAWN_SETSID : POSIX_SPAWN_SETPGROUP));
        for (const int each : {status_, ::posix_spawnattr_setsigmask(&attributes_, &none),
                               ::posix_spawnattr_setsigdefault(&attributes_, &all),
                               ::posix_spawnattr_setpgroup(&attributes_, 0),
                               ::posix_spawnattr_setflags(&attributes_, flags)}) {
            if (each != 0) {
                return each;
            }
        }
        return 0;
    }
    [[nodiscard]] const posix_spawnattr_t* get() const { return &attributes_; }

private:
    posix_spawnattr_t attributes_{};
    int status_;
};

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> list;
    list.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        list.push_back(text.data());
    }
    list.push_back(nullptr);
    return list;
}

} // namespace

tl::expected<pid_t, SpawnFailure> spawnProcess(SpawnRequest request) {
    SpawnActions actions;
    SpawnAttributes attributes;
    if (const int status = actions.fill(request); status != 0) {
        return tl::unexpected(SpawnFailure{SpawnFailure::While::preparing, status});
    }
    if (const int status = attributes.fill(request.leads); status != 0) {
        return tl::unexpected(SpawnFailure{SpawnFailure::While::preparing, status});
    }
    pid_t pid = 0;
    const int status =
        ::posix_spawn(&pid, request.program.c_str(), actions.get(), attributes.get(),
                      pointers(request.words).data(), pointers(request.environment).data());
    if (status != 0) {
        return tl::unexpected(SpawnFailure{SpawnFailure::While::executing, status});
    }
    return pid;
}

} // namespace qv
