#include "platform/foundation/archive/KeyedUnarchiver.h"
#include "platform/foundation/plist/PropertyList.h"
#include "tools/Commands.h"
#include "tools/Input.h"
#include "tools/Json.h"
#include "tools/Terminal.h"

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

ExitStatus complainAndFail(const std::string& file, const Error& error) {
    complainAboutFile(file, error);
    return ExitStatus::failed;
}

} // namespace

ExitStatus plist(const PlistOptions& options) {
    const auto list = readList(options.file);
    if (!list) {
        return list.error();
    }
    Value root = list->document.root;
    if (options.archive) {
        const auto object = KeyedUnarchiver::unarchiveObjectWithData(list->content);
        if (!object) {
            return complainAndFail(options.file, object.error());
        }
        root = *object;
    }
    if (options.to.empty() && !options.archive) {
        Terminal::standardOutput().line(
            fmt::format("{}: OK, {}", options.file == "-" ? "standard input" : options.file,
                        formatName(list->document.format)));
        return ExitStatus::success;
    }
    const auto converted = convert(root, options.to.empty() ? "json" : options.to);
    if (!converted) {
        return complainAndFail(options.file, converted.error());
    }
    const std::string output = options.output.empty() ? "-" : options.output;
    if (const Error error = writeOutput(output, *converted)) {
        complainAboutFile(output, error);
        return ExitStatus::usage;
    }
    return ExitStatus::success;
}

} // namespace qv::tools
