#include "platform/foundation/os/Descriptor.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <utility>

namespace qv {
namespace {

Descriptor openNull() { return Descriptor(::open("/dev/null", O_RDONLY | O_CLOEXEC)); }
bool isOpen(int fd) { return ::fcntl(fd, F_GETFD) >= 0; }

TEST(Descriptor, ClosesWhatItOwnedExactlyWhenItLetsGo) {
    Descriptor first = openNull();
    Descriptor second = openNull();
    const int firstNumber = first.get();
    const int secondNumber = second.get();
    first = std::move(second);
    EXPECT_FALSE(isOpen(firstNumber)) << "the descriptor that was replaced leaks";
    EXPECT_TRUE(isOpen(secondNumber));
    const Descriptor owner(first.release());
    EXPECT_FALSE(first);
    first.reset();
    EXPECT_TRUE(isOpen(secondNumber)) << "closed although it had been released";
}

TEST(Descriptor, KeepsErrnoOfTheFailureThatIsBeingHandled) {
    errno = ENOTDIR;
    {
        const Descriptor invalidNumber(1 << 20);
    }
    EXPECT_EQ(errno, ENOTDIR);
}

} // namespace
} // namespace qv
