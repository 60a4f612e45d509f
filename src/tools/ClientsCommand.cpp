#include "platform/foundation/log/Log.h"
#include "platform/security/install/AllowedClients.h"
#include "platform/security/install/MarkedPrograms.h"
#include "tools/Commands.h"
#include "tools/Input.h"
#include "tools/Json.h"
#include "tools/ProgramJudge.h"
#include "tools/Terminal.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <set>

namespace qv::tools {

namespace {

using Style = Terminal::Style;

const std::vector<std::string> kFolders = {"/usr", "/usr/local", "/opt", "/srv"};

struct InstalledProgram {
    std::string path;
    bool accepted = false;
    std::string client; // or why it is none
};

struct Survey {
    std::vector<std::string> folders;
    std::vector<InstalledProgram> programs;
    std::vector<ReportFact> faults; // not of one program
};

InstalledProgram judged(const std::string& path, const ProgramJudge& judge) {
    const auto program = openProgram(path);
    if (!program) {
        return {.path = path, .client = reasonOf(program.error())};
    }
    const Findings findings = judge.judge(*program);
    const auto client =
        std::ranges::find(findings.report.identity, std::string("client"), &ReportFact::name);
    return {.path = path,
            .accepted = findings.accepted,
            .client = findings.accepted && client != findings.report.identity.end()
                          ? client->text
                          : findings.verdict};
}

Survey survey(const ProgramJudge& judge, const std::vector<std::string>& folders) {
    Survey survey{.folders = folders, .programs = {}, .faults = judge.faults()};
    const auto group = judge.configuration().clientGroup;
    if (!group) {
        survey.faults.push_back({"client group", ClientVerification::clientGroupReason(),
                                 "run systemd-sysusers, once the service is installed"});
        return survey;
    }
    std::set<std::string> paths; // a folder may lie in another one
    for (const std::string& folder : folders) {
        MarkedPrograms found = findMarkedPrograms(folder, *group);
        paths.insert(found.paths.begin(), found.paths.end());
        for (const auto& [path, error] : found.failures) {
            survey.faults.push_back(
                {"not looked into", fmt::format("{}: {}", log::foreign(path), reasonOf(error))});
        }
    }
    for (const std::string& path : paths) {
        survey.programs.push_back(judged(path, judge));
    }
    return survey;
}

Value jsonOf(const Survey& survey, const AcceptedClients& clients) {
    std::vector<Value> allowed;
    allowed.reserve(clients.names.size());
    for (std::size_t index = 0; index < clients.names.size(); ++index) {
        allowed.push_back(Value::dictionary(
            {{"name", Value::string(clients.names[index])},
             {"builtIn", Value::boolean(index == 0)},
             {"requirement", Value::string(clients.requirements[index].text())}}));
    }
    std::vector<Value> programs;
    programs.reserve(survey.programs.size());
    for (const InstalledProgram& program : survey.programs) {
        programs.push_back(Value::dictionary(
            {{"path", Value::string(log::foreign(program.path))},
             {"accepted", Value::boolean(program.accepted)},
             {program.accepted ? "client" : "reason", Value::string(program.client)}}));
    }
    std::vector<Value> faults;
    faults.reserve(survey.faults.size());
    for (const ReportFact& fault : survey.faults) {
        faults.push_back(Value::string(fmt::format("{}: {}", fault.name, fault.text)));
    }
    return Value::dictionary({{"allowed", Value::array(std::move(allowed))},
                              {"installed", Value::array(std::move(programs))},
                              {"faults", Value::array(std::move(faults))}});
}

void show(const Survey& survey, const ProgramJudge& judge) {
    Terminal& out = Terminal::standardOutput();
    const AcceptedClients& clients = judge.clients();
    out.line(out.styled("Allowed clients:", Style::strong));
    for (std::size_t index = 0; index < clients.names.size(); ++index) {
        const std::string file =
            index == 0 ? ""
                       : fmt::format(" ({}/{}{})", judge.configuration().clientsDirectory,
                                     clients.names[index], AllowedClients::kSuffix);
        out.line(fmt::format("  {}{}", clients.names[index], file));
        out.line(
            out.styled(fmt::format("    {}", clients.requirements[index].text()), Style::plain));
    }
    out.line(out.styled(fmt::format("Installed programs that carry the mark, in {}:",
                                    fmt::join(survey.folders, ", ")),
                        Style::strong));
    for (const InstalledProgram& program : survey.programs) {
        out.line(out.styled(fmt::format("  {}: {}", log::foreign(program.path),
                                        program.accepted
                                            ? fmt::format("accepted as \"{}\"", program.client)
                                            : program.client),
                            program.accepted ? Style::good : Style::bad));
    }
    if (survey.programs.empty()) {
        out.line("  none");
    }
    for (const ReportFact& fault : survey.faults) {
        out.line(out.styled(fmt::format("{}: {}", fault.name, fault.text), Style::bad));
        if (!fault.remedy.empty()) {
            out.line(fmt::format("  remedy: {}", fault.remedy));
        }
    }
}

} // namespace

Result clients(const ClientsOptions& options) {
    auto accepted = acceptedClients();
    if (!accepted) {
        return failure(ExitStatus::failed, accepted.error().description());
    }
    const ProgramJudge judge(std::move(*accepted));
    const Survey found = survey(judge, options.folders.empty() ? kFolders : options.folders);
    if (options.json) {
        Terminal::standardOutput().line(jsonText(jsonOf(found, judge.clients())));
    } else {
        show(found, judge);
    }
    return found.faults.empty() ? ExitStatus::success : ExitStatus::failed;
}

} // namespace qv::tools
