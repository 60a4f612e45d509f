#include "ServiceThread.h"

#include "support/StartedProgram.h"

#include <future>
#include <sys/epoll.h>
#include <sys/eventfd.h>

namespace qv::xpc::test {

ServiceThread::ServiceThread(Behaviour behaviour)
    : behaviour_(std::move(behaviour)), wake_(::eventfd(0, EFD_CLOEXEC)) {
    std::promise<void> ready;
    thread_ = std::thread([&] {
        queue_ = MainQueue::create().value();
        Descriptor socket = qv::test::listenAt(path());
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

std::vector<ConnectionError> ServiceThread::waitForErrors(std::size_t count) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, qv::test::kPatience, [&] { return errors_.size() >= count; });
    return errors_;
}

std::size_t ServiceThread::waitFor(const std::size_t& counter, std::size_t count) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, qv::test::kPatience, [&] { return counter >= count; });
    return counter;
}

} // namespace qv::xpc::test
