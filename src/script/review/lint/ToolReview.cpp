#include "platform/foundation/values/ASCII.h"
#include "platform/foundation/values/Conversions.h"
#include "script/review/lint/Checks.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace qv::review {

namespace {

// Programs to which these characters mean something, or that hand their arguments on to such.
constexpr std::array kReadersOfSyntax = std::to_array<std::string_view>(
    {"[",       "ash",     "awk",  "bash",        "busybox",   "csh",     "dash",    "env",
     "expect",  "expr",    "find", "fish",        "flatpak",   "gawk",    "grep",    "jq",
     "ksh",     "lua",     "mawk", "node",        "perl",      "php",     "psql",    "python",
     "python2", "python3", "rc",   "ruby",        "runuser",   "sed",     "sh",      "sqlite3",
     "ssh",     "su",      "sudo", "systemd-run", "systemctl", "tclsh",   "test",    "tcsh",
     "timeout", "xargs",   "zsh",  "chroot",      "nsenter",   "setpriv", "unshare", "mysql",
     "make",    "curl",    "wget", "echo",        "printf",    "logger"});
// Programs that take the names of files as they stand.
constexpr std::array kFileTools =
    std::to_array<std::string_view>({"cat", "chgrp", "chmod", "chown", "cp", "dpkg", "install",
                                     "ln", "mkdir", "mv", "rm", "rmdir", "rpm", "touch"});

std::string_view nameOfTool(std::string_view path) { return path.substr(path.rfind('/') + 1); }

bool isOneOf(std::span<const std::string_view> names, std::string_view name) {
    return std::ranges::find(names, name) != names.end();
}

// The part of an argument that a shell would not have handed on as it stands; empty for nothing.
std::string_view shellSyntaxIn(std::string_view argument, std::string_view tool) {
    static constexpr std::array<std::string_view, 9> kSigns = {"|",  ">",    ">>", "<", "&&",
                                                               "||", "2>&1", "&",  "2>"};
    if (const auto* sign = std::ranges::find(kSigns, argument); sign != kSigns.end()) {
        return *sign;
    }
    if (argument.starts_with("2>/") || argument.starts_with(">/")) {
        return ">";
    }
    if (argument == "~" || argument.starts_with("~/")) {
        return "~";
    }
    const bool isVariable =
        argument.size() > 1 && argument[0] == '$' &&
        (isLetter(argument[1]) || argument[1] == '_' || argument[1] == '{' || argument[1] == '(');
    if (isVariable) {
        return "$";
    }
    const bool isPattern = argument.starts_with('/') && isOneOf(kFileTools, tool) &&
                           argument.find('*') != std::string_view::npos;
    return isPattern ? "*" : "";
}

void reviewArguments(const ReviewedStep& step, const Field& field, std::string_view tool,
                     Findings& findings) {
    const Value* arguments = step.value(field);
    if (arguments == nullptr || !arguments->is(Value::Kind::array)) {
        return;
    }
    const std::span<const Value> list = arguments->asArray();
    bool hasSyntax = isOneOf(kReadersOfSyntax, tool);
    for (std::size_t i = 0; i < list.size(); ++i) {
        Place place = step.at(field);
        place.element = i;
        if (!list[i].is(Value::Kind::string)) {
            findings.add(Check::argumentNotText, place,
                         {fmt::format("argument {} of the tool is {}, which stops the script",
                                      i + 1, kindText(list[i].kind())),
                          "write it as a text"});
            continue;
        }
        const std::string_view argument = list[i].asString();
        const std::string_view sign = hasSyntax ? "" : shellSyntaxIn(argument, tool);
        if (!sign.empty()) {
            hasSyntax = true; // one finding a step
            findings.add(
                Check::shellSyntax, place,
                {fmt::format("\"{}\" in the argument {} means something to a shell, and {} "
                             "gets it as it stands",
                             sign, inQuotes(argument), inQuotes(tool)),
                 "run /bin/sh with the arguments -c and the command line, or write out "
                 "what is meant"});
        }
    }
}

void reviewPath(const ReviewedStep& step, const Field& field, std::string_view path,
                Findings& findings) {
    if (!path.starts_with('/')) {
        std::string mend = "write the path from the root on, which `command -v NAME` shows";
        if (const auto ofURL = pathOfItem(step.value(field))) {
            mend = fmt::format("write {}", inQuotes(*ofURL));
        }
        findings.add(
            Check::relativeTool, step.at(field),
            {fmt::format("the tool {} is not an absolute path, and no folders are searched "
                         "for it",
                         inQuotes(path)),
             std::move(mend)});
    } else if (const std::size_t blank = path.find(" -"); blank != std::string_view::npos) {
        findings.add(Check::toolWithArguments, step.at(field),
                     {fmt::format("{} is the path of the tool, blanks and all", inQuotes(path)),
                      fmt::format("write {}, and the rest as the arguments",
                                  inQuotes(path.substr(0, blank)))});
    }
}

void reviewExitCodes(const ReviewedStep& step, const Field& field, Findings& findings) {
    const Value* codes = step.value(field);
    if (codes == nullptr || codes->isNull()) {
        return;
    }
    const auto isOther = [](const Value& code) { return wholeNumber(code).value_or(0) != 0; };
    const bool listsOthers = codes->is(Value::Kind::array)
                                 ? std::ranges::any_of(codes->asArray(), isOther)
                                 : isOther(*codes);
    if (listsOthers) {
        findings.add(
            Check::successCodes, step.at(field),
            {"a tool that ends with another status than 0 has failed, whatever the success "
             "codes are",
             "write (0), and let errors pass for this step by an error behaviour of 1"});
    }
}

} // namespace

void reviewTool(const ReviewedStep& step, Findings& findings) {
    std::string_view tool;
    for (const Field& field : step.operation->fields) {
        const Value* value = step.value(field);
        const bool isText = value != nullptr && value->is(Value::Kind::string);
        if (field.kind == FieldKind::toolPath && isText) {
            tool = nameOfTool(value->asString());
            reviewPath(step, field, value->asString(), findings);
        } else if (field.kind == FieldKind::arguments) {
            reviewArguments(step, field, tool, findings);
        } else if (field.kind == FieldKind::exitCodes) {
            reviewExitCodes(step, field, findings);
        }
    }
}

} // namespace qv::review
