#pragma once

#include "platform/xpc/Listener.h"
#include "platform/xpc/MainQueue.h"
#include "support/TemporaryDirectory.h"

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace qv::xpc::test {

/// A service on a thread of its own: real loop, real listener, socket in a temporary folder. Unless
/// told otherwise it accepts everybody and answers each message with its own dictionary.
class ServiceThread {
public:
    struct Behaviour {
        Limits limits = {};
        /// Replaces the installation of handlers and the resumption.
        std::function<void(ServiceThread&, const std::shared_ptr<Connection>&)> onConnection =
            nullptr;
        /// Replaces the echo.
        std::function<void(ServiceThread&, const Message&)> onMessage = nullptr;
        /// Runs when the socket listens, but before there is a Listener.
        std::function<void(const std::string& path)> beforeStart = nullptr;
        bool accepting = true; ///< false: nobody is accepted
    };

    explicit ServiceThread(Behaviour behaviour);
    ServiceThread() : ServiceThread(Behaviour{}) {}
    ~ServiceThread();
    ServiceThread(const ServiceThread&) = delete;
    ServiceThread& operator=(const ServiceThread&) = delete;
    ServiceThread(ServiceThread&&) = delete;
    ServiceThread& operator=(ServiceThread&&) = delete;

    [[nodiscard]] std::string path() const { return directory_ / "service.sock"; }

    /// Runs `work` on the queue and waits for it.
    void perform(const std::function<void()>& work);
    /// Installs the usual handler and resumes, for onConnection.
    void acceptAndServe(const std::shared_ptr<Connection>& connection);
    static void echo(const Message& message);

    /// Waits, at most a minute, until so many have come, and returns them.
    std::vector<ConnectionError> waitForErrors(std::size_t count);
    std::size_t waitForMessages(std::size_t count) { return waitFor(messages_, count); }
    std::size_t waitForConnections(std::size_t count) { return waitFor(connections_, count); }

private:
    void run();
    void obey();
    void record(const Event& event);
    std::size_t waitFor(const std::size_t& counter, std::size_t count);

    Behaviour behaviour_;
    qv::test::TemporaryDirectory directory_;
    Descriptor wake_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::function<void()> order_;
    std::vector<ConnectionError> errors_;
    std::size_t messages_ = 0;
    std::size_t connections_ = 0;
    std::unique_ptr<MainQueue> queue_;
    std::unique_ptr<Listener> listener_;
    std::thread thread_;
};

} // namespace qv::xpc::test
