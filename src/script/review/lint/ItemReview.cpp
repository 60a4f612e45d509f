#include "script/review/lint/ItemReview.h"

#include "platform/foundation/values/Conversions.h"

#include <fmt/format.h>

#include <sys/stat.h>
#include <unistd.h>

namespace qv::review {

namespace {

/// Calls with each folder above a path, from the root down, and then with the path, until the call
/// gives false.
template <typename Visit> void forEachAbove(std::string_view path, const Visit& visit) {
    if (!visit(std::string_view("/")) || path == "/") {
        return;
    }
    for (std::size_t slash = path.find('/', 1); slash != std::string_view::npos;
         slash = path.find('/', slash + 1)) {
        if (!visit(path.substr(0, slash))) {
            return;
        }
    }
    visit(path);
}

std::string_view folderOf(std::string_view path) {
    const std::size_t slash = path.rfind('/');
    return slash == 0 ? path.substr(0, 1) : path.substr(0, slash);
}

bool isBelow(std::string_view path, std::string_view folder) {
    return path.size() > folder.size() && path.starts_with(folder) &&
           (folder == "/" || path[folder.size()] == '/');
}

// The fault of a tool on this machine; empty for none.
std::string_view faultOfTool(const std::string& path) {
    struct stat status{};
    if (::stat(path.c_str(), &status) != 0) {
        return errno == ENOENT || errno == ENOTDIR ? "is not there" : "";
    }
    if (!S_ISREG(status.st_mode)) {
        return "is not a program";
    }
    return (status.st_mode & (S_IXUSR | S_IXGRP | S_IXOTH)) == 0 ? "may not be executed" : "";
}

} // namespace

void ItemReview::take(const ReviewedStep& step) {
    const Operation& operation = *step.operation;
    if (operation.fields.size() > 1 && operation.fields[1].kind == FieldKind::item) {
        takeTwoItems(step);
        return;
    }
    const Field* item = operation.fields.empty() ? nullptr : &operation.fields.front();
    const bool hasItem = item != nullptr && item->kind == FieldKind::item;
    const std::optional<std::string> path = hasItem ? step.path(*item) : std::nullopt;
    // A removal of an item that may be gone only makes sure of that while errors are passed over.
    const bool makesSure = operation.effect == Effect::removes && !blocks_.stopsAtErrors();
    if (path && !makesSure && !step.is(OperationCode::touchItemAtURL)) {
        needs(step, *item, *path);
    }
    switch (operation.effect) {
    case Effect::removes:
        if (path) {
            takesAway(step, *path);
        }
        break;
    case Effect::changes:
        if (path && step.is(OperationCode::touchItemAtURL)) {
            needs(step, *item, folderOf(*path));
            uses(step, *path);
            makes(step, *path);
        } else if (path) {
            takeChange(step, *item);
        }
        break;
    case Effect::opaque:
        takeTool(step);
        forget();
        opaqueBefore_ = true;
        break;
    case Effect::starts:
        forget();
        break;
    default:
        if (path) {
            uses(step, *path);
        } else if (step.is(OperationCode::waitForQuitOfApplicationWithPID)) {
            forget(); // the process may change anything until it has quit
        }
        break;
    }
}

void ItemReview::takeTwoItems(const ReviewedStep& step) {
    const Field& from = step.operation->fields[0];
    const Field& to = step.operation->fields[1];
    const std::optional<std::string>& fromPath = step.path(from);
    const std::optional<std::string>& toPath = step.path(to);
    const bool replaces = step.is(OperationCode::replaceItemAtURL);
    if (fromPath && toPath) {
        reviewNesting(step, from, *fromPath, to, *toPath);
    }
    if (fromPath) {
        needs(step, from, *fromPath);
        uses(step, *fromPath);
    }
    if (toPath) {
        needs(step, to, replaces ? std::string_view(*toPath) : folderOf(*toPath));
        if (!replaces) {
            needsFreePlace(step, to, *toPath);
        }
        uses(step, *toPath);
    }
    if (fromPath && step.is(OperationCode::moveItemFromURL)) {
        takesAway(step, *fromPath);
    }
    if (toPath) {
        makes(step, *toPath);
    }
}

void ItemReview::reviewNesting(const ReviewedStep& step, const Field& from,
                               const std::string& fromPath, const Field& to,
                               const std::string& toPath) {
    const auto add = [&](std::string reason) {
        findings_.add(
            Check::ontoItself, step.at(to),
            {std::move(reason), fmt::format("correct the {} or the {}", from.name, to.name)});
    };
    if (fromPath == toPath) {
        add(fmt::format("the {} and the {} are the same item, {}", from.name, to.name,
                        inQuotes(toPath)));
    } else if (isBelow(toPath, fromPath)) {
        add(fmt::format("the {} lies in the {}", to.name, from.name));
    } else if (isBelow(fromPath, toPath)) {
        add(fmt::format("the {} lies in the {}, which is there already", from.name, to.name));
    }
}

void ItemReview::takeTool(const ReviewedStep& step) {
    const Field& field = step.operation->fields.front();
    const Value* tool = step.value(field);
    const auto path =
        field.kind == FieldKind::toolPath && tool != nullptr && tool->is(Value::Kind::string)
            ? lexicalPath(tool->asString())
            : std::nullopt;
    if (!path) {
        return;
    }
    needs(step, field, *path);
    bool isMade = false; // by an earlier step, whichever branch it is in
    forEachAbove(*path, [&](std::string_view each) {
        const auto found = items_.find(each);
        isMade = isMade || (found != items_.end() && found->second.lastMade != 0);
        return !isMade;
    });
    // A rule may have asked for the machine that has the tool.
    const bool isExpected = !isMade && !opaqueBefore_ && blocks_.branch().depth == 0 &&
                            path->find(" -") == std::string::npos; // arguments: told already
    const std::string_view fault =
        step.options->asksMachine && isExpected ? faultOfTool(*path) : std::string_view();
    if (!fault.empty()) {
        findings_.add(Check::missingTool, step.at(field),
                      {fmt::format("{} {} on this machine", inQuotes(*path), fault),
                       "correct the path, or install the tool before the script runs"});
    }
}

// Whether there is what the step needs, as far as the steps before say.
void ItemReview::needs(const ReviewedStep& step, const Field& field, std::string_view path) {
    std::size_t made = 0;
    forEachAbove(path, [&](std::string_view each) {
        const auto found = items_.find(each);
        if (found == items_.end()) {
            return true;
        }
        Item& item = found->second;
        made = std::max(made, item.lastMade);
        if (!isValid(item.gone) || item.gone.step + 1 < made) {
            return true;
        }
        item.gone.holds = false; // told once
        findings_.add(Check::usedAfterGone, step.at(field),
                      {fmt::format("{} has taken {} away, which this step needs",
                                   stepName(item.gone.step), inQuotes(each)),
                       "put this step before that one, or make the item again between them"});
        return false;
    });
}

void ItemReview::uses(const ReviewedStep& step, const std::string& path) {
    forEachAbove(path, [&](std::string_view each) {
        auto found = items_.find(each);
        if (found == items_.end()) {
            found = items_.emplace(std::string(each), Item()).first;
        }
        (each.size() == path.size() ? found->second.lastUsed : found->second.lastUsedBelow) =
            step.index + 1;
        return true;
    });
}

void ItemReview::makes(const ReviewedStep& step, const std::string& path) {
    forEachAbove(path, [&](std::string_view each) {
        const auto found = items_.find(each);
        if (found != items_.end()) {
            found->second.gone.holds = false;
        }
        return true;
    });
    Item& item = items_[path];
    item.lastMade = step.index + 1;
    if (blocks_.stopsAtErrors()) {
        item.made = factOf(step);
    } else {
        item.made.holds = false;
    }
}

void ItemReview::takesAway(const ReviewedStep& step, const std::string& path) {
    uses(step, path);
    Item& item = items_[path];
    item.lastGone = step.index + 1;
    item.made.holds = false;
    if (blocks_.stopsAtErrors()) {
        item.gone = factOf(step);
    }
}

void ItemReview::needsFreePlace(const ReviewedStep& step, const Field& field,
                                const std::string& path) {
    const auto found = items_.find(path);
    if (found == items_.end() || !isValid(found->second.made)) {
        return;
    }
    const Fact& made = found->second.made;
    bool isGone = false;
    forEachAbove(path, [&](std::string_view each) {
        const auto above = items_.find(each);
        isGone = isGone || (above != items_.end() && above->second.lastGone > made.step + 1);
        return !isGone;
    });
    if (!isGone) {
        findings_.add(Check::destinationExists, step.at(field),
                      {fmt::format("{} has made {}, and nothing is overwritten, so this step fails",
                                   stepName(made.step), inQuotes(path)),
                       "remove the item before, or replace it"});
    }
}

void ItemReview::takeChange(const ReviewedStep& step, const Field& item) {
    const std::string path = step.path(item).value_or("/");
    const bool recursive = step.isSet("recursive");
    const bool isMode = step.is(OperationCode::changeModeOfItem);
    const bool isOwner = step.is(OperationCode::changeOwnershipOfItem) ||
                         step.is(OperationCode::applyOwnerAndGroupOfURL);
    if (!isMode && !isOwner) {
        uses(step, path);
        return;
    }
    Changes& changes = isMode ? modes_ : owners_;
    if (isOwner) {
        reviewSetID(step, item, path, recursive);
    }
    reviewEarlier(step, item, path, changes, recursive);
    constexpr std::int64_t kSetUserID = 04000;
    const Field* mode = step.field("mode");
    const Value* bits = mode == nullptr ? nullptr : step.value(*mode);
    const bool setsUserID =
        bits != nullptr && (wholeNumber(*bits).value_or(0) & kSetUserID) != 0 && isMode;
    changes[path] = Change{factOf(step), recursive, setsUserID};
}

bool ItemReview::isUntouched(std::string_view path, const Change& change) const {
    bool isUntouched = true;
    forEachAbove(path, [&](std::string_view each) {
        const auto found = items_.find(each);
        if (found != items_.end()) {
            const Item& item = found->second;
            const bool isItself = each.size() == path.size();
            isUntouched = isUntouched && item.lastUsed <= change.step + 1 &&
                          (!isItself || item.lastUsedBelow <= change.step + 1);
        }
        return isUntouched;
    });
    return isUntouched;
}

// A change of all that is in a folder takes the changes before it, but not the other way round.
void ItemReview::reviewEarlier(const ReviewedStep& step, const Field& item, const std::string& path,
                               Changes& changes, bool recursive) {
    const auto report = [&](const std::string& earlierPath, const Change& earlier) {
        const bool isUseless = isValid(earlier) && isUntouched(earlierPath, earlier) &&
                               (recursive || !earlier.recursive);
        if (isUseless) {
            findings_.add(Check::overwrittenChange, step.at(item),
                          {fmt::format("this step makes {} useless, which changes the same of {}",
                                       stepName(earlier.step), inQuotes(earlierPath)),
                           "leave the earlier step out, or put it behind this one"});
        }
    };
    if (const auto same = changes.find(path); same != changes.end()) {
        report(same->first, same->second);
    }
    if (!recursive) {
        return;
    }
    const std::string below = path == "/" ? "/" : path + "/";
    auto each = changes.lower_bound(below);
    while (each != changes.end() && each->first.starts_with(below)) {
        report(each->first, each->second);
        each = changes.erase(each);
    }
}

void ItemReview::reviewSetID(const ReviewedStep& step, const Field& item, const std::string& path,
                             bool recursive) {
    const auto report = [&](const std::string& changedPath, Change& change) {
        if (change.setsUserID && isValid(change)) {
            change.setsUserID = false;
            findings_.add(Check::setIDLost, step.at(item),
                          {fmt::format("a change of owner takes away the set-user-ID bit that {} "
                                       "gives {}",
                                       stepName(change.step), inQuotes(changedPath)),
                           "change the owner first, and then the mode"});
        }
    };
    if (const auto same = modes_.find(path); same != modes_.end()) {
        report(same->first, same->second);
    }
    const std::string below = path == "/" ? "/" : path + "/";
    for (auto each = modes_.lower_bound(below);
         recursive && each != modes_.end() && each->first.starts_with(below); ++each) {
        report(each->first, each->second);
    }
}

} // namespace qv::review
