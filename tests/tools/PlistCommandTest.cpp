// qvcatalog as a whole, and its commands that need no service.

#include "tools/Command.h"

namespace qv::test {
namespace {

using testing::HasSubstr;

TEST(CommandLine, HelpAndVersionAreAnswered) {
    const ProgramRun help = qvcatalog({"--help"});
    EXPECT_THAT(help, Succeeds());
    EXPECT_THAT(help.output, HasSubstr("Exit status: 0 success"));
    for (const char* command : {"run", "sign", "verify", "plist", "requirement"}) {
        EXPECT_THAT(help.output, HasSubstr(command));
        const ProgramRun own = qvcatalog({command, "--help"});
        EXPECT_THAT(own, Succeeds());
        EXPECT_THAT(own.output, HasSubstr("Usage: qvcatalog " + std::string(command)));
    }
    const ProgramRun version = qvcatalog({"--version"});
    EXPECT_THAT(version, Succeeds());
    EXPECT_EQ(version.output, QV_VERSION "\n");
}

TEST(CommandLine, ListsItsCommandsWithoutArguments) {
    const ProgramRun all = qvcatalog({});
    EXPECT_EQ(all.status, 2);
    EXPECT_EQ(all.output, "");
    EXPECT_THAT(all.errors, HasSubstr("\n  qvcatalog run  "));
    EXPECT_THAT(all.errors, HasSubstr("\n  qvcatalog trust revoke  "));
    EXPECT_THAT(qvcatalog({"trust"}).errors, HasSubstr("\n  qvcatalog trust check  "));
}

TEST(CommandLine, FailuresAreJSONWhereWanted) {
    const std::vector<std::pair<int, std::vector<std::string>>> rows = {
        {2, {"run", "/no/such/file"}},
        {2, {"run"}},
        {3, {"run", "/dev/stdin", "--socket", "/no/such/socket"}},
        {2, {"verify", "/no/such/file"}},
        {2, {"verify", "--pid", "one"}},
        {1, {"install-client", "/no/such/file"}},
        {1, {"preferences", "read", "org.example.none"}},
        {1, {"requirement", "and"}},
        {2, {"rule", "1 =="}},
        {1, {"application", "org.example.none"}},
        {2, {"application"}},
        {2, {"trust", "list", "--lots"}},
    };
    for (auto [status, arguments] : rows) {
        arguments.emplace_back("--json");
        const ProgramRun run = qvcatalog(arguments, "()");
        EXPECT_EQ(run.status, status) << arguments.front();
        EXPECT_EQ(run.errors, "") << arguments.front();
        EXPECT_THAT(run.output,
                    testing::AllOf(testing::StartsWith("{\n"), testing::EndsWith("\n}\n"),
                                   HasSubstr("\n  \"error\": \"")))
            << arguments.front();
    }
}

TEST(CommandLine, NamesAnOutputThatCannotBeWritten) {
    for (const char* command : {"plist - --to xml", "plist -", "requirement true", "rule 1==1",
                                "version 1 2", "trust list --json", "run --help", "--version"}) {
        for (const auto& [output, why] : {std::pair("/dev/full", "standard output: No space"),
                                          {"&-", "standard output: Bad"}}) {
            EXPECT_THAT(
                runProgram({"/bin/bash", "-c",
                            std::string("exec \"$0\" ") + command + " >" + output, QV_COMMAND},
                           "()"),
                FailsWith(2, why))
                << command;
        }
    }
}

TEST(CommandLine, WrongArgumentsAreToldInOneLine) {
    EXPECT_THAT(qvcatalog({"fly"}), FailsWith(2, "fly"));
    EXPECT_THAT(qvcatalog({"rnu"}), FailsWith(2, "did you mean run?"));
    EXPECT_THAT(qvcatalog({"trust", "lits"}), FailsWith(2, "did you mean list?"));
    EXPECT_THAT(qvcatalog({"run", "-", "--jsno"}), FailsWith(2, "did you mean --json?"));
    EXPECT_THAT(qvcatalog({"plist"}), FailsWith(2, "FILE"));
    EXPECT_THAT(qvcatalog({"plist", "-", "--to", "yaml"}), FailsWith(2, "yaml"));
    EXPECT_THAT(qvcatalog({"plist", "-", "-o", "file"}, "()"), FailsWith(2, "--output needs"));
    EXPECT_THAT(qvcatalog({"verify"}), FailsWith(2, "--pid"));
    EXPECT_THAT(qvcatalog({"verify", "x", "--pid", "1"}), FailsWith(2, "excludes"));
    EXPECT_THAT(qvcatalog({"verify", "--pid", "one"}), FailsWith(2, "--pid"));
    EXPECT_THAT(qvcatalog({"run", "-", "--fast"}), FailsWith(2, "--fast"));
}

class PlistCommand : public testing::Test {
protected:
    std::string file(std::string_view content) {
        return folder_.write("file" + std::to_string(++count_), content);
    }
    TemporaryDirectory folder_;
    int count_ = 0;
};

TEST_F(PlistCommand, ToldEncodingsAreTheFilesOwn) {
    const std::string xml = file("<plist><array><true/></array></plist>");
    EXPECT_EQ(qvcatalog({"plist", xml}).output, xml + ": OK, XML\n");
    const std::string text = file("( a, b )");
    EXPECT_EQ(qvcatalog({"plist", text}).output, text + ": OK, old-style text\n");
    const std::string binary = folder_ / "binary";
    EXPECT_THAT(qvcatalog({"plist", xml, "--to", "binary", "-o", binary}), Succeeds());
    EXPECT_EQ(qvcatalog({"plist", binary}).output, binary + ": OK, binary\n");
    EXPECT_EQ(qvcatalog({"plist", "-"}, "{ a = b; }").output,
              "standard input: OK, old-style text\n");
}

TEST_F(PlistCommand, ConversionsKeepWhatPythonReads) {
    constexpr std::string_view kMixed =
        "<plist><dict><key>text</key><string>Größe 𝄞 &lt;</string><key>number</key><integer>-5"
        "</integer><key>large</key><integer>18446744073709551615</integer><key>real</key><real>0.1"
        "</real><key>yes</key><true/><key>data</key><data>AAEC</data><key>date</key>"
        "<date>2012-05-01T12:30:00Z</date><key>list</key><array><dict/></array></dict></plist>";
    const std::string expected = python("import plistlib,sys\n"
                                        "print(plistlib.loads(sys.stdin.buffer.read()))",
                                        kMixed);
    ASSERT_NE(expected, "");
    for (const char* format : {"xml", "binary"}) {
        const ProgramRun run = qvcatalog({"plist", "-", "--to", format}, kMixed);
        EXPECT_THAT(run, Succeeds());
        EXPECT_EQ(python("import plistlib,sys\nprint(plistlib.loads(sys.stdin.buffer.read()))",
                         run.output),
                  expected)
            << format;
    }
    const ProgramRun json = qvcatalog({"plist", "-", "--to", "json"}, kMixed);
    EXPECT_THAT(json, Succeeds());
    EXPECT_EQ(python("import json,sys\nj=json.load(sys.stdin)\n"
                     "print(j['text'],j['number'],j['large'],j['real'],j['yes'],j['data'],"
                     "j['list'])",
                     json.output),
              "Größe 𝄞 < -5 18446744073709551615 0.1 True {'$data': 'AAEC'} [{}]\n");
}

// Some hundred bytes that refer to a few objects again and again.
TEST_F(PlistCommand, EndlessTextIsRefusedAtOnce) {
    const std::string arrays = "import plistlib,sys\nv='x'\nfor i in range(30): v=[v]*8\n"
                               "sys.stdout.buffer.write(plistlib.dumps(v,fmt=plistlib.FMT_BINARY))";
    const std::string archive =
        "import plistlib,sys\nU=plistlib.UID\n"
        "sys.stdout.buffer.write(plistlib.dumps({'$version':100000,'$archiver':'NSKeyedArchiver',"
        "'$top':{'root':U(1)},'$objects':['$null']+[{'$class':U(32),'NS.objects':[U(i+2)]*8} for i "
        "in range(30)]+['x',{'$classname':'NSArray'}]},fmt=plistlib.FMT_BINARY))";
    const std::string list = python(arrays, "");
    EXPECT_THAT(qvcatalog({"plist", "-"}, list), Succeeds());
    EXPECT_THAT(qvcatalog({"plist", "-", "--to", "binary"}, list), Succeeds());
    for (const char* to : {"json", "xml"}) {
        EXPECT_THAT(qvcatalog({"plist", "-", "--to", to}, list), FailsWith(1, "so often that"));
        EXPECT_THAT(qvcatalog({"plist", "-", "--archive", "--to", to}, python(archive, "")),
                    FailsWith(1, "so often that"));
    }
}

// Minutes, if every key were looked for among those before it.
TEST_F(PlistCommand, ManyKeysBecomeJsonInLinearTime) {
    std::string list = "{";
    for (int i = 0; i < 300'000; ++i) {
        list += "k" + std::to_string(i) + ";";
    }
    const ProgramRun json = qvcatalog({"plist", "-", "--to", "json"}, list + "}");
    EXPECT_THAT(json, Succeeds());
    EXPECT_THAT(json.output, HasSubstr("  \"k299999\": \"k299999\"\n}\n"));
}

TEST_F(PlistCommand, FaultsAreToldWithTheirPlace) {
    EXPECT_THAT(qvcatalog({"plist", "-"}, "<plist>\n<array>\n<dict>"),
                FailsWith(1, "standard input: "));
    EXPECT_THAT(qvcatalog({"plist", "-"}, "<plist>\n<array>\n<dict>"), FailsWith(1, "line 3"));
    EXPECT_THAT(qvcatalog({"plist", "-"}, "( a,\n b"), FailsWith(1, "line 2"));
    EXPECT_THAT(qvcatalog({"plist", "-"}, "bplist00 and no more"), FailsWith(1, "offset"));
    EXPECT_THAT(qvcatalog({"plist", "-"}, std::string(100'000, '(')), FailsWith(1, "line 1"));
    EXPECT_THAT(qvcatalog({"plist", folder_ / "missing"}), FailsWith(2, "missing: "));
    EXPECT_THAT(qvcatalog({"plist", folder_.path()}), FailsWith(2, "directory"));
    const std::string url = file("<plist><dict><key>a\x1b[31m</key></dict></plist>");
    EXPECT_EQ(qvcatalog({"plist", url}).errors.find('\x1b'), std::string::npos) << "reached us";
}

TEST_F(PlistCommand, AFileStaysWhenItsReplacementFails) {
    const std::string kept = file("( kept )");
    constexpr std::string_view kNullList = // XML has no null
        "bplist00\0\x08\0\0\0\0\0\0\x01\x01\0\0\0\0\0\0\0\x01\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x09";
    EXPECT_THAT(
        qvcatalog({"plist", "-", "--to", "xml", "-o", kept}, {kNullList.data(), 8 + 1 + 1 + 32}),
        FailsWith(1, "null"));
    EXPECT_EQ(contentOf(kept), "( kept )");
    EXPECT_THAT(qvcatalog({"plist", kept, "--to", "xml", "-o", folder_ / "no/such/folder"}),
                FailsWith(2, "no/such/folder: "));
}

// Each place is made by commands, and looked at by others after the list (b) was written there.
TEST_F(PlistCommand, OutputKeepsWhatItsPlaceIs) {
    struct Row {
        const char* make;
        const char* look;
        const char* seen; ///< a failure leaves things so; then `why` is told
        const char* why = "";
    };
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root, for owners and devices";
    }
    const std::vector<Row> rows = {
        {"umask 027", "stat -c %a:%F place", "640:regular file"},
        {"echo old >place; chmod 2604 place", "stat -c %a:%u place", "2604:0"},
        {"echo old >place; chown 65534:65533 place; chmod 4711 place", "stat -c %a:%u:%g place",
         "4711:65534:65533"},
        {"echo old >real; ln real other; ln -s real place",
         "readlink place; cat other; grep -c /plist real", "real\nold\n1"},
        {"mkdir sub; ln -s link place; ln -s sub/new link", "readlink place; ls sub", "link\nnew"},
        {"mkfifo place; (cat place >heard) & disown",
         "timeout 20 bash -c 'until grep -q /plist heard; do :; done'; stat -c %F place", "fifo"},
        {"mknod place c 1 3", "stat -c %F:%t:%T place", "character special file:1:3"},
        {"mknod device c 1 7; ln -s device place", "stat -c %F:%t:%T device; readlink place",
         "character special file:1:7\ndevice", "No space left"},
        {"mkdir place", "stat -c %F place", "directory", "directory"},
        {"ln -s place place", "readlink place", "place", "symbolic links"},
        {"python3 -c 'import socket; socket.socket(socket.AF_UNIX).bind(\"place\")'",
         "stat -c %F place", "socket", "not supported"},
        {"echo old >place; ulimit -f 0; trap '' XFSZ", "cat place; ls -A", "old\nplace",
         "too large"},
        {"ulimit -f 0; trap '' XFSZ", "ls -A", "", "too large"},
    };
    for (const auto& [make, look, seen, why] : rows) {
        const TemporaryDirectory folder;
        const auto in = [&](const std::string& commands) {
            return runProgram(
                {"/bin/bash", "-c", "cd \"$1\"; " + commands, "bash", folder.path(), QV_COMMAND},
                "(b)", {"PATH=/usr/bin:/bin"});
        };
        const ProgramRun run = in(std::string(make) + "; exec \"$2\" plist - --to xml -o place");
        if (*why == '\0') {
            EXPECT_THAT(run, Succeeds()) << make;
        } else {
            EXPECT_THAT(run, FailsWith(2, why)) << make;
        }
        EXPECT_EQ(in(look).output, std::string(seen) + (*seen == '\0' ? "" : "\n")) << make;
    }
}

TEST_F(PlistCommand, ArchivesAreDecodedAndUnknownClassesNamed) {
    const std::string make = "import plistlib,sys\n"
                             "U=plistlib.UID\n"
                             "sys.stdout.buffer.write(plistlib.dumps({'$version':100000,"
                             "'$archiver':'NSKeyedArchiver','$top':{'root':U(1)},'$objects':["
                             "'$null',{'NS.string':'hello','$class':U(2)},"
                             "{'$classname':'CLASS','$classes':['CLASS','NSObject']}]},"
                             "fmt=plistlib.FMT_BINARY))";
    const auto archive = [&](const std::string& name) {
        std::string program = make;
        for (std::size_t place = 0; (place = program.find("CLASS")) != std::string::npos;) {
            program.replace(place, 5, name);
        }
        return python(program, "");
    };
    const ProgramRun good = qvcatalog({"plist", "-", "--archive"}, archive("NSMutableString"));
    EXPECT_THAT(good, Succeeds());
    EXPECT_EQ(good.output, "\"hello\"\n");
    const ProgramRun xml =
        qvcatalog({"plist", "-", "--archive", "--to", "xml"}, archive("NSMutableString"));
    EXPECT_THAT(xml.output, HasSubstr("<string>hello</string>"));
    EXPECT_THAT(qvcatalog({"plist", "-", "--archive"}, archive("NSColor")),
                FailsWith(1, "NSColor"));
    EXPECT_THAT(qvcatalog({"plist", "-", "--archive"}, "( no, archive )"),
                FailsWith(1, "the archive is not a dictionary"));
}

// Without a reader there is nobody to tell but the caller, by the status; a signal would tell
// nothing.
TEST_F(PlistCommand, AClosedPipeIsAFailureAndNoSignal) {
    const std::string list = file("( " + std::string(200'000, 'x') + " )");
    const auto statusOf = [](std::vector<std::string> command) {
        command.insert(command.begin(), QV_COMMAND);
        PipeEnds pipe = makePipe();
        pipe.read.reset();
        return StartedProgram({.command = command, .standard = {-1, pipe.write.get(), -1}}).wait();
    };
    EXPECT_EQ(statusOf({"plist", list, "--to", "xml"}), 2);
    EXPECT_EQ(statusOf({"--help"}), 2);
    EXPECT_EQ(statusOf({"plist", "/nowhere"}), 2);
}

class RequirementCommand : public testing::Test {};

TEST_F(RequirementCommand, AGoodTextIsPrintedInItsCanonicalForm) {
    const ProgramRun run = qvcatalog({"requirement", "( identifier a.b   and anchor apple )"});
    EXPECT_THAT(run, Succeeds());
    EXPECT_THAT(run.output, testing::StartsWith("identifier \"a.b\" and anchor apple\n"));
    const ProgramRun json = qvcatalog({"requirement", "identifier a.b", "--json"});
    EXPECT_THAT(json, Succeeds());
    EXPECT_EQ(python("import json,sys\nj=json.load(sys.stdin)\nprint(j['compiles'],j['text'])",
                     json.output),
              "True identifier \"a.b\"\n");
}

// The mark must stand below the character that is meant, whatever stands before it.
TEST_F(RequirementCommand, ABadTextIsShownWithItsPlace) {
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"identifier a.b and nonsense x", "nonsense x"},
        {"anchor apple or", ""},
        {"identifier \"Größe 𝄞\" nonsense", "nonsense"},
        {"identifier a\tand\tnonsense", "nonsense"},
        {"identifier a.b and\n  nonsense\n or x", "nonsense"},
        {"identifier \"" + std::string(300, 'a') + "\" nonsense", "nonsense"},
    };
    for (const auto& [text, piece] : rows) {
        const ProgramRun run = qvcatalog({"requirement", text});
        EXPECT_EQ(run.status, 1) << text;
        EXPECT_EQ(run.output, "");
        const std::string marked = python("import sys\n"
                                          "lines=sys.stdin.read().split('\\n')\n"
                                          "print(len(lines), lines[1][lines[2].index('^'):])",
                                          run.errors);
        EXPECT_EQ(marked, "4 " + piece + "\n") << run.errors;
        const ProgramRun json = qvcatalog({"requirement", text, "--json"});
        EXPECT_EQ(json.status, 1);
        EXPECT_EQ(python("import json,sys\nj=json.load(sys.stdin)\n"
                         "print(j['compiles'],'error' in j)",
                         json.output),
                  "False True\n");
    }
}

} // namespace
} // namespace qv::test
