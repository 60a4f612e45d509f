#include "client/QVCatalogHelperClient.h"
#include "platform/foundation/log/Log.h"
#include "tools/Commands.h"
#include "tools/Terminal.h"

#include <CLI/CLI.hpp>
#include <fmt/core.h>

#include <algorithm>
#include <csignal>
#include <exception>
#include <functional>

namespace {

using namespace qv::tools; // NOLINT(google-build-using-namespace): the commands are all that is
                           // here

using Command = std::function<ExitStatus()>;

void addRun(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<RunOptions>();
    options->socketPath = qv::QVCatalogHelperClient::defaultSocketPath();
    CLI::App* command =
        app.add_subcommand("run", "Send a script to the service and show how it went");
    command
        ->add_option("FILE", options->file,
                     "the script, a property list in any encoding; - for standard input")
        ->required();
    command->add_option("--socket", options->socketPath, "where the service listens")
        ->capture_default_str();
    command->add_flag("--json", options->json, "print the outcome as JSON");
    command->callback([&chosen, options] { chosen = [options] { return run(*options); }; });
}

void addSign(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<SignOptions>();
    CLI::App* command =
        app.add_subcommand("sign", "Sign a program, replacing the signature that it has");
    command->add_option("FILE", options->file, "the program, an ELF file")->required();
    command
        ->add_option("--identifier", options->identifier,
                     "signing identifier, e.g. com.example.Tool")
        ->required();
    command->add_option("--certificate", options->certificate, "the signer's certificate, PEM")
        ->required();
    command->add_option("--key", options->key, "its private key, PEM, readable by its owner only")
        ->required();
    command->add_option("--intermediate", options->intermediates,
                        "certificates between it and the anchor, PEM");
    command
        ->add_option("--team", options->team,
                     "team identifier, the organisational unit of the certificate")
        ->required();
    command
        ->add_option("--flags", options->flags,
                     "hard, kill, runtime, restrict, library-validation, expires")
        ->delimiter(',');
    command->add_option("--entitlements", options->entitlements,
                        "property list with the entitlements");
    command->add_option("--info", options->info, "property list with the information dictionary");
    command->add_option("--platform", options->platform, "platform number");
    command->callback([&chosen, options] { chosen = [options] { return sign(*options); }; });
}

void addVerify(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<VerifyOptions>();
    CLI::App* command = app.add_subcommand(
        "verify", "Tell whether the service would accept a program, and why not");
    auto* file = command->add_option("FILE", options->file, "a program on disk");
    auto* pid = command->add_option("--pid", options->pid, "a running process instead");
    file->excludes(pid);
    command->add_flag("--explain", options->explain,
                      "print every fact that counted, and what to change about it");
    command->add_option("--requirement", options->requirement,
                        "instead of the one that the service demands");
    command->add_flag("--json", options->json, "print the findings as JSON");
    command->callback([&chosen, options] { chosen = [options] { return verify(*options); }; });
}

void addInstallClient(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<InstallClientOptions>();
    CLI::App* command = app.add_subcommand(
        "install-client", "Install a signed program as a client of the service: a file of root, "
                          "set-group-id to the client group");
    command->add_option("FILE", options->file, "the signed program")->required();
    command->add_option("DESTINATION", options->destination,
                        "the file that it becomes; FILE itself when left out");
    command->add_flag("--json", options->json, "print the outcome as JSON");
    command->footer("Needs root. Never install an interpreter, or anything else that carries out "
                    "what its caller hands it: its callers would speak as the client.");
    command->callback(
        [&chosen, options] { chosen = [options] { return installClient(*options); }; });
}

void addClients(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<ClientsOptions>();
    CLI::App* command = app.add_subcommand(
        "clients", "Show the allowed clients, and the installed programs that carry the mark");
    command->add_option("--in", options->folders,
                        "folders to look for installed programs in; /usr, /usr/local, /opt and "
                        "/srv when left out");
    command->add_flag("--json", options->json, "print as JSON");
    command->callback([&chosen, options] { chosen = [options] { return clients(*options); }; });
}

void addPlist(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<PlistOptions>();
    CLI::App* command = app.add_subcommand("plist", "Validate a property list, or convert it");
    command
        ->add_option("FILE", options->file, "a property list in any encoding; - for standard input")
        ->required();
    command->add_option("--to", options->to, "xml, binary or json")
        ->check(CLI::IsMember({"xml", "binary", "json"}));
    command->add_option("-o,--output", options->output,
                        "where to write; standard output when left out");
    command->add_flag("--archive", options->archive,
                      "decode a keyed archive; shown as JSON unless --to says otherwise");
    command->callback([&chosen, options] { chosen = [options] { return plist(*options); }; });
}

void addPreferences(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<PreferencesOptions>();
    CLI::App* command = app.add_subcommand("preferences", "Look at the preferences of programs");
    command->require_subcommand(1);
    CLI::App* read = command->add_subcommand(
        "read", "Print the values of a domain, or one of them, as a property list; status 1 when "
                "there is none");
    read->add_option("DOMAIN", options->domain,
                     "an application's identifier, or kCFPreferencesAnyApplication")
        ->required();
    read->add_option("KEY", options->key, "the value under this key alone");
    read->add_option("--user", options->user,
                     "a user's name, or any; the current user when left out");
    read->add_option("--host", options->host, "any, current, or a name")->capture_default_str();
    read->add_flag("--json", options->json, "print as JSON");
    read->callback(
        [&chosen, options] { chosen = [options] { return readPreferences(*options); }; });
}

void addRequirement(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<RequirementOptions>();
    CLI::App* command = app.add_subcommand(
        "requirement", "Compile a code requirement and print its canonical text and tree");
    command->add_option("TEXT", options->text, "the requirement")->required();
    command->add_flag("--json", options->json, "print as JSON");
    command->callback([&chosen, options] { chosen = [options] { return requirement(*options); }; });
}

void addRule(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<RuleOptions>();
    CLI::App* command = app.add_subcommand(
        "rule", "Evaluate a rule of conditional blocks on this machine; status 1 when it is false, "
                "2 when it has no value");
    command->add_option("RULE", options->rule, "the rule; - for standard input");
    command->add_option("--set", options->settings,
                        "NAME=VALUE: a value that the rule may name; a number, true, false, or "
                        "text, which may stand in double quotes");
    command->add_option("--value", options->value,
                        "print what a single call \"${...}\" or key path gives instead");
    command->add_flag("--explain", options->explain,
                      "print the calls, the text without them, and its tree");
    command->add_flag("--json", options->json, "print as JSON");
    command->callback([&chosen, options] { chosen = [options] { return rule(*options); }; });
}

void addApplication(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<ApplicationOptions>();
    CLI::App* command = app.add_subcommand(
        "application", "Print where an application is: its bundle or desktop entry; status 1 when "
                       "there is none");
    auto* identifier = command->add_option("IDENTIFIER", options->identifier,
                                           "a bundle's, or a desktop entry's; in any case");
    auto* name = command->add_option("--name", options->name,
                                     "instead: the name that people see, or that of its file");
    identifier->excludes(name);
    command->add_option("--user", options->user, "look as the service does for this user");
    command->add_flag("--json", options->json, "print as JSON");
    command->callback([&chosen, options] { chosen = [options] { return application(*options); }; });
}

void addVersion(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<VersionOptions>();
    CLI::App* command = app.add_subcommand(
        "version", "Compare two versions; -1: A is older than B, 0: the same, 1: newer");
    command->add_option("A", options->version, "a version, e.g. 10.6.8")->required();
    command->add_option("B", options->other, "another one")->required();
    command->callback([&chosen, options] { chosen = [options] { return version(*options); }; });
}

void addTrust(CLI::App& app, Command& chosen) {
    CLI::App* trust = app.add_subcommand(
        "trust", "Show, check and revoke the trust that was granted to programs");
    trust->require_subcommand(1);
    auto listing = std::make_shared<TrustListOptions>();
    CLI::App* list = trust->add_subcommand("list", "Show the programs that are trusted");
    list->add_flag("--json", listing->json, "print as JSON");
    list->callback([&chosen, listing] { chosen = [listing] { return trustList(*listing); }; });

    auto checking = std::make_shared<TrustCheckOptions>();
    CLI::App* check = trust->add_subcommand(
        "check", "Tell whether a program is trusted, and why not; status 1 when it is not, 2 when "
                 "that cannot be found out");
    auto* path = check->add_option("PATH", checking->path, "a program on disk");
    auto* pid = check->add_option("--pid", checking->pid, "a running process instead");
    path->excludes(pid);
    check->callback([&chosen, checking] { chosen = [checking] { return trustCheck(*checking); }; });

    auto revoking = std::make_shared<TrustRevokeOptions>();
    CLI::App* revoke =
        trust->add_subcommand("revoke", "Take trust away from a program (root only)");
    revoke->add_option("PATH", revoking->path, "as list shows it; the file may be gone")
        ->required();
    revoke->callback(
        [&chosen, revoking] { chosen = [revoking] { return trustRevoke(*revoking); }; });
}

int parseAndRun(int count, const char* const* arguments) {
    CLI::App app(
        "Works with QVCatalogHelperXPC, the service that carries out installation scripts.",
        "qvcatalog");
    app.set_version_flag("--version", QV_VERSION);
    app.require_subcommand(1);
    app.footer(
        "Exit status: 0 success, 1 failed, 2 usage, 3 refused by or no connection to the service.");
    Command chosen;
    addRun(app, chosen);
    addSign(app, chosen);
    addInstallClient(app, chosen);
    addVerify(app, chosen);
    addClients(app, chosen);
    addPlist(app, chosen);
    addPreferences(app, chosen);
    addRequirement(app, chosen);
    addRule(app, chosen);
    addApplication(app, chosen);
    addVersion(app, chosen);
    addTrust(app, chosen);
    try {
        app.parse(count, arguments);
    } catch (const CLI::Success& success) {
        return app.exit(success); // --help, --version
    } catch (const CLI::ParseError& error) {
        const std::vector<std::string> unknown = app.remaining();
        complain(app.get_subcommands().empty() && !unknown.empty()
                     ? fmt::format("unknown command \"{}\"", unknown.front())
                     : error.what());
        return static_cast<int>(ExitStatus::usage);
    }
    return static_cast<int>(chosen());
}

} // namespace

int main(int count, char** arguments) {
    std::signal(SIGPIPE, SIG_IGN); // NOLINT(cert-err33-c): cannot fail for this signal
    qv::log::open("qvcatalog", qv::log::Destination::nowhere);
    try {
        return parseAndRun(count, arguments);
    } catch (const std::exception& exception) {
        complain(exception.what());
        return static_cast<int>(ExitStatus::failed);
    }
}
