#include "platform/foundation/files/item/HeldItem.h"
#include "platform/foundation/os/FileBytes.h"
#include "platform/foundation/process/task/Task.h"
#include "platform/foundation/values/Description.h"
#include "platform/foundation/values/Exception.h"
#include "script/ScriptEngine.h"
#include "script/operations/Fields.h"

#include <fmt/core.h>

#include <algorithm>
#include <cerrno>
#include <string>

namespace qv {

namespace {

std::string launchPath(const std::optional<Value>& tool) {
    checkField(field::kTool, tool);
    return std::string(tool->asString());
}

[[noreturn]] void refuseLaunch(std::string_view path, int errorNumber) {
    throw Exception(
        std::string(exception_name::kInvalidArgument),
        fmt::format("launch path not accessible: {}: {}", path, errnoText(errorNumber)));
}

// A script may refer to one long text any number of times, and each copy here is a text of its own.
std::vector<std::string> argumentList(std::string_view path,
                                      const std::optional<Value>& arguments) {
    constexpr std::size_t kMostBytes = std::size_t{6} << 20U; // the kernel takes no more
    std::vector<std::string> list;
    std::size_t bytes = 0;
    checkField(field::kArguments, arguments);
    if (!arguments || arguments->isNull()) {
        return list;
    }
    for (const Value& argument : arguments->asArray()) {
        if (!argument.is(Value::Kind::string)) {
            throw Exception(std::string(exception_name::kInvalidArgument),
                            fmt::format("\"{}\" of the step holds {}; it must be {}",
                                        stepKeyName(field::kArguments.key),
                                        kindText(argument.kind()),
                                        infoOf(field::kArguments.kind).wanted));
        }
        bytes += argument.asString().size() + 1;
        if (bytes > kMostBytes) {
            refuseLaunch(path, E2BIG);
        }
        list.emplace_back(argument.asString());
    }
    return list;
}

// The task reports all other faults of the path, which needs no descriptor.
void refuseLedAstray(const std::string& path) {
    const tl::expected<Descriptor, int> item = holdItem(path, LastLink::follow);
    if (!item && item.error() == ELOOP) {
        refuseLaunch(path, ELOOP);
    }
}

Error runTool(const std::optional<Value>& tool, const std::optional<Value>& arguments) {
    const auto shown = [](const std::optional<Value>& value) {
        return description(value ? &*value : nullptr);
    };
    const std::string path = launchPath(tool);
    refuseLedAstray(path);
    Task task;
    task.setLaunchPath(path);
    task.setArguments(argumentList(path, arguments));
    task.launch();
    task.waitUntilExit();
    const int status = task.terminationStatus();
    switch (task.terminationReason()) {
    case TerminationReason::uncaughtSignal:
        return Error::withDescription(
            kCatalogScriptErrorDomain, 0,
            fmt::format("Uncaught signal executing {} {}", shown(tool), shown(arguments)));
    case TerminationReason::exit:
        if (status != 0) {
            return Error::withDescription(kCatalogScriptErrorDomain, status,
                                          fmt::format("Tool exited with code {}: {} {}", status,
                                                      shown(tool), shown(arguments)));
        }
        break;
    }
    return {};
}

} // namespace

Error QVCatalogScript::executeTool(const std::optional<Value>& tool,
                                   const std::optional<Value>& arguments,
                                   const std::optional<Value>& successReturnCodes) {
    return engine_->perform(OperationCode::executeTool, {tool, arguments, successReturnCodes},
                            [&] { return runTool(tool, arguments); });
}

} // namespace qv
