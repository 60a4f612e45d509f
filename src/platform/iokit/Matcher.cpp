#include "platform/iokit/Matcher.h"

#include "platform/foundation/values/Conversions.h"
#include "platform/iokit/FamilyMatching.h"

#include <algorithm>
#include <array>

namespace qv {

namespace {

using Kind = Value::Kind;

bool isNumberObject(const Value& value) { return value.isNumber() && !value.is(Kind::boolean); }

// A value that may be one or an array of many.
std::span<const Value> oneOrMany(const Value& value) {
    return value.is(Kind::array) ? value.asArray() : std::span(&value, 1);
}

// The value of a key if it is of this kind; a key of another kind counts as absent.
const Value* findOf(const Value& matching, std::string_view key, Kind kind) {
    const Value* value = matching.find(key);
    return value != nullptr && value->is(kind) ? value : nullptr;
}

std::optional<std::uint64_t> wantedID(const Value& matching) {
    const Value* value = matching.find("IORegistryEntryID");
    return value != nullptr && isNumberObject(*value)
               ? std::optional(static_cast<std::uint64_t>(longLongValue(value)))
               : std::nullopt;
}

} // namespace

std::vector<std::shared_ptr<RegistryEntry>> Matcher::find(const Value& matching, std::size_t most) {
    std::vector<std::shared_ptr<RegistryEntry>> found;
    const auto consider = [&](const std::shared_ptr<RegistryEntry>& node) {
        if (matches(matching, node)) {
            found.push_back(node);
        }
        return found.size() < most;
    };
    if (const auto id = wantedID(matching)) {
        if (const auto node = nodes_.byID(*id)) {
            consider(node);
        }
    } else if (const Value* path = findOf(matching, "IOPathMatch", Kind::string)) {
        // Resolving it for each node would take the square of their number.
        const RegistryEntry* node = paths_.resolve(path->asString());
        if (node != nullptr) {
            consider(nodes_.byID(node->id));
        }
    } else {
        nodes_.forEachService(consider);
    }
    return found;
}

bool Matcher::matches(const Value& matching, const std::shared_ptr<RegistryEntry>& node) {
    if (node == nodes_.root() || !matchesAlone(matching, *node)) {
        return false;
    }
    // A level of the dictionary may want an ancestor of the one that the level above has found.
    std::vector<std::pair<const Value*, const RegistryEntry*>> levels{{&matching, node.get()}};
    while (!levels.empty()) {
        const auto [level, below] = levels.back();
        levels.pop_back();
        if (const Value* wanted = level->find("IOParentMatch")) {
            // The nearest is the best: it has the most ancestors.
            const RegistryEntry* above = ancestorOf(*below, [&](RegistryEntry& ancestor) {
                return wanted->is(Kind::dictionary) && matchesAlone(*wanted, ancestor);
            });
            if (above == nullptr) {
                return false;
            }
            levels.emplace_back(wanted, above);
        }
        if (const Value* wanted = findOf(*level, "IOLocationMatch", Kind::dictionary)) {
            RegistryEntry* above = ancestorOf(*below, [&](RegistryEntry& ancestor) {
                return !paths_.labelOf(ancestor).location.empty();
            });
            if (above == nullptr || !matchesAlone(*wanted, *above)) {
                return false;
            }
            levels.emplace_back(wanted, above);
        }
    }
    return true;
}

RegistryEntry* Matcher::ancestorOf(const RegistryEntry& node,
                                   const std::function<bool(RegistryEntry&)>& isWanted) const {
    for (RegistryEntry* above = node.parent; above != nullptr && above != nodes_.root().get();
         above = above->parent) {
        if (isWanted(*above)) {
            return above;
        }
    }
    return nullptr;
}

bool Matcher::matchesAlone(const Value& matching, RegistryEntry& node) {
    return matchesIdentity(matching, node) && matchesName(matching, node) &&
           matchesProperties(matching, node) && matchesFamily(matching, node);
}

bool Matcher::matchesIdentity(const Value& matching, RegistryEntry& node) {
    const auto id = wantedID(matching);
    const Value* className = findOf(matching, "IOProviderClass", Kind::string);
    if ((id && *id != node.id) ||
        (className != nullptr && !node.deviceClass.conformsTo(className->asString()))) {
        return false;
    }
    if (const Value* location = findOf(matching, "IOLocationMatch", Kind::string);
        location != nullptr && paths_.labelOf(node).location != location->asString()) {
        return false;
    }
    const Value* path = findOf(matching, "IOPathMatch", Kind::string);
    return path == nullptr || paths_.resolve(path->asString()) == &node;
}

bool Matcher::matchesName(const Value& matching, RegistryEntry& node) {
    const Value* wanted = matching.find("IONameMatch");
    if (wanted == nullptr) {
        return true;
    }
    const auto isWanted = [&](std::string_view name) {
        return std::ranges::any_of(oneOrMany(*wanted), [&](const Value& one) {
            return one.is(Kind::string) && one.asString() == name;
        });
    };
    if (isWanted(paths_.labelOf(node).name) || isWanted(node.kernelName)) {
        return true;
    }
    return !node.path.empty() || node.deviceClass.family == DeviceFamily::platformExpert
               ? std::ranges::any_of(properties_.compatibleNames(properties_.subjectOf(node)),
                                     isWanted)
               : false;
}

bool Matcher::hasProperties(RegistryEntry& node, const Value& criteria) {
    if (!criteria.is(Kind::dictionary)) {
        return false;
    }
    const auto subject = properties_.subjectOf(node);
    const DictionaryView pairs = criteria.asDictionary();
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        const auto property = properties_.one(subject, pairs.key(i));
        if (!property || !meetsCriterion(pairs.value(i), *property)) {
            return false;
        }
    }
    return true;
}

bool Matcher::matchesProperties(const Value& matching, RegistryEntry& node) {
    if (const Value* wanted = matching.find("IOPropertyMatch");
        wanted != nullptr && std::ranges::none_of(oneOrMany(*wanted), [&](const Value& one) {
            return hasProperties(node, one);
        })) {
        return false;
    }
    if (const Value* wanted = matching.find("IOPropertyExistsMatch"); wanted != nullptr) {
        const auto subject = properties_.subjectOf(node);
        if (std::ranges::none_of(oneOrMany(*wanted), [&](const Value& name) {
                return name.is(Kind::string) &&
                       properties_.one(subject, name.asString()).has_value();
            })) {
            return false;
        }
    }
    if (const Value* count = matching.find("IOMatchedServiceCountMatch"); count != nullptr) {
        return isNumberObject(*count) &&
               longLongValue(count) == (properties_.hasDriver(properties_.subjectOf(node)) ? 1 : 0);
    }
    return true;
}

bool Matcher::matchesFamily(const Value& matching, RegistryEntry& node) {
    static constexpr std::array kOfEveryClass{"BSD Name", "BSD Major", "BSD Minor", "BSD Unit"};
    PropertyAccess::Subject subject;
    const auto property = [&](std::string_view key) {
        if (subject == nullptr) {
            subject = properties_.subjectOf(node);
        }
        return properties_.one(subject, key);
    };
    for (const char* key : kOfEveryClass) {
        const Value* wanted = matching.find(key);
        if (wanted == nullptr) {
            continue;
        }
        const auto found =
            propertyRow(node.deviceClass.family, key) == nullptr ? std::nullopt : property(key);
        if (!found || !meetsCriterion(*wanted, *found)) {
            return false;
        }
    }
    // The registry's own resources are without properties.
    if (const Value* wanted = matching.find("IOResourceMatch");
        wanted != nullptr && node.deviceClass.name() == "IOResources" &&
        !oneOrMany(*wanted).empty()) {
        return false;
    }
    return meetsFamilyKeys(node.deviceClass, matching, property);
}

} // namespace qv
