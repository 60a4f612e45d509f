#include "platform/foundation/process/worker/UserProcesses.h"

#include <algorithm>
#include <cerrno>
#include <sys/wait.h>

namespace qv {

WorkResult UserProcesses::perform(uid_t onBehalfOf, const Work& work) {
    if (hasHanging(onBehalfOf)) {
        return tl::unexpected(Error::withDescription(kWorkerErrorDomain, EBUSY,
                                                     "an earlier worker for the user still hangs"));
    }
    std::optional<pid_t> left;
    WorkResult result = performWork(work, &left);
    if (left) {
        hanging_.push_back({.user = onBehalfOf, .process = *left});
    }
    if (!result && workerFailure(result.error()) == ETIMEDOUT) {
        noteLate(onBehalfOf);
    }
    return result;
}

bool UserProcesses::hasHanging(uid_t user) {
    std::erase_if(hanging_, [](const Hanging& each) {
        return ::waitpid(each.process, nullptr, WNOHANG) != 0; // 0: it still hangs
    });
    return std::ranges::find(hanging_, user, &Hanging::user) != hanging_.end();
}

std::chrono::milliseconds UserProcesses::patienceWith(uid_t user,
                                                      std::chrono::milliseconds usual) const {
    const bool wasLate = std::ranges::find(late_, user) != late_.end();
    return wasLate ? std::min(usual, kLeastPatience) : usual;
}

void UserProcesses::noteLate(uid_t user) {
    noteAnswer(user);
    late_.push_back(user);
    if (late_.size() > kMostLate) {
        late_.pop_front();
    }
}

void UserProcesses::noteAnswer(uid_t user) { std::erase(late_, user); }

} // namespace qv
