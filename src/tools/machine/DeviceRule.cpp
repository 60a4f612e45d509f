// A rule names a device by its class and by what stays the same wherever it is plugged in: the
// first of kIdentities of which it has all properties, else its name. Adds properties in which
// devices may differ as long as other devices match.

#include "tools/machine/DeviceRule.h"

#include "ioregistry/QVServiceQuery.h"
#include "platform/foundation/log/Log.h"
#include "platform/iokit/IOKit.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>
#include <utility>

namespace qv::tools {

namespace {

constexpr std::string_view kBSDName = "BSD Name";

constexpr std::array kIdentities = std::to_array<std::array<std::string_view, 2>>({
    {"idVendor", "idProduct"},                           // USB
    {"VendorID", "ProductID"},                           // HID
    {"vendor", "device"},                                // PCI
    {"Vendor Identification", "Product Identification"}, // SCSI
    {"Model Number", "Model Number"},                    // NVMe
    {"UUID", "UUID"},                                    // disks and partitions
    {kBSDName, kBSDName},
});

constexpr std::array<std::string_view, 8> kDifferences = {
    "bInterfaceNumber", "subsystem_vendor", "subsystem_device", "USB Serial Number",
    "SerialNumber",     "Serial Number",    kBSDName,           "IOSysfsPath"};

/// An argument of a rule, and what it stands for.
struct Argument {
    std::string key; ///< of the property or of the matching dictionary
    Value value;
    bool isMatched = false; ///< by the registry, else met

    [[nodiscard]] std::string text() const;
};

// The text as the scanner of calls reads it back.
std::string protectedText(const std::string& text) {
    if (text.find_first_of("\\\"';)}=") == std::string::npos) {
        return text;
    }
    for (const char quote : {'\'', '"'}) {
        if (text.find(quote) == std::string::npos) {
            return quote + text + quote;
        }
    }
    std::string escaped;
    for (const char c : text) {
        escaped += std::string_view("\\\"';)}=").find(c) == std::string_view::npos ? "" : "\\";
        escaped += c;
    }
    return escaped;
}

std::string Argument::text() const {
    const bool isText = value.is(Value::Kind::string);
    return fmt::format(
        "{}{}{}={}", isMatched ? "match" : "meet", isText ? "Str" : "Int", protectedText(key),
        isText ? protectedText(std::string(value.asString()))
               : fmt::to_string(value.is(Value::Kind::boolean) ? std::int64_t{value.asBoolean()}
                                                               : value.asInteger()));
}

// Returns none for a value that a rule cannot hold, or not on one line.
std::optional<Argument> argumentFor(std::string_view key, const Value& value) {
    const bool isText = value.is(Value::Kind::string);
    if (!isText && !value.is(Value::Kind::integer) && !value.is(Value::Kind::boolean)) {
        return std::nullopt;
    }
    if (log::foreign(key) != key ||
        (isText && log::foreign(value.asString()) != value.asString())) {
        return std::nullopt;
    }
    return Argument{std::string(key), value, key == kBSDName};
}

class RuleMaker {
public:
    explicit RuleMaker(const QVIOService& service) : service_(service) {
        for (auto& [name, value] : sortedProperties(service)) {
            if (auto argument = argumentFor(name, value)) {
                properties_.push_back(std::move(*argument));
            } else {
                others_.emplace_back(std::move(name), std::move(value));
            }
        }
        chosen_.push_back(
            {std::string(kIOProviderClassKey), Value::string(classOf(service)), true});
        identify();
        alike_ = countAlike();
        for (const std::string_view key : kDifferences) {
            if (alike_ > 1) {
                differ(key);
            }
        }
    }

    [[nodiscard]] DeviceRule rule() const {
        std::vector<std::string> arguments;
        arguments.reserve(chosen_.size());
        for (const Argument& argument : chosen_) {
            arguments.push_back(argument.text());
        }
        DeviceRule rule{fmt::format("${{iokit(do=exists;{})}} == YES", fmt::join(arguments, ";")),
                        alike_,
                        {},
                        others_};
        rule.arguments.push_back(chosen_.front().text());
        for (const Argument& argument : properties_) {
            rule.arguments.push_back(argument.text());
        }
        return rule;
    }

private:
    [[nodiscard]] const Argument* property(std::string_view key) const {
        const auto found = std::ranges::find(properties_, key, &Argument::key);
        return found == properties_.end() ? nullptr : &*found;
    }
    void identify() {
        for (const auto& [first, second] : kIdentities) {
            if (property(first) == nullptr || property(second) == nullptr) {
                continue;
            }
            chosen_.push_back(*property(first));
            if (first != second) {
                chosen_.push_back(*property(second));
            }
            return;
        }
        std::string name;
        static_cast<void>(IORegistryEntryGetName(service_.service(), name));
        if (auto argument = argumentFor("IONameMatch", Value::string(name))) {
            argument->isMatched = true;
            chosen_.push_back(std::move(*argument));
        }
    }
    void differ(std::string_view key) {
        const Argument* argument = property(key);
        if (argument == nullptr) {
            return;
        }
        chosen_.push_back(*argument);
        const std::size_t alike = countAlike();
        if (alike < alike_) {
            alike_ = alike;
        } else {
            chosen_.pop_back();
        }
    }
    [[nodiscard]] std::size_t countAlike() const {
        std::vector<std::pair<Value, Value>> matching;
        for (const Argument& argument : chosen_) {
            if (argument.isMatched) {
                matching.emplace_back(Value::string(argument.key), argument.value);
            }
        }
        const auto services = QVServiceQuery::servicesMatchingDictionary(
            Value::dictionary(std::move(matching)), nullptr);
        const auto isAlike = [&](const std::shared_ptr<QVIOService>& service) {
            return std::ranges::all_of(chosen_, [&](const Argument& argument) {
                return argument.isMatched ||
                       service->valueForProperty(argument.key) == argument.value;
            });
        };
        return services ? static_cast<std::size_t>(std::ranges::count_if(*services, isAlike)) : 0;
    }

    const QVIOService& service_;
    std::vector<Argument> properties_; // those that a rule can ask for
    NamedValues others_;
    std::vector<Argument> chosen_; // the class first
    std::size_t alike_ = 0;
};

} // namespace

DeviceRule ruleFor(const QVIOService& service) { return RuleMaker(service).rule(); }

} // namespace qv::tools
