#include "platform/applescript/world/LoginItems.h"

#include "platform/applescript/world/applications/ApplicationTarget.h"
#include "platform/applescript/world/context/FilePaths.h"
#include "platform/applescript/world/context/Parameters.h"
#include "platform/applescript/world/objects/FileAnswers.h"
#include "platform/foundation/files/item/MakeFolders.h"
#include "platform/foundation/os/RegularFile.h"
#include "platform/foundation/os/ReplacementFile.h"
#include "platform/workspace/applications/DesktopEntry.h"
#include "platform/workspace/applications/ExecLine.h"
#include "platform/workspace/applications/Patience.h"

#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace qv::applescript::world {

namespace {

constexpr std::string_view kSuffix = ".desktop";
constexpr std::string_view kPathKey = "X-QVCatalog-Path";
constexpr std::string_view kHiddenKey = "X-QVCatalog-Hidden";
constexpr std::string_view kApplicationName = "System Events";

std::string autostartFolder(WorldContext& context) {
    const UserRecord& user = context.user();
    return user.user == 0 ? "/etc/xdg/autostart" : user.home + "/.config/autostart";
}

WorkResult perform(WorldContext& context, const std::function<WorkResult()>& work) {
    const uid_t user = context.user().user;
    return context.performAs(context.user(), work,
                             context.processes->patienceWith(user, kPatienceToLook));
}

// A word of Exec, in its quotes, and escaped once more as a text of the file.
std::string quotedWord(std::string_view word) {
    std::string quoted = "\"";
    for (const char each : word) {
        switch (each) {
        case '"':
        case '`':
        case '$':
            quoted += R"(\\)";
            break;
        case '\\':
            quoted += R"(\\\)";
            break;
        case '%':
            quoted += '%';
            break;
        default:
            break;
        }
        quoted += each;
    }
    return quoted + "\"";
}

// A text of the file: `\` begins an escape there.
std::string escapedText(std::string_view text) {
    std::string escaped;
    for (const char each : text) {
        escaped.append(each == '\\' ? 2 : 1, each);
    }
    return escaped;
}

std::string fileNameFor(std::string_view name) {
    constexpr std::size_t kLongest = 100;
    std::string fileName(name.substr(0, kLongest));
    for (char& each : fileName) {
        const bool isPlain = (each >= 'a' && each <= 'z') || (each >= 'A' && each <= 'Z') ||
                             (each >= '0' && each <= '9') || each == '.' || each == '-';
        each = isPlain ? each : '_';
    }
    return fmt::format("{}{}{}", fileName.starts_with('.') ? "_" : "", fileName, kSuffix);
}

bool isOneLine(std::string_view text) {
    return std::ranges::none_of(text,
                                [](char each) { return static_cast<unsigned char>(each) < ' '; });
}

Value encodedItem(const std::string& folder, const std::string& fileName) {
    constexpr std::size_t kLongest = std::size_t{1} << 20U;
    const Descriptor file = openRegularFile(joined(folder, fileName));
    const auto text = file ? contentOfRegularFile(file.get(), kLongest) : std::nullopt;
    const auto entry = DesktopEntry::parse(text.value_or(""), joined(folder, fileName));
    if (!entry || !entry->isApplication() || entry->hidden) {
        return {};
    }
    std::string path;
    bool isHidden = false;
    for (const auto& [key, value] : assignmentsIn(*text)) {
        path = key == kPathKey ? value : path;
        isHidden = isHidden || (key == kHiddenKey && value == "true");
    }
    if (const auto command = commandOf(*entry); path.empty() && command) {
        path = findProgram(command->front()).value_or(command->front());
    }
    return Value::array({Value::data(entry->name), Value::data(path), Value::boolean(isHidden),
                         Value::data(fileName)});
}

WorkResult encodedItems(const std::string& folder) {
    std::vector<Value> items;
    std::vector<std::string> names;
    try {
        names = namesInFolder(folder, false);
    } catch (const ScriptError& error) {
        if (error.number != error_number::kFolderNotFound) {
            return tl::unexpected(Error::posix(EACCES));
        }
    }
    for (const std::string& name : names) {
        if (name.ends_with(kSuffix)) {
            Value item = encodedItem(folder, name);
            if (!item.isNull()) {
                items.push_back(std::move(item));
            }
        }
    }
    return Value::array(std::move(items));
}

int writeEntry(const std::string& folder, const std::string& fileName, const std::string& text) {
    constexpr mode_t kReadByAll = 0644;
    auto held = openOrMakeFolders(folder);
    if (!held) {
        return held.error();
    }
    auto file = ReplacementFile::create(std::move(*held), fileName);
    if (!file) {
        return file.error();
    }
    for (const int failure :
         {file->append(text), file->give(::geteuid(), ::getegid(), kReadByAll)}) {
        if (failure != 0) {
            return failure;
        }
    }
    return file->replace();
}

[[noreturn]] void failWithEntry(const Error& error, const std::string& path) {
    failWithFile(workerFailure(error) != 0 ? Error::posix(workerFailure(error)) : error, path,
                 kApplicationName);
}

} // namespace

std::vector<LoginItem> loginItems(WorldContext& context) {
    const std::string folder = autostartFolder(context);
    const WorkResult found = perform(context, [&] { return encodedItems(folder); });
    if (!found) {
        failWithEntry(found.error(), folder);
    }
    std::vector<LoginItem> items;
    for (const Value& each :
         found->is(Value::Kind::array) ? found->asArray() : std::span<const Value>()) {
        constexpr std::size_t kFields = 4;
        const auto fields = each.is(Value::Kind::array) ? each.asArray() : std::span<const Value>();
        const bool isWhole = fields.size() == kFields && fields[0].is(Value::Kind::data) &&
                             fields[1].is(Value::Kind::data) &&
                             fields[2].is(Value::Kind::boolean) && fields[3].is(Value::Kind::data);
        if (isWhole) {
            items.push_back({.name = validText(std::string(fields[0].asData())),
                             .path = std::string(fields[1].asData()),
                             .isHidden = fields[2].asBoolean(),
                             .fileName = std::string(fields[3].asData())});
        }
    }
    return items;
}

void makeLoginItem(WorldContext& context, const LoginItem& item) {
    const std::string folder = autostartFolder(context);
    std::string command;
    for (const std::string& word :
         startOf(context, {.name = item.name, .path = item.path}).command) {
        command += (command.empty() ? "" : " ") + quotedWord(word);
        if (!isOneLine(word)) {
            failWithFile(error_number::kBadName, item.path, kApplicationName);
        }
    }
    if (!isOneLine(item.name) || !isOneLine(item.path) || item.name.empty()) {
        failWithFile(error_number::kBadName, item.name, kApplicationName);
    }
    const std::string text = fmt::format(
        "[Desktop Entry]\nType=Application\nName={}\nExec={}\n{}={}\n{}={}\n",
        escapedText(item.name), command, kPathKey, item.path, kHiddenKey, item.isHidden);
    const std::string fileName = fileNameFor(item.name);
    const WorkResult written = perform(context, [&] {
        const int failure = writeEntry(folder, fileName, text);
        return resultOf(failure == 0 ? Error() : Error::posix(failure));
    });
    if (!written) {
        failWithEntry(written.error(), joined(folder, fileName));
    }
}

void removeLoginItem(WorldContext& context, const std::string& fileName) {
    const std::string path = joined(autostartFolder(context), fileName);
    const WorkResult removed = perform(context, [&] {
        return resultOf(::unlink(path.c_str()) == 0 ? Error() : Error::posix(errno));
    });
    if (!removed) {
        failWithEntry(removed.error(), path);
    }
}

} // namespace qv::applescript::world
