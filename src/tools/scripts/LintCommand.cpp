#include "platform/foundation/text/SimilarNames.h"
#include "platform/foundation/values/Value.h"
#include "script/review/lint/Lint.h"
#include "tools/scripts/FindingReport.h"
#include "tools/scripts/ScriptCommands.h"
#include "tools/scripts/ScriptFindings.h"
#include "tools/terminal/Json.h"
#include "tools/terminal/Terminal.h"

#include <fmt/format.h>

#include <algorithm>

namespace qv::tools {

namespace {

/// Looks at one file after the other, and shows each at once or keeps it for JSON.
class LintedFiles {
public:
    explicit LintedFiles(const LintCommandOptions& options) : options_(options) {}

    void add(const std::string& file) {
        const auto source = readScript(file);
        if (!source) {
            unreadable_ = true;
            if (options_.json) {
                files_.push_back(
                    Value::dictionary({{"file", Value::string(file)},
                                       {"error", Value::string(source.error().reason)}}));
            } else {
                complain(source.error().reason);
            }
            return;
        }
        isAnyRead_ = true;
        const ScriptFindings found = findingsOf(*source, options_.allow);
        errors_ += found.errors;
        warnings_ += found.warnings;
        allowed_ += found.allowed;
        if (!options_.json) {
            showFindings(*source, found.findings, Terminal::standardOutput());
            return;
        }
        files_.push_back(Value::dictionary({{"file", Value::string(source->file)},
                                            {"findings", findingsAsValue(*source, found.findings)},
                                            {"allowed", Value::unsignedInteger(found.allowed)}}));
    }

    ExitStatus end() {
        Terminal& out = Terminal::standardOutput();
        if (options_.json) {
            out.line(jsonText(
                withFormat({{Value::string("files"), Value::array(std::move(files_))},
                            {Value::string("errors"), Value::unsignedInteger(errors_)},
                            {Value::string("warnings"), Value::unsignedInteger(warnings_)}})));
        } else if (isAnyRead_) {
            out.line(fmt::format("{}{}.", countText(errors_, warnings_),
                                 allowed_ == 0 ? "" : fmt::format(", {} allowed", allowed_)));
        }
        const bool isFaulty = errors_ > 0 || (options_.strict && warnings_ > 0);
        return unreadable_ ? ExitStatus::usage
               : isFaulty  ? ExitStatus::faulty
                           : ExitStatus::success;
    }

private:
    const LintCommandOptions& options_;
    std::vector<Value> files_;
    std::size_t errors_ = 0;
    std::size_t warnings_ = 0;
    std::size_t allowed_ = 0;
    bool unreadable_ = false;
    bool isAnyRead_ = false;
};

} // namespace

Result lintScripts(const LintCommandOptions& options) {
    std::vector<std::string> known = {std::string(kUnusedAllowance)};
    for (const LintRule& rule : lintRules()) {
        known.emplace_back(rule.name);
    }
    for (const std::string& name : options.allow) {
        if (std::ranges::find(known, name) == known.end()) {
            const std::vector<std::string> similar = similarNames(name, known);
            return failure(ExitStatus::usage,
                           fmt::format("lint: there is no check \"{}\"{}", name,
                                       similar.empty() ? std::string()
                                                       : fmt::format("; did you mean {}?",
                                                                     fmt::join(similar, " or "))));
        }
    }
    LintedFiles files(options);
    for (const std::string& file : options.files) {
        files.add(file);
    }
    return files.end();
}

} // namespace qv::tools
