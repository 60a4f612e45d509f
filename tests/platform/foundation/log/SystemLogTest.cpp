#include "platform/foundation/log/Log.h"
#include "support/InChild.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <fcntl.h>
#include <sched.h>
#include <string>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace qv {
namespace {

constexpr int kNoNamespace = 77;

// Gives this process a /dev of its own with a system log that we read.
int privateSystemLog() {
    if (::unshare(CLONE_NEWNS) != 0 ||
        ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("tmpfs", "/dev", "tmpfs", 0, nullptr) != 0) {
        return -1;
    }
    const int listener = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (listener < 0) {
        return -1;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string_view("/dev/log").copy(&address.sun_path[0], sizeof(address.sun_path) - 1);
    const auto* generic = reinterpret_cast<const sockaddr*>(&address);
    return ::bind(listener, generic, sizeof(address)) == 0 ? listener : -1;
}

std::vector<std::string> datagrams(int listener) {
    std::vector<std::string> records;
    std::array<char, 8192> buffer{};
    ssize_t size = 0;
    while ((size = ::recv(listener, buffer.data(), buffer.size(), 0)) >= 0) {
        records.emplace_back(buffer.data(), static_cast<std::size_t>(size));
    }
    return records;
}

// A standard error that looks like the journal's stream, which would show each record twice.
int journalAsStandardError() {
    const int stream = ::memfd_create("stderr", MFD_CLOEXEC);
    struct stat info{};
    if (stream < 0 || ::fstat(stream, &info) != 0 || ::dup2(stream, STDERR_FILENO) < 0) {
        return -1;
    }
    const std::string name = std::to_string(info.st_dev) + ":" + std::to_string(info.st_ino);
    // NOLINTNEXTLINE(concurrency-mt-unsafe): the child has one thread
    return ::setenv("JOURNAL_STREAM", name.c_str(), 1) == 0 ? stream : -1;
}

// Runs in a child: 0 when every record is as it must be, else the number of the check that failed.
int checkRecords() {
    const int listener = privateSystemLog();
    if (listener < 0) {
        return kNoNamespace;
    }
    const int stream = journalAsStandardError();
    if (stream < 0) {
        return 6;
    }
    log::open("demo", log::Destination::systemLog);
    log::write(log::Priority::error, "%s%n%s%n");
    log::NSLog("forged\n<0>Jan  1 00:00:00 root: all is well\x1b[2J");
    log::NSLog(std::string(std::size_t{64} << 10U, '\n'));
    const std::vector<std::string> records = datagrams(listener);
    if (records.size() != 3) {
        return 1;
    }
    if (!records[0].starts_with("<27>") || !records[0].ends_with("]: %s%n%s%n")) {
        return 2; // facility daemon (3), priority error (3)
    }
    if (!records[1].starts_with("<29>") ||
        !records[1].ends_with(R"(]: forged\x0a<0>Jan  1 00:00:00 root: all is well\x1b[2J)")) {
        return 3;
    }
    if (records[2].size() > 2200 || !records[2].ends_with(R"(\x0a...)")) {
        return 4;
    }
    return ::lseek(stream, 0, SEEK_END) == 0 ? 0 : 5;
}

// The call that takes a format: a text with directives must not be one, a line end must not begin
// a record of its own.
TEST(SystemLog, RecordsAreTextAndNeverFormats) {
    const int outcome = test::inChild(checkRecords);
    if (outcome == kNoNamespace) {
        GTEST_SKIP() << "a mount namespace of its own needs root";
    }
    EXPECT_EQ(outcome, 0);
}

} // namespace
} // namespace qv
