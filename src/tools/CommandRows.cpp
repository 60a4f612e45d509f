#include "tools/CommandRows.h"

#include "tools/CommandTree.h"
#include "tools/DescribeCommand.h"
#include "tools/clients/ClientCommands.h"
#include "tools/machine/MachineCommands.h"
#include "tools/scripts/ScriptCommands.h"

#include <CLI/CLI.hpp>

#include <array>
#include <memory>
#include <span>

namespace qv::tools {

namespace {

void addBuild(CLI::App& command, Command& chosen) {
    auto options = std::make_shared<BuildOptions>();
    command
        .add_option("FILE", options->file,
                    "the script, JSON with comments or a property list; - for standard input")
        ->required();
    command.add_option("--to", options->to, "xml or binary")
        ->type_name("FORMAT")
        ->check(CLI::IsMember({"xml", "binary"}))
        ->capture_default_str();
    command
        .add_option("-o,--output", options->output, "where to write; standard output when left out")
        ->type_name("FILE");
    command.add_flag("--json", options->json,
                     "print the exact steps, or with -o what was written, as JSON");
    command.callback([&chosen, options] { chosen = [options] { return build(*options); }; });
}

void addShow(CLI::App& command, Command& chosen) {
    auto options = std::make_shared<ShowOptions>();
    command.add_option("FILE", options->file, "the script, in any encoding; - for standard input")
        ->required();
    command
        .add_option("-o,--output", options->output, "where to write; standard output when left out")
        ->type_name("FILE");
    command.add_flag("--names", options->names,
                     "users and groups by the names that they have on this machine");
    command.add_flag("--keep-texts", options->keepTexts,
                     "leave the texts that stand for numbers in an old-style list; what is built "
                     "from that is the same list");
    command.add_flag("--json", options->json, "the answer is JSON; a failure is, too");
    command.callback([&chosen, options] { chosen = [options] { return show(*options); }; });
}

void addSchema(CLI::App& command, Command& chosen) {
    command.add_flag("--json")->description("the answer is JSON");
    command.callback([&chosen] { chosen = [] { return schema(); }; });
}

void addNew(CLI::App& command, Command& chosen) {
    auto options = std::make_shared<NewOptions>();
    command.add_option("FILE", options->file,
                       "where to write, and must not exist; standard output when left out");
    command.add_flag("--json", options->json, "print what was written as JSON");
    command.callback([&chosen, options] { chosen = [options] { return newScript(*options); }; });
}

void addLint(CLI::App& command, Command& chosen) {
    auto options = std::make_shared<LintCommandOptions>();
    command.add_option("FILE", options->files, "scripts; - for standard input")->required();
    command
        .add_option("--allow", options->allow, "the name of a check whose findings do not count")
        ->type_name("CHECK")
        ->allow_extra_args(false);
    command.add_flag("--strict", options->strict, "warnings count as errors do");
    command.add_flag("--json", options->json, "print as JSON");
    command.callback([&chosen, options] { chosen = [options] { return lintScripts(*options); }; });
}

void addPlan(CLI::App& command, Command& chosen) {
    auto options = std::make_shared<PlanCommandOptions>();
    command.add_option("FILE", options->file, "the script; - for standard input")->required();
    command.add_flag("--diff", options->diff, "show the items that change, before and after");
    command.add_flag("--all", options->all, "the same, all of them");
    command
        .add_option("--root", options->root,
                    "plan for another machine, of whose files this folder holds a copy")
        ->type_name("FOLDER");
    command.add_flag("--json", options->json, "print as JSON");
    command.footer("Exit status: 0 nothing would change; 10 something would, or may; 1 the script "
                   "would stop at an error; 3 it has a mistake.");
    command.callback([&chosen, options] { chosen = [options] { return plan(*options); }; });
}

void addSign(CLI::App& command, Command& chosen) {
    auto options = std::make_shared<SignOptions>();
    command.add_option("FILE", options->file, "the program, an ELF file")->required();
    command
        .add_option("--identifier", options->identifier,
                    "signing identifier, e.g. com.example.Tool")
        ->type_name("IDENTIFIER")
        ->required();
    command.add_option("--certificate", options->certificate, "the signer's certificate, PEM")
        ->type_name("FILE")
        ->required();
    command.add_option("--key", options->key, "its private key, PEM, readable by its owner only")
        ->type_name("FILE")
        ->required();
    command
        .add_option("--intermediate", options->intermediates,
                    "certificates between it and the anchor, PEM")
        ->type_name("FILE");
    command
        .add_option("--team", options->team,
                    "team identifier, the organisational unit of the certificate")
        ->type_name("TEAM")
        ->required();
    command
        .add_option("--flags", options->flags,
                    "hard, kill, runtime, restrict, library-validation, expires")
        ->type_name("FLAGS")
        ->delimiter(',');
    command
        .add_option("--entitlements", options->entitlements, "property list with the entitlements")
        ->type_name("FILE");
    command.add_option("--info", options->info, "property list with the information dictionary")
        ->type_name("FILE");
    command.add_option("--platform", options->platform, "platform number")->type_name("NUMBER");
    command.add_flag("--json", options->json, "print as JSON");
    command.callback([&chosen, options] { chosen = [options] { return sign(*options); }; });
}

void addVerify(CLI::App& command, Command& chosen) {
    auto options = std::make_shared<VerifyOptions>();
    auto* file = command.add_option("FILE", options->file, "a program on disk");
    auto* pid =
        command.add_option("--pid", options->pid, "a running process instead")->type_name("PID");
    file->excludes(pid);
    command.add_flag("--explain", options->explain,
                     "print every fact that counted, and what to change about it");
    command.add_option("--requirement", options->requirement,
                       "instead of the one that the service demands");
    command.add_flag("--json", options->json, "print the findings as JSON");
    command.callback([&chosen, options] { chosen = [options] { return verify(*options); }; });
}

void addInstallClient(CLI::App& command, Command& chosen) {
    auto options = std::make_shared<InstallClientOptions>();
    command.add_option("FILE", options->file, "the signed program")->required();
    command.add_option("DESTINATION", options->destination,
                       "the file that it becomes; FILE itself when left out");
    command.add_flag("--json", options->json, "print the outcome as JSON");
    command.footer("Needs root. Never install an interpreter, or anything else that carries out "
                   "what its caller hands it: its callers would speak as the client.");
    command.callback(
        [&chosen, options] { chosen = [options] { return installClient(*options); }; });
}

void addClients(CLI::App& command, Command& chosen) {
    auto options = std::make_shared<ClientsOptions>();
    command
        .add_option("--in", options->folders,
                    "folders to look for installed programs in; /usr, /usr/local, /opt and "
                    "/srv when left out")
        ->type_name("FOLDER");
    command
        .add_option("--configuration", options->configuration,
                    "anchors.d and clients.d in this folder instead of /etc/qvcatalog: is it free "
                    "of faults before it goes there?")
        ->type_name("FOLDER");
    command.add_flag("--json", options->json, "print as JSON");
    command.callback([&chosen, options] { chosen = [options] { return clients(*options); }; });
}

void addPlist(CLI::App& command, Command& chosen) {
    auto options = std::make_shared<PlistOptions>();
    command
        .add_option("FILE", options->file, "a property list in any encoding; - for standard input")
        ->required();
    command.add_option("--to", options->to, "xml, binary or json")
        ->type_name("FORMAT")
        ->check(CLI::IsMember({"xml", "binary", "json"}));
    command
        .add_option("-o,--output", options->output, "where to write; standard output when left out")
        ->type_name("FILE");
    command.add_flag("--archive", options->archive,
                     "decode a keyed archive; shown as JSON unless --to says otherwise");
    command.add_flag("--json", options->json, "whether it is valid, as JSON; with --to, a failure");
    command.callback([&chosen, options] { chosen = [options] { return plist(*options); }; });
}

void addPreferencesRead(CLI::App& command, Command& chosen) {
    auto options = std::make_shared<PreferencesOptions>();
    command
        .add_option("DOMAIN", options->domain,
                    "an application's identifier, or kCFPreferencesAnyApplication")
        ->required();
    command.add_option("KEY", options->key, "the value under this key alone");
    command
        .add_option("--user", options->user,
                    "a user's name, or any; the current user when left out")
        ->type_name("USER");
    command.add_option("--host", options->host, "any, current, or a name")
        ->capture_default_str()
        ->type_name("HOST");
    command.add_flag("--json", options->json, "print as JSON");
    command.callback(
        [&chosen, options] { chosen = [options] { return readPreferences(*options); }; });
}

void addRequirement(CLI::App& command, Command& chosen) {
    auto options = std::make_shared<RequirementOptions>();
    command.add_option("TEXT", options->text, "the requirement")->required();
    command.add_flag("--json", options->json, "print as JSON");
    command.callback([&chosen, options] { chosen = [options] { return requirement(*options); }; });
}

void addRule(CLI::App& command, Command& chosen) {
    auto options = std::make_shared<RuleOptions>();
    command.add_option("RULE", options->rule, "the rule; - for standard input");
    command
        .add_option("--set", options->settings,
                    "NAME=VALUE: a value that the rule may name; a number, true, false, or "
                    "text, which may stand in double quotes")
        ->type_name("NAME=VALUE")
        ->allow_extra_args(false);
    command.add_option("--value", options->value,
                       "print what a single call \"${...}\" or key path gives instead");
    command
        .add_option("--root", options->root,
                    "ask another machine, of whose files this folder holds a copy")
        ->type_name("FOLDER");
    command.add_flag("--explain", options->explain,
                     "print the calls, the text without them, and what became of each part of it");
    command.add_flag("--json", options->json, "print as JSON");
    command.callback([&chosen, options] { chosen = [options] { return rule(*options); }; });
}

void addFacts(CLI::App& command, Command& chosen) {
    auto options = std::make_shared<FactsOptions>();
    command.add_option("WORD", options->words, "only questions with one of these words in them");
    command
        .add_option("--root", options->root,
                    "ask another machine, of whose files this folder holds a copy")
        ->type_name("FOLDER");
    command.add_flag("--native", options->native, "also the kernel's own parameters");
    command.add_flag("--json", options->json, "print as JSON");
    command.footer("Each fact stands as the question that a rule asks. Questions about the host "
                   "application are answered for this command here, and for the service in a "
                   "script.");
    command.callback([&chosen, options] { chosen = [options] { return facts(*options); }; });
}

void addRegistry(CLI::App& command, Command& chosen) {
    auto options = std::make_shared<RegistryOptions>();
    command.add_option("DEVICE", options->device,
                       "one device, by interface, device file, name, path or entry ID: its "
                       "properties, and the rule that asks for it");
    command.add_option("--class", options->className, "devices of a class, e.g. IOMedia")
        ->type_name("CLASS");
    command
        .add_option("--property", options->properties,
                    "NAME or NAME=VALUE: devices that have this property; all that are given")
        ->type_name("PROPERTY")
        ->allow_extra_args(false);
    command.add_option("--plane", options->plane, "the plane of the registry")
        ->type_name("PLANE")
        ->capture_default_str();
    command.add_option("--sysfs", options->sysfs, "a copy of another machine's /sys")
        ->type_name("FOLDER");
    command.add_flag("--properties", options->showProperties, "print the properties too");
    command.add_flag("--watch", options->watch, "follow what comes and goes until Ctrl-C");
    command.add_flag("--json", options->json,
                     "print as JSON; with --watch one value a line for each event");
    command.callback([&chosen, options] { chosen = [options] { return registry(*options); }; });
}

void addApplication(CLI::App& command, Command& chosen) {
    auto options = std::make_shared<ApplicationOptions>();
    auto* identifier = command.add_option("IDENTIFIER", options->identifier,
                                          "a bundle's, or a desktop entry's; in any case");
    auto* name = command
                     .add_option("--name", options->name,
                                 "instead: the name that people see, or that of its file")
                     ->type_name("NAME");
    identifier->excludes(name);
    command.add_option("--user", options->user, "look as the service does for this user")
        ->type_name("USER");
    command.add_flag("--json", options->json, "print as JSON");
    command.callback([&chosen, options] { chosen = [options] { return application(*options); }; });
}

void addExtract(CLI::App& command, Command& chosen) {
    auto options = std::make_shared<ExtractOptions>();
    command.add_option("FILE", options->file, "a ZIP archive (.zip) or a disk image (.dmg)")
        ->required();
    command
        .add_option("--to", options->to,
                    "the folder for its content; a fresh one on FILE's volume when left out")
        ->type_name("FOLDER");
    command.add_flag("--json", options->json, "print as JSON");
    command.callback([&chosen, options] { chosen = [options] { return extract(*options); }; });
}

void addFindBundle(CLI::App& command, Command& chosen) {
    auto options = std::make_shared<FindBundleOptions>();
    command.add_option("ID", options->identifier, "the bundle's identifier, in any case")
        ->required();
    command.add_option("DIR", options->folder, "where to look, folders in it included")->required();
    command.add_flag("--json", options->json, "print as JSON");
    command.callback([&chosen, options] { chosen = [options] { return findBundle(*options); }; });
}

void addScript(CLI::App& command, Command& chosen) {
    auto options = std::make_shared<ScriptOptions>();
    command.add_option("FILE", options->file, "a program in AppleScript, or - for standard input")
        ->required();
    command.add_flag("--check", options->check, "compile it only");
    command.add_flag("--json", options->json, "print as JSON");
    command.callback([&chosen, options] { chosen = [options] { return script(*options); }; });
}

void addVersion(CLI::App& command, Command& chosen) {
    auto options = std::make_shared<VersionOptions>();
    command.add_option("A", options->version, "a version, e.g. 10.6.8")->required();
    command.add_option("B", options->other, "another one")->required();
    command.add_flag("--json", options->json, "print as JSON");
    command.callback([&chosen, options] { chosen = [options] { return version(*options); }; });
}

void addTrustList(CLI::App& command, Command& chosen) {
    auto options = std::make_shared<TrustListOptions>();
    command.add_flag("--json", options->json, "print as JSON");
    command.callback([&chosen, options] { chosen = [options] { return trustList(*options); }; });
}

void addTrustCheck(CLI::App& command, Command& chosen) {
    auto options = std::make_shared<TrustCheckOptions>();
    auto* path = command.add_option("PATH", options->path, "a program on disk");
    auto* pid =
        command.add_option("--pid", options->pid, "a running process instead")->type_name("PID");
    path->excludes(pid);
    command.add_flag("--json", options->json, "print as JSON");
    command.callback([&chosen, options] { chosen = [options] { return trustCheck(*options); }; });
}

void addTrustRevoke(CLI::App& command, Command& chosen) {
    auto options = std::make_shared<TrustRevokeOptions>();
    command.add_option("PATH", options->path, "as list shows it; the file may be gone")->required();
    command.add_flag("--json", options->json, "print as JSON");
    command.callback([&chosen, options] { chosen = [options] { return trustRevoke(*options); }; });
}

void addDescribe(CLI::App& command, Command& chosen) {
    auto options = std::make_shared<DescribeOptions>();
    command.add_option("FORMAT", options->format, "man, operations, bash, fish or zsh")
        ->required()
        ->check(CLI::IsMember({"man", "operations", "bash", "fish", "zsh"}));
    command.add_option("--date", options->date, "of the manual page")->type_name("DATE");
    command.group(""); // not among the commands that are listed
    command.callback([&chosen, &command, options] {
        chosen = [&command, options] {
            return describe(*options, descriptionOf(*command.get_parent()));
        };
    });
}

/// One command, or a group of commands. To add a command, add a row.
struct CommandRow {
    std::string_view name;
    std::string_view help; ///< one line
    /// Gives the command its options and what it calls. Null in a group.
    void (*addOptions)(CLI::App& command, Command& chosen);
    // NOLINTNEXTLINE(readability-redundant-member-init): GCC misses it in initializers
    std::span<const CommandRow> group = {};
};

constexpr std::array kPreferences = std::to_array<CommandRow>({
    {"read", "Print the values of a domain, or one of them, as a property list",
     addPreferencesRead},
});

constexpr std::array kTrust = std::to_array<CommandRow>({
    {"list", "Show the programs that are trusted", addTrustList},
    {"check", "Tell whether a program is trusted, and why not", addTrustCheck},
    {"revoke", "Take trust away from a program (root only)", addTrustRevoke},
});

constexpr std::array kCommands = std::to_array<CommandRow>({
    {"run", "Send a script to the service and show how it went", addRun},
    {"demo", "Have a harmless script carried out, and show its plan, run and record (root only)",
     addDemo},
    {"log", "Show past runs: who had what done, and how it went", addLog},
    {"status", "Show what runs now, for whom and since when, and who waits", addStatus},
    {"doctor", "Look for what keeps the service from working, and tell what to do", addDoctor},
    {"new", "Write a first script, with comments, to start from", addNew},
    {"build", "Make the exact steps of a script that people write", addBuild},
    {"show", "Write a script of exact steps as people write it", addShow},
    {"schema", "Print the JSON Schema of scripts, for editors", addSchema},
    {"lint", "Look for mistakes in scripts", addLint},
    {"plan", "Show what a script would do, without doing it", addPlan},
    {"setup", "Let root use run and demo on this machine (root only)", addSetup},
    {"sign", "Sign a program, replacing the signature that it has", addSign},
    {"install-client", "Install a signed program as a client of the service (root only)",
     addInstallClient},
    {"verify", "Tell whether the service would accept a program, and why not", addVerify},
    {"clients", "Show the allowed clients, and the installed programs that carry the mark",
     addClients},
    {"plist", "Validate a property list, or convert it", addPlist},
    {"preferences", "Look at the preferences of programs", nullptr, kPreferences},
    {"requirement", "Compile a code requirement and print its canonical text and tree",
     addRequirement},
    {"rule", "Evaluate a rule of conditional blocks on this machine", addRule},
    {"facts", "Print what rules can ask of this machine, and the answers", addFacts},
    {"registry", "Show the devices of this machine, follow them, or make a rule for one",
     addRegistry},
    {"application", "Print where an application is: its bundle or desktop entry", addApplication},
    {"extract", "Unpack a ZIP archive or a disk image and print where", addExtract},
    {"find-bundle", "Print where in a folder the bundle of an identifier is", addFindBundle},
    {"script", "Compile and execute a program in AppleScript", addScript},
    {"version", "Compare two versions; -1: A is older than B, 0: the same, 1: newer", addVersion},
    {"trust", "Show, check and revoke the trust that was granted to programs", nullptr, kTrust},
    {"describe", "Print a manual page or a shell's completion of this command", addDescribe},
});

void addCommon(CLI::App& command, CommonOptions& options) {
    const std::string group(kCommonGroup);
    command
        .add_option("--color", options.colours,
                    "auto: on a terminal, unless NO_COLOR is set or TERM is dumb; always or never")
        ->type_name("WHEN")
        ->check(CLI::IsMember({"auto", "always", "never"}))
        ->group(group);
    command
        .add_flag("--quiet", options.quiet,
                  "no progress and no remarks on standard error; run tells of failures only")
        ->group(group);
}

void addCommands(CLI::App& parent, std::span<const CommandRow> rows, Command& chosen,
                 CommonOptions& common) {
    parent.require_subcommand(1);
    for (const CommandRow& row : rows) {
        CLI::App& command = *parent.add_subcommand(std::string(row.name), std::string(row.help));
        if (row.addOptions != nullptr) {
            row.addOptions(command, chosen);
            addCommon(command, common);
        } else {
            addCommands(command, row.group, chosen, common);
        }
    }
}

} // namespace

void addAllCommands(CLI::App& app, Command& chosen, CommonOptions& common) {
    addCommands(app, kCommands, chosen, common);
}

} // namespace qv::tools
