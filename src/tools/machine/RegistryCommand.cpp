#include "ioregistry/QVServiceQuery.h"
#include "platform/iokit/IOKit.h"
#include "platform/iokit/RegistryReplacement.h"
#include "platform/iokit/RunLoop.h"
#include "platform/iokit/device/UdevMonitor.h"
#include "tools/machine/DeviceRule.h"
#include "tools/machine/MachineCommands.h"
#include "tools/machine/RegistryDevices.h"
#include "tools/terminal/Json.h"
#include "tools/terminal/Terminal.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <utility>

namespace qv::tools {

namespace {

using Style = Terminal::Style;

void printProperties(const NamedValues& properties, const std::string& margin) {
    Terminal& out = Terminal::standardOutput();
    for (const auto& [name, value] : properties) {
        out.line(fmt::format("{}{} = {}", margin, out.styled(name, Style::plain),
                             out.styled(valueText(value), Style::plain)));
    }
}

// Prints a device by its label in the tree, by its path alone.
void printDevice(const QVIOService& service, const RegistryOptions& options,
                 std::optional<std::size_t> level) {
    Terminal& out = Terminal::standardOutput();
    const std::string margin(2 * level.value_or(0), ' ');
    const std::string name = level ? labelOf(service) : service.path().value_or(labelOf(service));
    out.line(fmt::format("{}{}  {}", margin, out.styled(name, Style::strong),
                         out.styled(classOf(service), Style::faint)));
    if (options.showProperties) {
        printProperties(sortedProperties(service), margin + "    ");
    }
}

Result list(const RegistryOptions& options, const DeviceFilter& filter) {
    Terminal& out = Terminal::standardOutput();
    std::vector<Value> json;
    bool isFound = false;
    visitDevices([&](const QVIOService& service, std::size_t level) {
        if (!filter.lets(service)) {
            return true;
        }
        isFound = true;
        if (options.json) {
            json.push_back(deviceAsValue(service, options.showProperties));
        } else {
            printDevice(service, options, filter.isEmpty() ? std::optional(level) : std::nullopt);
        }
        return out.error() == 0;
    });
    if (!isFound) {
        return nothingFound(filter);
    }
    if (options.json) {
        out.line(jsonText(Value::array(std::move(json))));
    }
    return ExitStatus::success;
}

Value arrayOf(const std::vector<std::string>& texts) {
    std::vector<Value> values;
    values.reserve(texts.size());
    for (const std::string& text : texts) {
        values.push_back(Value::string(text));
    }
    return Value::array(std::move(values));
}

Result showOne(const std::string& name, const RegistryOptions& options) {
    const auto found =
        deviceFor(name, options.sysfs.empty() ? DevicePlaces().sysfs : options.sysfs);
    if (!found) {
        return tl::unexpected(found.error());
    }
    const QVIOService& service = **found;
    const DeviceRule rule = ruleFor(service);
    Terminal& out = Terminal::standardOutput();
    if (options.json) {
        out.line(
            jsonText(Value::dictionary({{"device", deviceAsValue(service, true)},
                                        {"rule", Value::string(rule.text)},
                                        {"devicesOfRule", Value::unsignedInteger(rule.devices)},
                                        {"arguments", arrayOf(rule.arguments)}})));
        return ExitStatus::success;
    }
    const auto heading = [&](std::string_view text) { out.line(out.styled(text, Style::strong)); };
    const auto below = [&](std::string_view text) {
        out.line("  " + out.styled(text, Style::plain));
    };
    heading(fmt::format("{}  {}", labelOf(service), classOf(service)));
    below(fmt::format("path      {}", service.path().value_or("none")));
    below(fmt::format("entry ID  {}", service.uniqueID()));
    heading(rule.devices == 1
                ? std::string("Rule that holds while it is there:")
                : fmt::format("Rule that holds while one of {} alike is there:", rule.devices));
    below(rule.text);
    heading("Arguments of a rule that hold for it:");
    std::ranges::for_each(rule.arguments, below);
    if (!rule.others.empty()) {
        heading("Properties that a rule can read only, with do=propertyValue;propertyName=NAME:");
        printProperties(rule.others, "  ");
    }
    return ExitStatus::success;
}

/// Prints the devices that come and go.
class DeviceFollower final : public QVServiceQueryDelegate {
public:
    DeviceFollower(const RegistryOptions& options, DeviceFilter filter)
        : options_(options), filter_(std::move(filter)) {}

    void beginPrinting() { prints_ = true; }

    bool probeNewService(QVServiceQuery& /*serviceQuery*/,
                         const std::shared_ptr<QVIOService>& service) override {
        return filter_.lets(*service);
    }
    Error
    useNewServiceWithAttributes(QVServiceQuery& /*serviceQuery*/,
                                const std::shared_ptr<QVServiceAttributes>& attributes) override {
        remember(*attributes);
        tell(false, *attributes);
        return {};
    }
    void notificationForServiceWithAttributes(
        QVServiceQuery& /*serviceQuery*/, const std::shared_ptr<QVServiceAttributes>& attributes,
        natural_t messageType, std::uintptr_t /*messageArgument*/) override {
        if (messageType == kIOMessageServicePropertyChange) { // maybe of its name
            remember(*attributes);
        }
    }
    void terminateServiceWithAttributes(
        QVServiceQuery& /*serviceQuery*/,
        const std::shared_ptr<QVServiceAttributes>& attributes) override {
        tell(true, *attributes);
    }

private:
    static constexpr std::string_view kDescription = "description"; // while it is there

    static const QVIOService& serviceOf(const QVServiceAttributes& attributes) {
        return *std::any_cast<const std::shared_ptr<QVIOService>&>(
            attributes.find(kServiceAttribute)->second);
    }
    void remember(QVServiceAttributes& attributes) const {
        attributes.insert_or_assign(
            std::string(kDescription),
            deviceAsValue(serviceOf(attributes), options_.json && options_.showProperties));
    }
    void tell(bool isGone, const QVServiceAttributes& attributes) const {
        if (!prints_) {
            return;
        }
        const std::string_view event = isGone ? "gone" : "arrived";
        const auto& device = std::any_cast<const Value&>(attributes.find(kDescription)->second);
        Terminal& out = Terminal::standardOutput();
        if (options_.json) {
            out.line(jsonText(
                Value::dictionary({{"event", Value::string(event)}, {"device", device}}), true));
        } else {
            const Value* path = device.find("path");
            out.line(
                fmt::format("{:7}  {}  {}", event,
                            out.styled((path->isNull() ? device.find("name") : path)->asString(),
                                       isGone ? Style::bad : Style::good),
                            out.styled(device.find("class")->asString(), Style::faint)));
            if (options_.showProperties && !isGone) {
                printProperties(sortedProperties(serviceOf(attributes)), "    ");
            }
        }
        if (out.error() != 0) {
            RunLoop::current().stop();
        }
    }

    const RegistryOptions& options_;
    DeviceFilter filter_;
    bool prints_ = false;
};

Result follow(const RegistryOptions& options, const DeviceFilter& filter) {
    if (openUdevMonitor() == nullptr) {
        return failure(ExitStatus::failed,
                       "the kernel's events of devices do not reach this process, as in a "
                       "container without them");
    }
    const auto follower = std::make_shared<DeviceFollower>(options, filter);
    const auto query = QVServiceQuery::initWithMatchingDictionary(
        QVServiceQuery::matchingDictionaryForIOServiceClass(
            filter.className.empty() ? "IOService" : filter.className),
        follower);
    if (!query->startQuery()) {
        return failure(ExitStatus::failed, "devices cannot be followed: too many open files");
    }
    follower->beginPrinting();
    Terminal::standardError().line(
        fmt::format("following {} devices and what comes; Ctrl-C ends", query->serviceCount()));
    const bool isStopped = RunLoop::current().run();
    query->setDelegate({}); // nothing has gone but the query
    return isStopped ? Result(ExitStatus::success)
                     : failure(ExitStatus::failed, "devices cannot be followed any longer");
}

tl::expected<DeviceFilter, Failure> filterFrom(const RegistryOptions& options) {
    DeviceFilter filter{options.className, {}};
    for (const std::string& property : options.properties) {
        const std::size_t equals = property.find('=');
        if (equals == 0 || property.empty()) {
            return failure(
                ExitStatus::usage,
                fmt::format("--property wants NAME or NAME=VALUE, not \"{}\"", property));
        }
        filter.properties.emplace_back(property.substr(0, equals),
                                       equals == std::string::npos
                                           ? std::nullopt
                                           : std::optional(property.substr(equals + 1)));
    }
    return filter;
}

// Returns nothing if the plane is the one that has devices, else the reason why there is nothing to
// show.
std::optional<Failure> planeFault(const std::string& plane) {
    const io_registry_entry_t root = IORegistryGetRootEntry(kIOMainPortDefault);
    io_iterator_t iterator = 0;
    const bool isKnown = IORegistryEntryGetChildIterator(root, plane, iterator) == kIOReturnSuccess;
    const bool isEmpty = isKnown && IOIteratorNext(iterator) == 0;
    IOObjectRelease(iterator);
    IOObjectRelease(root);
    if (!isKnown) {
        return Failure{
            ExitStatus::usage,
            fmt::format("there is no plane \"{}\"; all devices are in {}", plane, kIOServicePlane)};
    }
    return isEmpty ? std::optional(Failure{ExitStatus::failed,
                                           fmt::format("the plane {} has no devices", plane)})
                   : std::nullopt;
}

} // namespace

Result registry(const RegistryOptions& options) {
    const auto filter = filterFrom(options);
    if (!filter) {
        return tl::unexpected(filter.error());
    }
    if (options.device && (options.watch || !filter->isEmpty())) {
        return failure(ExitStatus::usage,
                       "registry: --class, --property and --watch go without a DEVICE");
    }
    if (options.watch && !options.sysfs.empty()) {
        return failure(ExitStatus::usage, "registry: nothing comes or goes in --sysfs");
    }
    std::optional<RegistryReplacement> replacement;
    if (!options.sysfs.empty()) {
        if (!std::filesystem::is_directory(std::filesystem::path(options.sysfs) / "devices")) {
            return failure(ExitStatus::usage,
                           fmt::format("{}: has no folder \"devices\"", options.sysfs));
        }
        replacement.emplace(DevicePlaces{.sysfs = options.sysfs, .udevData = {}, .machineID = {}});
    }
    if (auto fault = planeFault(options.plane)) {
        return tl::unexpected(std::move(*fault));
    }
    if (options.device) {
        return showOne(*options.device, options);
    }
    return options.watch ? follow(options, *filter) : list(options, *filter);
}

} // namespace qv::tools
