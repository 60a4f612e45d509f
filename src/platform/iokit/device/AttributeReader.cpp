#include "platform/iokit/device/AttributeReader.h"

#include "platform/foundation/log/Log.h"

#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <exception>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace qv {

struct AttributeReader::Task {
    using Clock = Deadline::Clock;
    Job job;
    Deadline deadline;
    std::vector<Attribute> withoutThese;

    std::mutex mutex;
    std::condition_variable changed;
    bool done = false;
    bool succeeded = false;
    std::optional<Attribute> current; // being accessed
    Clock::time_point since;

    void run() {
        bool ended = false;
        try {
            Session session(*this);
            job(session);
            ended = true;
        } catch (const std::exception&) { // NOLINT(bugprone-empty-catch): no memory: not done
        }
        job = nullptr; // with all that it owns
        const std::scoped_lock lock(mutex);
        done = true;
        succeeded = ended;
        changed.notify_all();
    }

    // Returns false if an attribute holds the thread.
    bool wait() {
        std::unique_lock lock(mutex);
        while (!done) {
            const auto limit = (current ? since : Clock::now()) + kPatience;
            if (current && Clock::now() >= limit) {
                return false;
            }
            changed.wait_until(lock, limit);
        }
        return true;
    }
};

struct AttributeReader::Worker {
    std::mutex mutex;
    std::condition_variable changed;
    std::shared_ptr<Task> task;
    bool quits = false;
    pid_t process = ::getpid(); // a forked child is without the thread

    static void serve(const std::shared_ptr<Worker>& self) {
        for (;;) {
            std::shared_ptr<Task> task;
            {
                std::unique_lock lock(self->mutex);
                self->changed.wait(lock, [&] { return self->quits || self->task != nullptr; });
                if (self->task == nullptr) {
                    return;
                }
                task = std::move(self->task);
            }
            task->run();
        }
    }

    void give(std::shared_ptr<Task> next) {
        const std::scoped_lock lock(mutex);
        task = std::move(next);
        changed.notify_one();
    }

    void quit() {
        const std::scoped_lock lock(mutex);
        quits = true;
        changed.notify_one();
    }
};

AttributeReader::~AttributeReader() {
    if (idle_ != nullptr && idle_->process == ::getpid()) {
        idle_->quit();
    }
}

std::shared_ptr<AttributeReader::Worker> AttributeReader::takeWorker() {
    {
        const std::scoped_lock lock(mutex_);
        if (const auto worker = std::move(idle_); worker && worker->process == ::getpid()) {
            return worker;
        }
    }
    auto worker = std::make_shared<Worker>();
    // Signals are for the threads that expect them.
    sigset_t all{};
    sigset_t before{};
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    try {
        std::thread([worker] { Worker::serve(worker); }).detach();
    } catch (const std::system_error&) { // there are too many threads or processes
        worker = nullptr;
    }
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return worker;
}

void AttributeReader::giveBack(std::shared_ptr<Worker> worker) {
    const std::scoped_lock lock(mutex_);
    if (idle_ == nullptr) {
        idle_ = std::move(worker);
    } else {
        worker->quit();
    }
}

std::vector<AttributeReader::Attribute> AttributeReader::attributesThatHold() {
    const std::scoped_lock lock(mutex_);
    std::vector<Attribute> attributes;
    std::erase_if(left_, [&](const std::shared_ptr<Task>& task) {
        const std::scoped_lock taskLock(task->mutex);
        if (!task->done && task->current) {
            attributes.push_back(*task->current);
        }
        return task->done;
    });
    return attributes;
}

void AttributeReader::logRefusal(std::string_view cause) {
    if (!refusalIsLogged_.exchange(true)) {
        log::write(log::Priority::error,
                   fmt::format("no attribute of a device can be read: {}", cause));
    }
}

bool AttributeReader::perform(const std::function<Job()>& makeJob) {
    const Deadline deadline = Deadline::after(kLongestJob);
    for (;;) {
        auto held = attributesThatHold();
        if (held.size() >= kMostLeft) {
            logRefusal(fmt::format("{} drivers do not answer, one of them at \"{}\"", held.size(),
                                   log::foreign(held.front().second)));
            return false;
        }
        auto worker = takeWorker();
        if (worker == nullptr) {
            logRefusal("no thread can be started");
            return false;
        }
        auto task = std::make_shared<Task>(makeJob(), deadline, std::move(held));
        worker->give(task);
        if (task->wait()) {
            giveBack(std::move(worker));
            return task->succeeded;
        }
        worker->quit(); // the worker ends when it can
        const std::scoped_lock lock(mutex_);
        left_.push_back(std::move(task));
    }
}

std::optional<std::string> AttributeReader::read(std::shared_ptr<const DeviceFolder> folder,
                                                 const std::string& name) {
    std::shared_ptr<std::optional<std::string>> value;
    const bool done = perform([&]() -> Job {
        value = std::make_shared<std::optional<std::string>>();
        return [value, folder, name](Session& session) { *value = session.read(*folder, name); };
    });
    return done ? *value : std::nullopt;
}

bool AttributeReader::Session::begin(const DeviceFolder& folder, std::string_view name) {
    Attribute attribute(folder.inode(), name);
    if (task_.deadline.hasPassed() ||
        std::ranges::find(task_.withoutThese, attribute) != task_.withoutThese.end()) {
        return false;
    }
    const std::scoped_lock lock(task_.mutex);
    task_.current = std::move(attribute);
    task_.since = Deadline::Clock::now();
    return true;
}

void AttributeReader::Session::end() {
    const std::scoped_lock lock(task_.mutex);
    task_.current.reset();
}

std::optional<std::string> AttributeReader::Session::read(const DeviceFolder& folder,
                                                          std::string_view name) {
    if (!begin(folder, name)) {
        return std::nullopt;
    }
    auto value = folder.read(name);
    end();
    return value;
}

int AttributeReader::Session::write(const DeviceFolder& folder, std::string_view name,
                                    std::string_view bytes) {
    if (!begin(folder, name)) {
        return ETIMEDOUT;
    }
    const int result = folder.write(name, bytes);
    end();
    return result;
}

} // namespace qv
