#include "platform/foundation/configuration/Configuration.h"
#include "platform/foundation/log/Log.h"
#include "platform/foundation/os/OwnProgram.h"
#include "platform/foundation/process/state/SocketPeers.h"
#include "platform/foundation/process/state/UserRecord.h"
#include "platform/foundation/process/task/Task.h"
#include "platform/foundation/values/Exception.h"
#include "tools/clients/ClientSurvey.h"
#include "tools/service/RunHistory.h"
#include "tools/service/RunText.h"
#include "tools/service/ServiceCommands.h"
#include "tools/terminal/Input.h"
#include "tools/terminal/Json.h"
#include "tools/terminal/Terminal.h"

#include <fmt/core.h>

#include <algorithm>
#include <filesystem>
#include <grp.h>
#include <unistd.h>

namespace qv::tools {

namespace {

using Style = Terminal::Style;

/// The finding of one look at the machine.
struct Diagnosis {
    enum class State : std::uint8_t { good, warning, fault };
    std::string subject;
    State state = State::good;
    std::string text;
    std::string remedy; // empty: nothing is to be done
};
using State = Diagnosis::State;
using Diagnoses = std::vector<Diagnosis>;

std::string_view stateName(State state) {
    constexpr std::array<std::string_view, 3> kNames = {"ok", "warning", "fault"};
    return kNames.at(static_cast<std::size_t>(state));
}

// The service manager may take a socket for started whose file somebody has removed.
std::string startSockets() {
    return configuration::kIsDevelopment
               ? "packaging/development/service BUILD-FOLDER COMMAND serves while COMMAND runs"
               : fmt::format("as root: systemctl enable {0} && systemctl restart {0}",
                             "com.larkwen.qvcatalog.examiner.socket "
                             "com.larkwen.qvcatalog.helper.socket");
}

// The service's own, and the examiner's beside it.
std::vector<std::string> socketPaths() {
    const std::string service(configuration::kSocketPath);
    std::string examiner = service;
    constexpr std::string_view kOwn = "helper.sock";
    examiner.replace(examiner.size() - std::min(examiner.size(), kOwn.size()), kOwn.size(),
                     "examiner.sock");
    return {service, examiner};
}

// No process listens there in this network namespace; sockets in files are reached from all of
// them.
Diagnosis diagnosisOfSilent(const std::string& path) {
    const auto bound = isBoundAt(path);
    if (!bound) {
        return {"socket", State::warning,
                fmt::format("{}: whether anybody listens is not known: {}", path,
                            reasonOf(bound.error())),
                ""};
    }
    if (*bound) {
        return {"socket", State::good,
                fmt::format("{} is bound in another network namespace: who is connected is not "
                            "known here",
                            path),
                ""};
    }
    return {"socket", State::fault, fmt::format("nobody listens at {}", path), startSockets()};
}

void lookAtSockets(Diagnoses& found) {
    for (const std::string& path : socketPaths()) {
        const auto socket = listeningSocketAt(path);
        if (!socket) {
            found.push_back({"socket", State::warning,
                             fmt::format("{}: the kernel does not tell who listens: {}", path,
                                         reasonOf(socket.error())),
                             ""});
        } else if (!*socket) {
            found.push_back(diagnosisOfSilent(path));
        } else {
            const std::size_t count = (*socket)->peers.size() + (*socket)->unnamed;
            found.push_back({"socket", State::good,
                             fmt::format("{} is listened at{}", path,
                                         count == 0 ? "" : fmt::format(", {} connected", count)),
                             ""});
        }
    }
}

// The version that a program tells of itself; the reason if it tells none.
tl::expected<std::string, std::string> versionTold(const std::string& program) {
    try {
        auto pipe = Pipe::pipe();
        if (!pipe) {
            return tl::unexpected(pipe.error().localizedDescription());
        }
        Task task;
        task.setLaunchPath(program);
        task.setArguments({"--version"});
        task.setStandardOutput(std::move(pipe->fileHandleForWriting));
        task.launch();
        const auto told = readToEnd(pipe->fileHandleForReading.get());
        task.waitUntilExit();
        if (!told || task.terminationStatus() != 0) {
            return tl::unexpected(std::string("it does not tell its version"));
        }
        const std::size_t blank = told->find(' ');
        const std::size_t end = told->find('\n');
        return blank < end ? told->substr(blank + 1, end - blank - 1) : *told;
    } catch (const Exception& exception) {
        return tl::unexpected(exception.reason());
    }
}

void lookAtVersions(Diagnoses& found) {
    const std::filesystem::path folder =
        std::filesystem::path(configuration::kArchiveTool).parent_path();
    for (const char* name :
         {"QVCatalogHelperXPC", "QVCatalogExaminer", "QVCatalogArchiver", "QVCatalogImager"}) {
        const std::string program = folder / name;
        const auto told = versionTold(program);
        if (!told) {
            found.push_back({"version", State::fault, fmt::format("{}: {}", program, told.error()),
                             "install the package qvcatalog-helper"});
        } else if (*told != configuration::kVersion) {
            found.push_back({"version", State::warning,
                             fmt::format("{} is {}, this command is {}", program, *told,
                                         configuration::kVersion),
                             "install packages of one version"});
        } else {
            found.push_back({"version", State::good,
                             fmt::format("{} and this command are {}", program, *told), ""});
        }
    }
}

void lookAtGroup(Diagnoses& found, const ProgramJudge& judge) {
    const std::string name(configuration::kClientGroup);
    if (!judge.configuration().clientGroup) {
        found.push_back({"group", State::fault, fmt::format("there is not a group {}", name),
                         "run systemd-sysusers, once the service is installed"});
        return;
    }
    // NOLINTNEXTLINE(concurrency-mt-unsafe): single-threaded here
    const group* record = ::getgrgid(*judge.configuration().clientGroup);
    if (record != nullptr && *record->gr_mem != nullptr) {
        found.push_back(
            {"group", State::fault,
             fmt::format("{} has the member {}, whose programs pass for clients that "
                         "were started cleanly",
                         name, log::foreign(*record->gr_mem)),
             fmt::format("gpasswd --delete {} {}", log::foreign(*record->gr_mem), name)});
        return;
    }
    found.push_back({"group", State::good,
                     fmt::format("{} marks installed clients and has no members", name), ""});
}

// The anchors, the allowed clients, and what is installed of them.
void lookAtClients(Diagnoses& found, const ProgramJudge& judge) {
    const auto faults = judge.faults();
    for (const ReportFact& fault : faults) {
        found.push_back({fault.name, State::fault, fault.text, fault.remedy});
    }
    if (faults.empty()) {
        found.push_back({"anchors", State::good,
                         fmt::format("{} can be read, and every file in it is valid",
                                     judge.configuration().anchorsDirectory),
                         ""});
    }
    if (!judge.configuration().clientGroup) {
        return;
    }
    const ClientSurvey survey = surveyOf(judge, {});
    for (const InstalledProgram& program : survey.programs) {
        const std::string path = log::foreign(program.path);
        if (program.accepted) {
            found.push_back({"client", State::good,
                             fmt::format("{} is accepted as \"{}\": its scripts have root's rights",
                                         path, program.client),
                             ""});
        } else {
            found.push_back({"client", State::warning,
                             fmt::format("{} carries the mark and is {}", path, program.client),
                             fmt::format("qvcatalog verify --explain {}", path)});
        }
    }
    if (survey.programs.empty()) {
        found.push_back({"client", State::good,
                         "no installed program carries the mark, so the service accepts nobody",
                         ""});
    }
}

// The program that sends the scripts of `qvcatalog run`.
void lookAtSender(Diagnoses& found, const ProgramJudge& judge) {
    const std::string path =
        configuration::kIsDevelopment ? ownProgramPath() : std::string(configuration::kRootCommand);
    const std::string shown = log::foreign(path);
    const auto program = openProgram(path);
    if (!program && program.error().code() == EACCES) {
        found.push_back({"command", State::good, shown + " sends root's scripts", ""});
        return;
    }
    const Findings findings = program ? judge.judge(*program) : Findings{};
    if (findings.accepted) {
        found.push_back({"command", State::good, shown + " may send scripts", ""});
        return;
    }
    found.push_back({"command", State::warning,
                     fmt::format("{} cannot send scripts: {}", shown,
                                 program ? findings.verdict : reasonOf(program.error())),
                     configuration::kIsDevelopment
                         ? "packaging/development/sign BUILD-FOLDER PROGRAM signs it"
                         : "as root: qvcatalog setup"});
}

void lookAtJournal(Diagnoses& found) {
    constexpr std::uint64_t kWeek = 7 * 24 * 3600 * kMicrosecondsOfSecond;
    if (!hasJournal()) {
        const bool hasSyslog =
            ::access(std::string(configuration::kSyslogSocket).c_str(), F_OK) == 0;
        found.push_back({"journal", State::warning,
                         hasSyslog ? "there is no journal: runs are recorded in syslog, which "
                                     "`qvcatalog log` does not read"
                                   : "there is neither journal nor syslog: runs are not recorded",
                         ""});
        return;
    }
    auto history = RunHistory::open({}, RunHistory::Steps::without);
    const auto runs =
        history ? history->runsSince(microsecondsNow() - kWeek) : tl::unexpected(history.error());
    if (!runs) {
        found.push_back({"journal", State::warning,
                         fmt::format("it cannot be read: {}", reasonOf(runs.error())),
                         "be root, or a member of the group systemd-journal"});
        return;
    }
    const auto failed = std::ranges::count(*runs, "failed", &RunEntry::outcome);
    found.push_back({"journal", State::good,
                     fmt::format("it holds {} run{} of the last 7 days, of which {} failed",
                                 runs->size(), runs->size() == 1 ? "" : "s", failed),
                     failed == 0 ? "" : "qvcatalog log --failed --since 7d"});
}

void lookAtTools(Diagnoses& found) {
    const std::string sevenZip(configuration::kSevenZip);
    if (::access(sevenZip.c_str(), X_OK) == 0) {
        found.push_back({"tools", State::good, sevenZip + " reads disk images", ""});
    } else {
        found.push_back({"tools", State::warning,
                         sevenZip + " is missing: disk images that the kernel does not mount "
                                    "cannot be opened",
                         "install the package 7zip"});
    }
}

void lookAtDevices(Diagnoses& found) {
    if (::access("/run/udev/control", F_OK) == 0) {
        found.push_back({"devices", State::good, "the device manager tells of each device", ""});
    } else {
        found.push_back({"devices", State::warning,
                         "no device manager runs: rules see what the kernel knows of a device, and "
                         "not what udev adds",
                         "start systemd-udevd, unless this is a container"});
    }
}

Value diagnosesAsValue(const Diagnoses& found) {
    std::vector<Value> values;
    for (const Diagnosis& each : found) {
        values.push_back(Value::dictionary({{"subject", Value::string(each.subject)},
                                            {"state", Value::string(stateName(each.state))},
                                            {"text", Value::string(each.text)},
                                            {"remedy", Value::string(each.remedy)}}));
    }
    return Value::array(std::move(values));
}

void showDiagnosis(const Diagnosis& found) {
    constexpr std::array kStyles = {Style::good, Style::strong, Style::bad};
    Terminal& out = Terminal::standardOutput();
    out.line(fmt::format("{} {:15} {}",
                         out.styled(fmt::format("{:7}", stateName(found.state)),
                                    kStyles.at(static_cast<std::size_t>(found.state))),
                         found.subject, out.styled(found.text, Style::plain)));
    if (!found.remedy.empty()) {
        out.line(fmt::format("{:24}{}", "", out.styled(found.remedy, Style::plain)));
    }
}

} // namespace

Result doctor(const DoctorOptions& options) {
    Diagnoses found;
    lookAtSockets(found);
    lookAtVersions(found);
    auto accepted = acceptedClients();
    if (accepted) {
        const ProgramJudge judge(std::move(*accepted));
        lookAtSender(found, judge);
        lookAtGroup(found, judge);
        lookAtClients(found, judge);
    } else {
        found.push_back({"client", State::fault, accepted.error().description(), ""});
    }
    lookAtJournal(found);
    lookAtTools(found);
    lookAtDevices(found);
    if (options.json) {
        Terminal::standardOutput().line(jsonText(diagnosesAsValue(found)));
    } else {
        std::ranges::for_each(found, showDiagnosis);
    }
    return std::ranges::count(found, State::fault, &Diagnosis::state) == 0 ? ExitStatus::success
                                                                           : ExitStatus::failed;
}

} // namespace qv::tools
