#include "platform/foundation/log/Log.h"
#include "platform/security/install/AllowedClients.h"
#include "tools/clients/ClientCommands.h"
#include "tools/clients/ClientSurvey.h"
#include "tools/clients/ProgramJudge.h"
#include "tools/terminal/Input.h"
#include "tools/terminal/Json.h"
#include "tools/terminal/Terminal.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <filesystem>

namespace qv::tools {

namespace {

using Style = Terminal::Style;

Value jsonOf(const ClientSurvey& survey, const AcceptedClients& clients) {
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
    return withFormat({{Value::string("allowed"), Value::array(std::move(allowed))},
                       {Value::string("installed"), Value::array(std::move(programs))},
                       {Value::string("faults"), Value::array(std::move(faults))}});
}

void show(const ClientSurvey& survey, const ProgramJudge& judge) {
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
    CodeSigningConfiguration configuration = ClientVerification::configuration();
    if (!options.configuration.empty()) {
        std::error_code error;
        const auto folder = std::filesystem::canonical(options.configuration, error);
        if (error) {
            return failure(ExitStatus::usage,
                           fmt::format("{}: {}", options.configuration, error.message()));
        }
        configuration.anchorsDirectory = folder / "anchors.d";
        configuration.clientsDirectory = folder / "clients.d";
    }
    auto accepted = acceptedClients(configuration);
    if (!accepted) {
        return failure(ExitStatus::failed, accepted.error().description());
    }
    const ProgramJudge judge(std::move(*accepted), std::move(configuration));
    const ClientSurvey found = surveyOf(judge, options.folders);
    if (options.json) {
        Terminal::standardOutput().line(jsonText(jsonOf(found, judge.clients())));
    } else {
        show(found, judge);
    }
    return found.faults.empty() ? ExitStatus::success : ExitStatus::failed;
}

} // namespace qv::tools
