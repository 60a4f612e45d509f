#include "support/LiveService.h"

#include "support/BuildFolder.h"

#include <cerrno>
#include <fstream>
#include <iterator>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace qv::test {

namespace {

constexpr std::size_t kLongestLine = 8192;
constexpr std::string_view kServiceName = "com.larkwen.qvcatalog.helper";

std::size_t linesWith(std::string_view log, std::string_view text) {
    std::size_t count = 0;
    for (std::size_t place = log.find(text); place != std::string_view::npos;
         place = log.find(text, log.find('\n', place))) {
        ++count;
    }
    return count;
}

} // namespace

LiveService::LiveService(Listener listener)
    : LiveService(listener,
                  {.command = {built("bin/QVCatalogHelperXPC")},
                   // A sanitizer that keeps freed memory would hide what the service itself holds.
                   .environment = {"ASAN_OPTIONS=quarantine_size_mb=1"}}) {}

LiveService::LiveService(std::string program, std::vector<std::string> environment)
    : LiveService(Listener::handedOver,
                  {.command = {std::move(program)}, .environment = std::move(environment)}) {}

LiveService::LiveService(Listener listener, ProgramStart start) {
    Descriptor socket = listener == Listener::notListening
                            ? Descriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
                            : listenAt(socketPath());
    letAnybodyConnect();
    examinerSocket_ = listenAt(home_ / "examiner.sock");
    examiner_ = std::make_unique<StartedProgram>(
        ProgramStart{.command = {built("bin/QVCatalogExaminer")},
                     .standard = {-1, printed_.write.get(), printed_.write.get()},
                     .listener = examinerSocket_.get(),
                     .listenerName = "com.larkwen.qvcatalog.examiner"});
    start.standard = {-1, printed_.write.get(), printed_.write.get()};
    start.listener = listener != Listener::missing ? socket.get() : -1;
    start.listenerName = listener == Listener::misnamed ? "another.service" : kServiceName;
    program_ = std::make_unique<StartedProgram>(start);
    printed_.write.reset();
    collector_ = std::thread([this] { collect(); });
}

// A build folder may be closed to other users. The name by which they then find the socket is on
// the same file system.
void LiveService::letAnybodyConnect() {
    for (const TemporaryDirectory* folder : {&home_, &folder_}) {
        std::filesystem::permissions(folder->path(), std::filesystem::perms(0755));
    }
    const std::string open = folder_ / "helper.sock";
    if (::link(socketPath_.c_str(), open.c_str()) == 0) {
        socketPath_ = open;
    }
}

LiveService::~LiveService() {
    program_->kill();
    examiner_->kill();
    stop_.write.reset();
    collector_.join();
}

// Ends with the last writer, or with the owner: a tool may outlive the service.
void LiveService::collect() {
    for (;;) {
        std::array<pollfd, 2> entries{
            {{printed_.read.get(), POLLIN, 0}, {stop_.read.get(), POLLIN, 0}}};
        if (::poll(entries.data(), entries.size(), -1) < 0 && errno != EINTR) {
            return;
        }
        if (entries[0].revents == 0 && entries[1].revents != 0) {
            return;
        }
        std::array<char, 65536> piece{};
        const ssize_t count = ::read(printed_.read.get(), piece.data(), piece.size());
        if (count <= 0) {
            return;
        }
        take({piece.data(), static_cast<std::size_t>(count)});
    }
}

void LiveService::take(std::string_view piece) {
    {
        const std::scoped_lock lock(mutex_);
        bytes_ += piece.size();
        for (std::size_t end = 0; !piece.empty(); piece.remove_prefix(end)) {
            end = std::min(piece.find('\n'), piece.size() - 1) + 1;
            if (line_.size() < kLongestLine) {
                line_.append(piece.substr(0, end));
            }
            if (piece[end - 1] != '\n') {
                continue;
            }
            log_ += line_.size() < kLongestLine ? line_ : "";
            line_.clear();
        }
    }
    changed_.notify_all();
}

template <typename Condition> bool LiveService::waitUntil(const Condition& condition) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, kPatience, condition);
}

bool LiveService::waitForLog(std::string_view text, std::size_t lines) {
    return waitUntil([&] { return linesWith(log_, text) >= lines; });
}

bool LiveService::waitForPrinted(std::uint64_t bytes) {
    return waitUntil([&] { return bytes_ >= bytes; });
}

std::string LiveService::log() {
    const std::scoped_lock lock(mutex_);
    return log_;
}

std::size_t LiveService::descriptors() const {
    const std::filesystem::directory_iterator list("/proc/" + std::to_string(pid()) + "/fd");
    return static_cast<std::size_t>(std::distance(list, {}));
}

std::size_t LiveService::residentKilobytes() const {
    std::size_t pages = 0;
    std::ifstream("/proc/" + std::to_string(pid()) + "/statm") >> pages >> pages;
    return pages * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)) / 1024;
}

} // namespace qv::test
