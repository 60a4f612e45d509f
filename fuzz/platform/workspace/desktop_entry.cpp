// Arbitrary bytes as a desktop entry: refused with a reason, or texts that a look-up can use; its
// command line refused with the place, or a program and arguments that can be handed to it, and
// that read back as the same when they are written with every quote.

#include "platform/foundation/values/UTF8.h"
#include "platform/workspace/applications/ExecLine.h"

#include <cstdlib>
#include <string>

namespace {

void require(bool fact) {
    if (!fact) {
        std::abort();
    }
}

bool isText(const std::string& text) {
    return qv::isUTF8(text) && text.find('\0') == std::string::npos;
}

std::string quoted(const std::string& word) {
    std::string result = "\"";
    for (const char c : word) {
        if (c == '%') {
            result += c;
        } else if (c == '"' || c == '`' || c == '$' || c == '\\') {
            result += '\\';
        }
        result += c;
    }
    return result + "\" ";
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    const auto entry = qv::DesktopEntry::parse(std::string(data, data + size), "/a b.desktop");
    if (!entry) {
        require(!entry.error().empty());
        return 0;
    }
    require(isText(entry->type + entry->name + entry->exec + entry->tryExec + entry->path));
    for (const auto& [locale, name] : entry->localizedNames) {
        require(isText(locale + name));
    }
    const auto command = qv::commandOf(*entry);
    if (!command) {
        require(command.error().starts_with("column "));
        return 0;
    }
    require(!command->empty() && !command->front().empty() &&
            command->front().find('=') == std::string::npos);
    qv::DesktopEntry again;
    for (const std::string& word : *command) {
        require(isText(word));
        again.exec += quoted(word);
    }
    require(qv::commandOf(again) == command);
    return 0;
}
