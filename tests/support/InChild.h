#pragma once

#include <functional>
#include <grp.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

namespace qv::test {

/// The result of a function that runs in a forked child, 0 to 255; -1 if the child was killed.
inline int inChild(const std::function<int()>& function) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(function());
    }
    int status = 0;
    return ::waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// The same as this user without groups and privileges; 250 if the child cannot become that user.
inline int inChildAs(uid_t user, const std::function<int()>& function) {
    return inChild([&] {
        const bool dropped =
            ::setgroups(0, nullptr) == 0 && ::setgid(user) == 0 && ::setuid(user) == 0;
        return dropped ? function() : 250;
    });
}

} // namespace qv::test
