#include "platform/foundation/configuration/Configuration.h"
#include "platform/foundation/log/Log.h"
#include "platform/foundation/os/ProcessIdentity.h"
#include "platform/foundation/process/state/SocketPeers.h"
#include "tools/service/RunHistory.h"
#include "tools/service/RunText.h"
#include "tools/service/ServiceCommands.h"
#include "tools/terminal/Input.h"
#include "tools/terminal/Json.h"
#include "tools/terminal/Terminal.h"

#include <fmt/core.h>

#include <algorithm>

namespace qv::tools {

namespace {

// A run without an end whose service has ended was cut off.
bool isUnderWay(const RunEntry& run) {
    const auto service = ProcessIdentity::ofPID(static_cast<pid_t>(run.service));
    return run.outcome.empty() && service && !(*service)->hasEnded();
}

tl::expected<std::vector<RunEntry>, Error> runsUnderWay(const std::string& journal) {
    auto all = RunHistory::open(journal, RunHistory::Steps::without);
    auto runs = all ? all->runsSince(0) : tl::unexpected(all.error());
    if (!runs) {
        return runs;
    }
    std::erase_if(*runs, [](const RunEntry& run) { return !isUnderWay(run); });
    if (runs->empty()) {
        return runs;
    }
    auto detailed = RunHistory::open(journal, RunHistory::Steps::with);
    auto recent =
        detailed ? detailed->runsSince(runs->front().begin) : tl::unexpected(detailed.error());
    if (recent) {
        std::erase_if(*recent, [](const RunEntry& run) { return !isUnderWay(run); });
    }
    return recent;
}

void showUnderWay(const RunEntry& run) {
    Terminal& out = Terminal::standardOutput();
    out.line(fmt::format("{}  since {}, for {}, client {} ({}), user {}, process {}", run.run,
                         localTime(run.begin), secondsText(microsecondsNow() - run.begin),
                         log::foreign(run.client), log::foreign(run.identifier), userText(run.user),
                         run.process));
    out.line(run.steps.empty()
                 ? fmt::format("  of {} steps none is recorded yet", run.stepCount)
                 : fmt::format("  {} of {} steps recorded, the last: {}", run.steps.size(),
                               run.stepCount, log::foreign(run.steps.back().text)));
}

// The clients that are connected to the service, but for those of the runs.
tl::expected<ListeningSocket, Error> otherClients(const std::vector<RunEntry>& runs) {
    const std::string path(configuration::kSocketPath);
    auto socket = listeningSocketAt(path);
    if (!socket) {
        return tl::unexpected(socket.error());
    }
    if (!*socket) {
        if (isBoundAt(path).value_or(false)) {
            remark("who is connected is not known: the service's socket is in another network "
                   "namespace");
        }
        return ListeningSocket();
    }
    std::erase_if((*socket)->peers, [&](const SocketPeer& peer) {
        return peer.process && std::ranges::find(runs, static_cast<std::uint64_t>(*peer.process),
                                                 &RunEntry::process) != runs.end();
    });
    return std::move(**socket);
}

// While a script runs, the service may have read another one that has to wait: the kernel does not
// know of that.
bool mayWait(const SocketPeer& peer, bool isBusy) { return isBusy && !peer.isWaiting; }

void showClient(const SocketPeer& peer, bool isBusy) {
    const std::string_view state = mayWait(peer, isBusy) ? "connected, perhaps waiting for its turn"
                                   : peer.isWaiting      ? "waits"
                                                         : "connected";
    Terminal::standardOutput().line(
        fmt::format("{}: {}", state,
                    peer.process ? fmt::format("process {} ({}), user {}", *peer.process,
                                               log::foreign(peer.program), userText(*peer.user))
                                 : std::string("a process that only root can see")));
}

Value clientAsValue(const SocketPeer& peer, bool isBusy) {
    std::vector<std::pair<Value, Value>> pairs = {
        {Value::string("waits"), mayWait(peer, isBusy) ? Value() : Value::boolean(peer.isWaiting)}};
    if (peer.process) {
        pairs.emplace_back(Value::string("process"), Value::integer(*peer.process));
        pairs.emplace_back(Value::string("program"), Value::string(peer.program));
        pairs.emplace_back(Value::string("user"), Value::unsignedInteger(*peer.user));
    }
    return Value::dictionary(std::move(pairs));
}

} // namespace

Result status(const StatusOptions& options) {
    const auto runs = runsUnderWay(options.journal);
    if (!runs) {
        return failure(ExitStatus::usage,
                       fmt::format("the journal cannot be read: {}", reasonOf(runs.error())));
    }
    const auto others = otherClients(*runs);
    if (!others) {
        return failure(
            ExitStatus::usage,
            fmt::format("the kernel does not tell who is connected: {}", reasonOf(others.error())));
    }
    Terminal& out = Terminal::standardOutput();
    if (options.json) {
        std::vector<Value> running;
        for (const RunEntry& run : *runs) {
            running.push_back(runAsValue(run, true));
        }
        std::vector<Value> clients;
        for (const SocketPeer& peer : others->peers) {
            clients.push_back(clientAsValue(peer, !runs->empty()));
        }
        out.line(jsonText(
            Value::dictionary({{"runs", Value::array(std::move(running))},
                               {"clients", Value::array(std::move(clients))},
                               {"unnamedClients", Value::unsignedInteger(others->unnamed)}})));
        return ExitStatus::success;
    }
    if (runs->empty()) {
        out.line("No script runs now.");
    }
    std::ranges::for_each(*runs, showUnderWay);
    for (const SocketPeer& peer : others->peers) {
        showClient(peer, !runs->empty());
    }
    if (others->unnamed > 0) {
        out.line(fmt::format("{} clients wait, more than the kernel can name", others->unnamed));
    }
    return ExitStatus::success;
}

} // namespace qv::tools
