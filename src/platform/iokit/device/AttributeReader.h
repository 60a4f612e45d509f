#pragma once

#include "platform/foundation/os/Deadline.h"
#include "platform/iokit/device/DeviceFolder.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace qv {

/// Reads attributes although a driver may never answer. A job is done by another thread. A process
/// reads all files of a device as fast, but each question that only follows from an answer takes it
/// a third of that time again, and to fork a program takes 5 ms for every 100 MB that the program
/// has touched. A thread that one attribute holds for longer than kPatience is left behind, and the
/// job is done again without that attribute. For several threads at once.
class AttributeReader {
public:
    static constexpr std::chrono::milliseconds kPatience{400}; ///< the time for one attribute
    static constexpr std::chrono::milliseconds kLongestJob{1500};
    static constexpr std::size_t kMostLeft =
        8; ///< threads; beyond that no job is done, logged once

    class Session;
    /// Owns all that it uses, because it may go on after it was given up.
    using Job = std::function<void(Session&)>;

    AttributeReader() = default;
    AttributeReader(const AttributeReader&) = delete;
    AttributeReader(AttributeReader&&) = delete;
    AttributeReader& operator=(const AttributeReader&) = delete;
    AttributeReader& operator=(AttributeReader&&) = delete;
    ~AttributeReader();

    /// `makeJob` makes a job for each attempt, with results of its own. Returns true if the last
    /// one that was made has run to its end.
    bool perform(const std::function<Job()>& makeJob);

    /// Reads one attribute alone.
    [[nodiscard]] std::optional<std::string> read(std::shared_ptr<const DeviceFolder> folder,
                                                  const std::string& name);

private:
    using Attribute = std::pair<std::uint64_t, std::string>; // the inode of its device; its name
    struct Task;
    struct Worker;
    [[nodiscard]] std::shared_ptr<Worker> takeWorker(); ///< null: no thread can be started
    void giveBack(std::shared_ptr<Worker> worker);
    [[nodiscard]] std::vector<Attribute> attributesThatHold();
    void logRefusal(std::string_view cause);

    std::mutex mutex_;
    std::shared_ptr<Worker> idle_; // at most one
    std::vector<std::shared_ptr<Task>> left_;
    std::atomic<bool> refusalIsLogged_ = false;
};

/// The calls through which a job reads and writes.
class AttributeReader::Session {
public:
    explicit Session(Task& task) noexcept : task_(task) {}
    /// Reads as DeviceFolder does; none also for an attribute that holds another thread, and for
    /// every one when the job has taken too long.
    [[nodiscard]] std::optional<std::string> read(const DeviceFolder& folder,
                                                  std::string_view name);
    /// Gives 0 or the errno; ETIMEDOUT where `read` gives none.
    [[nodiscard]] int write(const DeviceFolder& folder, std::string_view name,
                            std::string_view bytes);

private:
    [[nodiscard]] bool begin(const DeviceFolder& folder, std::string_view name);
    void end();
    Task& task_;
};

} // namespace qv
