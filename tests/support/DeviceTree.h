#pragma once

#include "platform/iokit/RegistryReplacement.h"
#include "support/TemporaryDirectory.h"

#include <deque>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <sys/eventfd.h>
#include <unistd.h>
#include <vector>

namespace qv::test {

/// Events that a test makes up, for every port that is opened.
class MadeUpEvents {
public:
    void send(const DeviceEvent& event) { queue(DeviceMonitor::Received::event, event); }
    void overrun() { queue(DeviceMonitor::Received::overrun, {}); }
    /// The opener for DevicePlaces.
    [[nodiscard]] std::function<std::unique_ptr<DeviceMonitor>()> opener() {
        return [this] {
            auto monitor = std::make_unique<Monitor>(std::make_shared<Queue>());
            queues_.push_back(monitor->queue);
            return monitor;
        };
    }

private:
    struct Queue {
        int descriptor = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        std::deque<std::pair<DeviceMonitor::Received, DeviceEvent>> events;
        Queue() = default;
        Queue(const Queue&) = delete;
        Queue(Queue&&) = delete;
        Queue& operator=(const Queue&) = delete;
        Queue& operator=(Queue&&) = delete;
        ~Queue() { ::close(descriptor); }
    };
    struct Monitor final : DeviceMonitor {
        explicit Monitor(std::shared_ptr<Queue> events) : queue(std::move(events)) {}
        [[nodiscard]] int descriptor() const override { return queue->descriptor; }
        [[nodiscard]] Received receive(DeviceEvent& event) override {
            eventfd_t count = 0;
            if (queue->events.empty()) {
                ::eventfd_read(queue->descriptor, &count);
                return Received::nothing;
            }
            const Received received = queue->events.front().first;
            event = queue->events.front().second;
            queue->events.pop_front();
            return received;
        }
        std::shared_ptr<Queue> queue;
    };
    void queue(DeviceMonitor::Received received, const DeviceEvent& event) {
        for (const auto& queue : queues_) {
            queue->events.emplace_back(received, event);
            ::eventfd_write(queue->descriptor, 1);
        }
    }
    std::vector<std::shared_ptr<Queue>> queues_;
};

/// A folder like the kernel's, with devices out of a dump: "P: /devices/...", then "E: KEY=value",
/// "A: attribute=text" (with \n), "H: attribute=hexadecimal", "L: link=target", "U: KEY=value" of
/// the device manager; a line without anything ends a device. In memory, where a folder that was
/// made anew is another one.
class DeviceTree {
public:
    DeviceTree() : folder_("/dev/shm") {
        for (const char* name : {"sys/devices", "sys/kernel", "udev"}) {
            std::filesystem::create_directories(folder_ / name);
        }
    }

    [[nodiscard]] DevicePlaces places() {
        return {.sysfs = sysfs(),
                .udevData = folder_ / "udev",
                .machineID = folder_ / "machine-id",
                .openMonitor = events.opener()};
    }
    [[nodiscard]] std::filesystem::path sysfs() const { return folder_ / "sys"; }
    [[nodiscard]] std::filesystem::path operator/(std::string_view path) const {
        return folder_ / "sys" / path.substr(1);
    }
    /// The dump's devices.
    void load(std::string_view dump) {
        std::string path;
        std::map<char, std::vector<std::pair<std::string, std::string>>> lines;
        const auto finish = [&] {
            if (!path.empty()) {
                write(path, lines);
            }
            path.clear();
            lines.clear();
        };
        for (std::size_t at = 0; at < dump.size();) {
            const std::size_t end = std::min(dump.find('\n', at), dump.size());
            const std::string_view line = dump.substr(at, end - at);
            at = end + 1;
            if (line.size() < 3) {
                finish();
            } else if (line[0] == 'P') {
                path = line.substr(3);
            } else {
                const std::size_t equals = line.find('=');
                lines[line[0]].emplace_back(line.substr(3, equals - 3), line.substr(equals + 1));
            }
        }
        finish();
    }
    /// Adds one more device, of a subsystem.
    void add(const std::string& path, const std::string& subsystem) {
        load("P: " + path + "\nE: SUBSYSTEM=" + subsystem + "\n");
    }
    void remove(std::string_view path) const { std::filesystem::remove_all(*this / path); }
    void set(std::string_view attribute, std::string_view text) const {
        folder_.write("sys" + std::string(attribute), text);
    }
    void setMachineID(std::string_view text) const { folder_.write("machine-id", text); }

    MadeUpEvents events;

private:
    using Lines = std::map<char, std::vector<std::pair<std::string, std::string>>>;
    void write(const std::string& path, Lines& lines) const {
        std::filesystem::create_directories(*this / path);
        const std::string folder = path + '/';
        std::string uevent;
        for (const auto& [key, value] : lines['E']) {
            if (key == "SUBSYSTEM") {
                std::filesystem::create_symlink("../bus/" + value, *this / (folder + "subsystem"));
            } else {
                uevent.append(key).append(1, '=').append(value).append(1, '\n');
            }
        }
        set(folder + "uevent", uevent);
        for (const auto& [name, text] : lines['A']) {
            std::string content;
            for (std::size_t i = 0; i < text.size(); ++i) {
                const bool escaped = text[i] == '\\' && text.substr(i, 2) == "\\n";
                content += escaped ? '\n' : text[i];
                i += escaped ? 1 : 0;
            }
            set(folder + name, content + "\n");
        }
        for (const auto& [name, digits] : lines['H']) {
            std::string bytes;
            for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
                bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
            }
            set(folder + name, bytes);
        }
        for (const auto& [name, target] : lines['L']) {
            std::filesystem::create_symlink(target, *this / (folder + name));
        }
        std::string data;
        for (const auto& [key, value] : lines['U']) {
            if (key != "FILE") {
                data.append("E:").append(key).append(1, '=').append(value).append(1, '\n');
            }
        }
        if (!data.empty()) {
            folder_.write("udev/" + lines['U'].front().second, data); // "U: FILE=b8:0" comes first
        }
    }

    TemporaryDirectory folder_;
};

} // namespace qv::test
