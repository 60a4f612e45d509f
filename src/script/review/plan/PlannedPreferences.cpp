#include "script/review/plan/PlannedPreferences.h"

#include "platform/foundation/values/Description.h"
#include "platform/preferences/PreferenceFiles.h"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>

namespace qv {

namespace {

// Values of which nothing can be said but that they are stored.
bool isPlain(const Value& value) {
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < 0x20; };
    switch (value.kind()) {
    case Value::Kind::string:
        return std::ranges::none_of(value.asString(), isControl);
    case Value::Kind::boolean:
    case Value::Kind::integer:
        return true;
    default:
        return false;
    }
}

std::string shownValue(const std::optional<Value>& value) {
    constexpr std::size_t kMostShown = 100;
    return value ? description(*value, kMostShown) : "none";
}

// The file of a domain, without links; its folder need not be there.
Location locationOf(const preferences::DomainPlace& place, SimulatedFiles& files) {
    const auto base = files.hold(place.base, LastLink::follow);
    if (!base) {
        files.noteDoubt(fmt::format("{} is not a folder", place.base));
    }
    Location file = base.value_or(Location());
    file.insert(file.end(), place.folders.begin(), place.folders.end());
    file.push_back(place.fileName);
    return file;
}

// Notes a doubt unless the file is the one on the disk, or is not there, and can be written.
void checkFile(const Location& file, SimulatedFiles& files) {
    Location folder;
    for (const std::string& name : file) {
        const std::optional<ItemState> state = files.stateAt(folder);
        if (!state) {
            return;
        }
        if (state->type != ItemState::Type::folder) {
            files.noteDoubt(fmt::format("{} is not a folder", pathOf(folder)));
            return;
        }
        folder.push_back(name);
    }
    files.doubtVolume(Location(file.begin(), file.end() - 1));
    const SimulatedItem* item = files.itemAt(file);
    if (item != nullptr && (item->origin != pathOf(file) || item->isLink())) {
        files.noteDoubt(fmt::format("{} is not the file that it was", pathOf(file)));
    }
}

} // namespace

bool failsToSet(const PlannedPreference& preference,
                const std::optional<PreferenceEnvironment>& environment, PlannedValues& values,
                SimulatedFiles& files, EffectList& effects) {
    if (!preference.domain.applicationID || !preference.domain.userName ||
        !preference.domain.hostName || !preference.key) {
        return true;
    }
    if (!environment) {
        files.noteDoubt("the preferences of root cannot be read");
        effects.add({"preferences of " + *preference.domain.applicationID,
                     {},
                     {},
                     fmt::format("{} becomes {}", *preference.key, shownValue(preference.value))});
        return false;
    }
    const auto place = preferences::placeOf(preference.domain, *environment);
    if (!place) {
        return true;
    }
    if (place->otherUser) {
        files.noteDoubt("the preferences of another user");
    }
    const Location file = locationOf(*place, files);
    const std::string path = pathOf(file);
    const std::pair key(path, *preference.key);
    const auto known = values.find(key);
    std::optional<Value> before;
    if (known != values.end()) {
        before = known->second;
    } else {
        if (std::ranges::none_of(values,
                                 [&](const auto& each) { return each.first.first == path; })) {
            checkFile(file, files);
        }
        const auto stored = PreferenceFiles(*environment).values(preference.domain);
        if (!stored) {
            files.noteDoubt(fmt::format("{} cannot be read", path));
        }
        const Value* found = stored && *stored ? (*stored)->find(*preference.key) : nullptr;
        before = found == nullptr ? std::nullopt : std::optional(*found);
    }
    const std::optional<Value>& after = preference.value;
    if (after && !isPlain(*after)) {
        files.noteDoubt("whether such a value can be stored");
    }
    const bool isSame =
        before ? after && before->kind() == after->kind() && *before == *after : !after;
    if (isSame) {
        return false;
    }
    effects.add(
        {path,
         {},
         {},
         fmt::format("{}: {} -> {}", *preference.key, shownValue(before), shownValue(after))});
    values.insert_or_assign(key, after);
    files.makeUncertain(file);
    Location lock = file;
    lock.back() = ".qvcatalog-preferences.lock";
    files.makeUncertain(lock);
    return false;
}

} // namespace qv
