#include "ServiceThread.h"

#include <chrono>
#include <cstring>
#include <filesystem>
#include <future>
#include <iterator>
#include <stdexcept>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace qv::xpc::test {

namespace {
constexpr std::chrono::seconds kPatience{60};
}

Descriptor listeningSocket(const std::string& path) {
    Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    if (::bind(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(socket.get(), SOMAXCONN) != 0) {
        throw std::runtime_error("no listening socket at " + path);
    }
    return socket;
}

ServiceThread::ServiceThread(Behaviour behaviour)
    : behaviour_(std::move(behaviour)), wake_(::eventfd(0, EFD_CLOEXEC)) {
    std::promise<void> ready;
    thread_ = std::thread([&] {
        queue_ = MainQueue::create().value();
        Descriptor socket = listeningSocket(path());
        if (behaviour_.beforeStart) {
            behaviour_.beforeStart(path());
        }
        listener_ = Listener::withSocket(std::move(socket), *queue_, behaviour_.limits).value();
        ready.set_value();
        run();
    });
    ready.get_future().wait();
}

ServiceThread::~ServiceThread() {
    perform([this] { queue_->exit(0); });
    thread_.join();
}

void ServiceThread::run() {
    listener_->setEventHandler([this](const std::shared_ptr<Connection>& connection) {
        {
            const std::scoped_lock lock(mutex_);
            ++connections_;
        }
        changed_.notify_all();
        if (behaviour_.onConnection) {
            behaviour_.onConnection(*this, connection);
        } else {
            acceptAndServe(connection);
        }
    });
    if (behaviour_.accepting) {
        listener_->resume();
    }
    const EventSource orders =
        queue_->watch(wake_.get(), EPOLLIN, [this](std::uint32_t) { obey(); }).value();
    static_cast<void>(queue_->run());
    listener_.reset();
}

void ServiceThread::perform(const std::function<void()>& work) {
    std::promise<void> done;
    {
        const std::scoped_lock lock(mutex_);
        order_ = [&] {
            work();
            done.set_value();
        };
    }
    ::eventfd_write(wake_.get(), 1);
    done.get_future().wait();
}

void ServiceThread::obey() {
    eventfd_t ignored = 0;
    ::eventfd_read(wake_.get(), &ignored);
    std::unique_lock lock(mutex_);
    const std::function<void()> order = std::move(order_);
    lock.unlock();
    order();
}

void ServiceThread::acceptAndServe(const std::shared_ptr<Connection>& connection) {
    connection->setEventHandler([this](const Event& event) {
        record(event);
        const auto* message = std::get_if<Message>(&event);
        if (message == nullptr) {
            return;
        }
        if (behaviour_.onMessage) {
            behaviour_.onMessage(*this, *message);
        } else {
            echo(*message);
        }
    });
    connection->resume();
}

void ServiceThread::echo(const Message& message) {
    if (const auto connection = message.remoteConnection()) {
        if (const auto reply = connection->createReply(message)) {
            connection->send(*reply, message.dictionary());
        }
    }
}

void ServiceThread::record(const Event& event) {
    {
        const std::scoped_lock lock(mutex_);
        if (const auto* error = std::get_if<ConnectionError>(&event)) {
            errors_.push_back(*error);
        } else {
            ++messages_;
        }
    }
    changed_.notify_all();
}

template <typename Condition> void ServiceThread::waitUntil(const Condition& condition) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, kPatience, condition);
}

std::vector<ConnectionError> ServiceThread::waitForErrors(std::size_t count) {
    waitUntil([&] { return errors_.size() >= count; });
    const std::scoped_lock lock(mutex_);
    return errors_;
}

std::size_t ServiceThread::waitForMessages(std::size_t count) {
    waitUntil([&] { return messages_ >= count; });
    const std::scoped_lock lock(mutex_);
    return messages_;
}

std::size_t ServiceThread::waitForConnections(std::size_t count) {
    waitUntil([&] { return connections_ >= count; });
    const std::scoped_lock lock(mutex_);
    return connections_;
}

std::size_t descriptorCount() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(descriptors), end(descriptors)));
}

} // namespace qv::xpc::test
