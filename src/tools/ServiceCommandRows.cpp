#include "client/QVCatalogHelperClient.h"
#include "tools/CommandRows.h"
#include "tools/service/ServiceCommands.h"

#include <CLI/CLI.hpp>

#include <memory>

namespace qv::tools {

void addRun(CLI::App& command, Command& chosen) {
    auto options = std::make_shared<RunOptions>();
    options->socketPath = QVCatalogHelperClient::defaultSocketPath();
    command
        .add_option("FILE", options->file,
                    "the script, as people write it or as exact steps; - for standard input")
        ->required();
    command.add_option("--socket", options->socketPath, "where the service listens")
        ->type_name("PATH")
        ->capture_default_str();
    command
        .add_option("--timeout", options->timeout,
                    "how long to wait for the service, in seconds; the script is carried out all "
                    "the same")
        ->type_name("SECONDS")
        ->check(CLI::PositiveNumber);
    command.add_flag("--json", options->json, "print a line of JSON for each step and the outcome");
    auto* strict = command.add_flag("--strict", options->strict,
                                    "do not send a script in which mistakes are found");
    command.add_flag("--no-lint", options->noLint, "do not look for mistakes")->excludes(strict);
    command.callback([&chosen, options] { chosen = [options] { return run(*options); }; });
}

void addLog(CLI::App& command, Command& chosen) {
    auto options = std::make_shared<LogOptions>();
    command.add_option("RUN", options->run, "one run, by its ID or the beginning of it: its steps");
    command.add_option("--client", options->client, "runs of a client, by name or identifier")
        ->type_name("NAME");
    command.add_option("--user", options->user, "runs on behalf of a user, by name or number")
        ->type_name("USER");
    command
        .add_option("--since", options->since,
                    "runs from then on: \"2026-11-22 14:30\", or 90m, 12h, 7d ago")
        ->type_name("TIME");
    command.add_option("--item", options->item, "runs that touched a path, or what is in it")
        ->type_name("PATH");
    command.add_flag("--failed", options->failed, "runs that failed");
    command.add_option("--last", options->last, "how many of them")
        ->capture_default_str()
        ->type_name("COUNT");
    command.add_flag("--all", options->all, "all of them");
    command.add_option("--journal", options->journal, "a folder of journal files to read instead")
        ->type_name("FOLDER");
    command.add_flag("--json", options->json, "print as JSON");
    command.callback([&chosen, options] { chosen = [options] { return showLog(*options); }; });
}

void addStatus(CLI::App& command, Command& chosen) {
    auto options = std::make_shared<StatusOptions>();
    command.add_option("--journal", options->journal, "a folder of journal files to read instead")
        ->type_name("FOLDER");
    command.add_flag("--json", options->json, "print as JSON");
    command.callback([&chosen, options] { chosen = [options] { return status(*options); }; });
}

void addDoctor(CLI::App& command, Command& chosen) {
    auto options = std::make_shared<DoctorOptions>();
    command.add_flag("--json", options->json, "print as JSON");
    command.callback([&chosen, options] { chosen = [options] { return doctor(*options); }; });
}

void addSetup(CLI::App& command, Command& chosen) {
    auto options = std::make_shared<SetupOptions>();
    command.add_flag("--remove", options->remove,
                     "take it away, and have no upgrade bring it back");
    command.add_flag("--by-package", options->byPackage,
                     "for the scripts of packages: do as the administrator has said before");
    command.add_flag("--json", options->json, "print as JSON");
    command.footer("A copy of this program is signed with a key that nobody has afterwards, and "
                   "allowed as a client that only root can execute. The file "
                   "/etc/qvcatalog/no-root-command keeps packages from making it.");
    command.callback([&chosen, options] { chosen = [options] { return setup(*options); }; });
}

void addDemo(CLI::App& command, Command& chosen) {
    auto options = std::make_shared<DemoOptions>();
    options->socketPath = QVCatalogHelperClient::defaultSocketPath();
    command.add_flag("--keep", options->keep, "leave the folder with what was made in it");
    command.add_option("--socket", options->socketPath, "where the service listens")
        ->type_name("PATH")
        ->capture_default_str();
    command.add_flag("--json", options->json,
                     "print the folder, the plan, the outcome, the files and the record as JSON, "
                     "a value a line");
    command.callback([&chosen, options] { chosen = [options] { return demo(*options); }; });
}

} // namespace qv::tools
