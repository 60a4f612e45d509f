#include "tools/machine/RegistryDevices.h"

#include "ioregistry/QVServiceQuery.h"
#include "platform/foundation/text/SimilarNames.h"
#include "platform/foundation/values/Description.h"
#include "platform/iokit/IOKit.h"
#include "platform/iokit/RegistryReplacement.h"
#include "tools/terminal/Terminal.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <ranges>
#include <set>

namespace qv::tools {

namespace {

constexpr std::string_view kDeviceFiles = "/dev/";

std::optional<std::uint64_t> unsignedFrom(std::string_view text) {
    const bool isHexadecimal = text.starts_with("0x");
    text.remove_prefix(isHexadecimal ? 2 : 0);
    std::uint64_t number = 0;
    const auto [end, fault] =
        std::from_chars(text.data(), text.data() + text.size(), number, isHexadecimal ? 16 : 10);
    return fault == std::errc() && end == text.data() + text.size() ? std::optional(number)
                                                                    : std::nullopt;
}

bool isWritten(const Value& value, const std::string& text) {
    if (value.is(Value::Kind::string)) {
        return value.asString() == text;
    }
    const auto number = unsignedFrom(text);
    if (value.isNumber() && number) {
        return value == Value::unsignedInteger(*number);
    }
    return description(value) == text;
}

std::string nameOf(const QVIOService& service) {
    std::string name;
    static_cast<void>(IORegistryEntryGetName(service.service(), name));
    return name;
}

QVIOService::Services servicesMatching(const Value& matching) {
    return QVServiceQuery::servicesMatchingDictionary(matching, nullptr)
        .value_or(QVIOService::Services());
}

// The path that the kernel gives what a path below `sysfs` leads to; none for what is not there.
std::optional<std::string> kernelPath(const std::string& text, const std::string& sysfs) {
    std::error_code fault;
    const auto path = std::filesystem::canonical(text, fault); // its device may be linked to
    const auto root = std::filesystem::canonical(sysfs, fault).native() + '/';
    return !fault && path.native().starts_with(root)
               ? std::optional(DevicePlaces().sysfs + '/' + path.native().substr(root.size()))
               : std::nullopt;
}

// The devices that a person means, by the first reading that some device answers to.
QVIOService::Services devicesMeant(const std::string& text, const std::string& sysfs) {
    if (text.starts_with(kIOServicePlane)) {
        const io_service_t entry = IORegistryEntryFromPath(kIOMainPortDefault, text);
        QVIOService::Services found;
        if (entry != 0) {
            found.push_back(QVIOService::serviceWithIOService(entry));
            IOObjectRelease(entry);
        }
        return found;
    }
    if (text.find('/') != std::string::npos && !text.starts_with(kDeviceFiles)) {
        const auto path = kernelPath(text, sysfs);
        if (path || text.starts_with('/')) {
            return servicesMatching(Value::dictionary(
                {{"IOPropertyMatch",
                  Value::dictionary({{"IOSysfsPath", Value::string(path.value_or(text))}})}}));
        }
    }
    QVIOService::Services found;
    if (text.empty()) {
        return found;
    }
    if (const auto entryID = unsignedFrom(text)) {
        found = servicesMatching(QVServiceQuery::matchingDictionaryForRegistryEntryID(*entryID));
    }
    const std::string name =
        text.starts_with(kDeviceFiles) ? text.substr(kDeviceFiles.size()) : text;
    if (found.empty()) {
        found = servicesMatching(IOBSDNameMatching(name));
    }
    return found.empty() ? servicesMatching(IOServiceNameMatching(name)) : found;
}

// The text ": did you mean A or B?", or nothing.
std::string suggestion(const std::string& word, const std::set<std::string>& known) {
    const auto similar = similarNames(word, {known.begin(), known.end()});
    return similar.empty() ? std::string()
                           : fmt::format("; did you mean {}?", fmt::join(similar, " or "));
}

} // namespace

bool DeviceFilter::lets(const QVIOService& service) const {
    if (!className.empty() && !service.conformsToIOClass(className)) {
        return false;
    }
    return std::ranges::all_of(properties, [&](const auto& wanted) {
        const auto value = service.valueForProperty(wanted.first);
        return value && (!wanted.second || isWritten(*value, *wanted.second));
    });
}

std::string labelOf(const QVIOService& service) {
    std::string location;
    static_cast<void>(
        IORegistryEntryGetLocationInPlane(service.service(), kIOServicePlane, location));
    return nameOf(service) + (location.empty() ? "" : "@" + location);
}

std::string classOf(const QVIOService& service) { return service.serviceClass().value_or(""); }

Value deviceAsValue(const QVIOService& service, bool withProperties) {
    const auto path = service.path();
    const auto parent = service.parentService();
    std::vector<std::pair<Value, Value>> pairs = {
        {Value::string("name"), Value::string(labelOf(service))},
        {Value::string("class"), Value::string(classOf(service))},
        {Value::string("path"), path ? Value::string(*path) : Value()},
        {Value::string("entryID"), Value::unsignedInteger(service.uniqueID())},
        {Value::string("parent"), parent ? Value::unsignedInteger(parent->uniqueID()) : Value()}};
    if (withProperties) {
        std::vector<std::pair<Value, Value>> properties;
        for (auto& [name, value] : sortedProperties(service)) {
            properties.emplace_back(Value::string(name), value);
        }
        pairs.emplace_back(Value::string("properties"), Value::dictionary(std::move(properties)));
    }
    return Value::dictionary(std::move(pairs));
}

std::string valueText(const Value& value) {
    constexpr std::size_t kMostShown = 200; // bytes: firmware tables are properties too
    const std::string text = description(value, kMostShown);
    return value.is(Value::Kind::string) ? '"' + text + '"' : onOneLine(text);
}

NamedValues sortedProperties(const QVIOService& service) {
    NamedValues sorted;
    if (const auto properties = service.properties()) {
        const DictionaryView pairs = properties->asDictionary();
        for (std::size_t i = 0; i < pairs.size(); ++i) {
            sorted.emplace_back(pairs.key(i), pairs.value(i));
        }
    }
    std::ranges::sort(sorted, {}, &NamedValues::value_type::first);
    return sorted;
}

void visitDevices(const std::function<bool(QVIOService& service, std::size_t level)>& visit) {
    std::vector<std::pair<std::shared_ptr<QVIOService>, std::size_t>> left; // the next one last
    for (auto& top : QVIOService::servicesForMatchingClass("IOPlatformExpertDevice")) {
        left.emplace_back(std::move(top), 0);
    }
    while (!left.empty()) {
        const auto [service, level] = std::move(left.back());
        left.pop_back();
        if (!visit(*service, level)) {
            return;
        }
        const auto children = service->childServices().value_or(QVIOService::Services());
        for (const auto& child : std::views::reverse(children)) {
            left.emplace_back(child, level + 1);
        }
    }
}

tl::expected<std::shared_ptr<QVIOService>, Failure> deviceFor(const std::string& text,
                                                              const std::string& sysfs) {
    constexpr std::size_t kMostNamed = 4;
    const QVIOService::Services found = devicesMeant(text, sysfs);
    if (found.size() == 1) {
        return found.front();
    }
    if (found.empty()) {
        std::set<std::string> known;
        visitDevices([&](const QVIOService& service, std::size_t) {
            known.insert(nameOf(service));
            return true;
        });
        return failure(ExitStatus::failed,
                       fmt::format("no device is \"{}\"{}", text, suggestion(text, known)));
    }
    std::vector<std::string> paths;
    for (const auto& service : found) {
        if (paths.size() < kMostNamed) {
            paths.push_back(service->path().value_or(labelOf(*service)));
        }
    }
    return failure(ExitStatus::failed,
                   fmt::format("{} devices are \"{}\", say which by its path: {}{}", found.size(),
                               text, fmt::join(paths, ", "),
                               found.size() > kMostNamed ? ", ..." : ""));
}

tl::unexpected<Failure> nothingFound(const DeviceFilter& filter) {
    std::set<std::string> classes;
    bool isClass = filter.className.empty();
    visitDevices([&](const QVIOService& service, std::size_t) {
        classes.insert(classOf(service));
        isClass = isClass || service.conformsToIOClass(filter.className);
        return !isClass;
    });
    return isClass ? failure(ExitStatus::failed, "no device has these properties")
                   : failure(ExitStatus::failed,
                             fmt::format("no device is of the class \"{}\"{}", filter.className,
                                         suggestion(filter.className, classes)));
}

} // namespace qv::tools
