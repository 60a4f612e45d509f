// What is in the files: whether others read it, what of the old content stays, and what is refused.

#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/plist/PropertyList.h"
#include "platform/foundation/values/URL.h"
#include "platform/preferences/Support.h"

#include <fmt/core.h>

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace qv::test {
namespace {

using testing::HasSubstr;

class StoredFilesTest : public PreferencesTest {
protected:
    [[nodiscard]] std::string content() const { return contentOf(file_); }
    void put(std::string_view bytes) const { // NOLINT(modernize-use-nodiscard): the write counts
        folder_.write("home/.config/a.plist", bytes);
    }
    // What identifies the very file, and whether it was written.
    [[nodiscard]] struct stat state() const {
        struct stat info{};
        EXPECT_EQ(::lstat(file_.c_str(), &info), 0);
        return info;
    }

    PreferencesDomain domain_ = mine("a");
    std::filesystem::path file_ = config_ / "a.plist";
};

Value allKinds() {
    using namespace std::string_view_literals;
    return Value::dictionary(
        {{"text", Value::string("Größe 𝄞 <&>\"]]>")},
         {"empty", Value::string("")},
         {"yes", Value::boolean(true)},
         {"no", Value::boolean(false)},
         {"negative", Value::integer(INT64_MIN)},
         {"large", Value::unsignedInteger(UINT64_MAX)},
         {"real", Value::real(0.1)},
         {"tiny", Value::real(5e-324)},
         {"data", Value::data("\0\1\xFF"sv)},
         {"date", Value::date({.secondsSinceReference = 357568200.75})},
         {"list", Value::array({Value::array({}), Value::dictionary({}), Value::string("x")})},
         {"", Value::dictionary({{"inner key", Value::integer(0)}})}});
}

TEST_F(StoredFilesTest, OtherReadersSeeTheSameValues) {
    ASSERT_EQ(set("key", allKinds(), domain_), "");
    const ProgramRun python = runProgram(
        {QV_PYTHON, "-c",
         "import plistlib,sys\n"
         "d=plistlib.load(sys.stdin.buffer, fmt=plistlib.FMT_XML)['key']\n"
         "import datetime\n"
         "assert d=={'text':'Größe \\U0001d11e <&>\"]]>','empty':'','yes':True,'no':False,"
         "'negative':-2**63,'large':2**64-1,'real':0.1,'tiny':5e-324,'data':b'\\0\\1\\xff',"
         "'date':datetime.datetime(2012,5,1,12,30,0),'list':[[],{},'x'],'':{'inner key':0}},d\n"
         "assert type(d['yes']) is bool and type(d['negative']) is int and "
         "type(d['real']) is float\n"
         "print('same')"},
        content());
    EXPECT_EQ(python.output, "same\n") << python.errors;
    constexpr const char* kGNUstep = "/usr/bin/plget";
    if (::access(kGNUstep, X_OK) == 0) {
        const ProgramRun gnustep = runProgram({kGNUstep, "key"}, content());
        EXPECT_THAT(gnustep.output, HasSubstr("data = <0001ff>;")) << gnustep.errors;
        EXPECT_THAT(gnustep.output, HasSubstr("negative = \"-9223372036854775808\";"));
        EXPECT_THAT(gnustep.output, HasSubstr("\"2012-05-01T12:30:00Z\""));
    }
}

TEST_F(StoredFilesTest, UnchangedValuesWriteNothing) {
    ASSERT_EQ(set("key", allKinds(), domain_), "");
    const struct stat before = state();
    EXPECT_EQ(set("key", allKinds(), domain_), "") << "the date has no fractions when it is stored";
    EXPECT_EQ(set("missing", std::nullopt, domain_), "");
    EXPECT_EQ(sync(domain_), "");
    EXPECT_EQ(state().st_ino, before.st_ino);
    // These are equal as numbers, but not stored alike.
    ASSERT_EQ(set("one", Value::integer(1), domain_), "");
    const ino_t inode = state().st_ino;
    EXPECT_EQ(set("one", Value::boolean(true), domain_), "");
    EXPECT_NE(state().st_ino, inode);
    EXPECT_THAT(content(), HasSubstr("<key>one</key>\n\t<true/>"));
    EXPECT_EQ(set("one", Value::real(1), domain_), "");
    EXPECT_THAT(content(), HasSubstr("<key>one</key>\n\t<real>"));
}

TEST_F(StoredFilesTest, OnlyTheNotedKeysChangeWhateverTheEncoding) {
    const Value old =
        Value::dictionary({{"keep", text("k")}, {"change", text("c")}, {"go", text("g")}});
    const std::string binary =
        PropertyList::dataWithPropertyList(old, PropertyListFormat::binary).value();
    const std::string xml =
        PropertyList::dataWithPropertyList(old, PropertyListFormat::xml).value();
    for (const std::string& encoded :
         {binary, xml, std::string("{ keep = k; change = c; go = g; }"),
          std::string("keep = k;\nchange = c;\ngo = g;\n")}) {
        put(encoded);
        preferences_.setValue("change", text("new"), domain_);
        preferences_.setValue("go", std::nullopt, domain_);
        EXPECT_EQ(set("add", text("a"), domain_), "");
        EXPECT_TRUE(content().starts_with("<?xml version=\"1.0\" encoding=\"UTF-8\"?>"));
        EXPECT_EQ(
            preferences_.values(domain_).value(),
            Value::dictionary({{"keep", text("k")}, {"change", text("new")}, {"add", text("a")}}));
    }
}

TEST_F(StoredFilesTest, AnEmptyDomainHasNoFile) {
    ASSERT_EQ(set("one", text("1"), domain_), "");
    ASSERT_EQ(set("two", text("2"), domain_), "");
    EXPECT_EQ(set("one", std::nullopt, domain_), "");
    EXPECT_TRUE(std::filesystem::exists(file_));
    EXPECT_EQ(set("two", std::nullopt, domain_), "");
    EXPECT_EQ(namesIn(config_), std::set<std::string>{});
    std::filesystem::remove_all(config_);
    EXPECT_EQ(set("two", std::nullopt, domain_), "");
    EXPECT_FALSE(std::filesystem::exists(config_)) << "made for nothing";
}

// Whoever gave his file other rights meant it; rights to become somebody are none to hand on.
TEST_F(StoredFilesTest, TheOldFileGivesItsRightsToTheNewOne) {
    put("{ old = 1; }");
    ASSERT_EQ(::chmod(file_.c_str(), 04640), 0);
    const bool root = ::geteuid() == 0;
    if (root) {
        ASSERT_EQ(::chown(file_.c_str(), kNobody, 5), 0);
        ASSERT_EQ(::chmod(file_.c_str(), 04640), 0);
    }
    const ino_t before = state().st_ino;
    ASSERT_EQ(set("new", text("1"), domain_), "");
    EXPECT_NE(state().st_ino, before);
    EXPECT_EQ(state().st_mode & 07777U, 0640U);
    EXPECT_EQ(state().st_uid, root ? kNobody : ::geteuid());
    EXPECT_EQ(state().st_gid, root ? 5U : ::getegid());
}

// The user's own words may still be rescued from it.
TEST_F(StoredFilesTest, AFileThatIsNoDictionaryStaysAsItIs) {
    const std::string withNull( // { "k": null }
        "bplist00\xD1\x01\x02Qk\x00\x08\x0B\x0D\0\0\0\0\0\0\x01\x01\0\0\0\0\0\0\0\x03\0\0\0\0\0\0\0"
        "\0\0\0\0\0\0\0\0\x0E",
        8 + 6 + 3 + 32);
    for (const auto& [bytes, why] :
         std::vector<std::pair<std::string, std::string>>{{"<plist><dict><key>a</key>", "line 1"},
                                                          {"( a, list )", "no dictionary"},
                                                          {"bplist00 and no more", "offset"},
                                                          {std::string(100'000, '('), "line 1"},
                                                          {withNull, "NSNull at k"}}) {
        put(bytes);
        const timespec longAgo[2] = {{1000, 0}, {1000, 0}}; // NOLINT(modernize-avoid-c-arrays)
        ASSERT_EQ(::utimensat(AT_FDCWD, file_.c_str(), longAgo, 0), 0);
        const std::string failure = set("key", text("x"), domain_);
        EXPECT_THAT(failure, HasSubstr(file_.native() + ": "));
        EXPECT_THAT(failure, HasSubstr(why));
        EXPECT_EQ(content(), bytes);
        EXPECT_EQ(state().st_mtime, 1000);
        EXPECT_EQ(namesIn(config_), std::set<std::string>{"a.plist"});
    }
    ASSERT_EQ(::truncate(file_.c_str(), (off_t{256} << 20U) + 1), 0);
    EXPECT_THAT(set("key", text("x"), domain_), HasSubstr("256 MiB"));
}

// Other writers rewrite the file in its place. Taken for empty, all of their values would be lost.
TEST_F(StoredFilesTest, AFileThatIsBeingWrittenIsWaitedFor) {
    put(""); // as the other writer has truncated it
    const Descriptor events(::inotify_init1(IN_CLOEXEC));
    ASSERT_GE(::inotify_add_watch(events.get(), file_.c_str(), IN_CLOSE_NOWRITE), 0);
    const pid_t writer = ::fork();
    if (writer == 0) {
        std::array<char, 4096> event{};
        const bool wasRead = ::read(events.get(), event.data(), event.size()) > 0;
        put("{ theirs = 1; }");
        ::_exit(wasRead ? 0 : 1);
    }
    EXPECT_EQ(set("ours", text("2"), domain_), "");
    EXPECT_EQ(::waitpid(writer, nullptr, 0), writer);
    EXPECT_EQ(preferences_.values(domain_).value(),
              Value::dictionary({{"theirs", text("1")}, {"ours", text("2")}}));
}

TEST_F(StoredFilesTest, AnEmptyFileIsAnEmptyDomain) {
    put("");
    EXPECT_EQ(set("key", text("x"), domain_), "");
    EXPECT_EQ(preferences_.copyValue("key", domain_), text("x"));
}

TEST_F(StoredFilesTest, WhatNoPreferenceIsFailsWithItsPlace) {
    ASSERT_EQ(set("key", text("old"), domain_), "");
    const auto within = [](const Value& value) {
        return Value::array({text("x"), Value::dictionary({{"deep", Value::array({value})}})});
    };
    const Value url = Value::url(URL::fileURLWithPath("/tmp"));
    for (const auto& [value, name] :
         std::vector<std::pair<Value, std::string>>{{Value(), "NSNull"},
                                                    {url, "NSURL"},
                                                    {Value::error(Error::posix(EIO)), "NSError"},
                                                    {Value::set({}), "NSSet"},
                                                    {Value::uid({.index = 1}), ""}}) {
        preferences_.setValue("other", text("lost with it"), domain_);
        EXPECT_THAT(set("key", value, domain_), HasSubstr(name + " at key"));
        EXPECT_THAT(set("key", within(value), domain_), HasSubstr(name + " at key[1].deep[0]"));
    }
    EXPECT_THAT(set("key", Value::string(std::string_view("a\0b", 3)), domain_), HasSubstr("key"));
    EXPECT_THAT(set("k\x01", text("x"), domain_), HasSubstr(file_.native() + ": "));
    Value deep = Value::array({});
    Value wide = Value::array({text("x")});
    for (int i = 0; i < 100'000; ++i) {
        deep = Value::array({deep});
        wide = Value::array({wide, wide});
    }
    EXPECT_NE(set("key", deep, domain_), "");
    EXPECT_NE(set("key", wide, domain_), "") << "2 to the power of 100,000 texts";
    Value shared = Value::array({text("x")});
    for (int i = 0; i < 100; ++i) {
        shared = Value::array({shared, shared});
    }
    EXPECT_THAT(set("key", shared, domain_), HasSubstr("so often that"));
    EXPECT_EQ(preferences_.values(domain_).value(), Value::dictionary({{"key", text("old")}}));
}

TEST_F(StoredFilesTest, LargeValuesAreKept) {
    const Value large = Value::data(std::string(std::size_t{64} << 20U, '\x7F'));
    ASSERT_EQ(set("large", large, domain_), "");
    EXPECT_EQ(preferences_.copyValue("large", domain_), large);
    ASSERT_EQ(set("small", text("x"), domain_), "");
    EXPECT_EQ(preferences_.copyValue("large", domain_), large);
}

} // namespace
} // namespace qv::test
