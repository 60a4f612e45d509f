#include "platform/foundation/files/UniqueFd.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <utility>

namespace qv {
namespace {

UniqueFd openNull() { return UniqueFd(::open("/dev/null", O_RDONLY | O_CLOEXEC)); }
bool isOpen(int fd) { return ::fcntl(fd, F_GETFD) >= 0; }

TEST(UniqueFd, ClosesWhatItOwnedExactlyWhenItLetsGo) {
    UniqueFd first = openNull();
    UniqueFd second = openNull();
    const int firstNumber = first.get();
    const int secondNumber = second.get();
    first = std::move(second);
    EXPECT_FALSE(isOpen(firstNumber)) << "the descriptor that was replaced leaks";
    EXPECT_TRUE(isOpen(secondNumber));
    const UniqueFd owner(first.release());
    EXPECT_FALSE(first);
    first.reset();
    EXPECT_TRUE(isOpen(secondNumber)) << "closed although it had been released";
}

TEST(UniqueFd, KeepsErrnoOfTheFailureThatIsBeingHandled) {
    errno = ENOTDIR;
    {
        const UniqueFd invalidNumber(1 << 20);
    }
    EXPECT_EQ(errno, ENOTDIR);
}

} // namespace
} // namespace qv
