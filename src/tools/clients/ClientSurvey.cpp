#include "tools/clients/ClientSurvey.h"

#include "platform/foundation/log/Log.h"
#include "platform/security/install/MarkedPrograms.h"
#include "tools/terminal/Input.h"

#include <fmt/core.h>

#include <algorithm>
#include <set>

namespace qv::tools {

namespace {

const std::vector<std::string> kFolders = {"/usr", "/usr/local", "/opt", "/srv"};

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

} // namespace

ClientSurvey surveyOf(const ProgramJudge& judge, const std::vector<std::string>& folders) {
    ClientSurvey survey{
        .folders = folders.empty() ? kFolders : folders, .programs = {}, .faults = judge.faults()};
    const auto group = judge.configuration().clientGroup;
    if (!group) {
        survey.faults.push_back({"client group", ClientVerification::clientGroupReason(),
                                 "run systemd-sysusers, once the service is installed"});
        return survey;
    }
    std::set<std::string> paths; // a folder may lie in another one
    for (const std::string& folder : survey.folders) {
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

} // namespace qv::tools
