#include "tools/ScriptSource.h"

#include "tools/Input.h"

namespace qv::tools {

std::optional<TextPosition> ScriptSource::positionOf(const Finding& /*finding*/) const {
    return std::nullopt;
}

std::optional<std::string> ScriptSource::allowance(const Finding& /*finding*/) const {
    return std::nullopt;
}

tl::expected<ScriptSource, Failure> readScript(const std::string& file) {
    auto list = readList(file);
    if (!list) {
        return tl::unexpected(Failure{ExitStatus::usage, list.error().reason});
    }
    ScriptSource source;
    source.file = file == "-" ? "standard input" : file;
    source.content = std::move(list->content);
    source.steps = std::move(list->document.root);
    return source;
}

} // namespace qv::tools
