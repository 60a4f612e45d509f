#include "platform/foundation/archive/KeyedUnarchiver.h"
#include "platform/foundation/files/item/OutputFile.h"
#include "platform/foundation/plist/PropertyList.h"
#include "tools/scripts/ScriptCommands.h"
#include "tools/terminal/Input.h"
#include "tools/terminal/Json.h"
#include "tools/terminal/Terminal.h"

#include <fmt/core.h>

namespace qv::tools {

namespace {

std::string_view formatName(PropertyListFormat format) {
    switch (format) {
    case PropertyListFormat::oldStyle:
        return "old-style text";
    case PropertyListFormat::xml:
        return "XML";
    case PropertyListFormat::binary:
        return "binary";
    }
    return "unknown";
}

tl::expected<std::string, Error> convert(const Value& root, const std::string& to) {
    if (to == "json") {
        return jsonLine(root);
    }
    return PropertyList::dataWithPropertyList(root, to == "binary" ? PropertyListFormat::binary
                                                                   : PropertyListFormat::xml);
}

} // namespace

Result plist(const PlistOptions& options) {
    if (!options.output.empty() && options.to.empty() && !options.archive) {
        return failure(ExitStatus::usage, "plist: --output needs --to or --archive");
    }
    const auto list = readList(options.file);
    if (!list) {
        return tl::unexpected(list.error());
    }
    Value root = list->document.root;
    if (options.archive) {
        const auto object = KeyedUnarchiver::unarchiveObjectWithData(list->content);
        if (!object) {
            return fileFailure(ExitStatus::failed, options.file, object.error());
        }
        root = *object;
    }
    if (options.to.empty() && !options.archive) {
        const std::string_view format = formatName(list->document.format);
        Terminal::standardOutput().line(
            options.json
                ? jsonText(Value::dictionary(
                      {{"file", Value::string(options.file)}, {"format", Value::string(format)}}))
                : fmt::format("{}: OK, {}", options.file == "-" ? "standard input" : options.file,
                              format));
        return ExitStatus::success;
    }
    const auto converted = convert(root, options.to.empty() ? "json" : options.to);
    if (!converted) {
        return fileFailure(ExitStatus::failed, options.file, converted.error());
    }
    if (options.output.empty() || options.output == "-") {
        Terminal::standardOutput().write(*converted);
    } else if (const int error = writeOutputFile(options.output, *converted)) {
        return fileFailure(ExitStatus::usage, options.output, Error::posix(error));
    }
    return ExitStatus::success;
}

} // namespace qv::tools
