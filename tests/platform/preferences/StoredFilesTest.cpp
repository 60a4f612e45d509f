// The content of the files: what a change writes and leaves, and what is refused.

#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/plist/PropertyList.h"
#include "platform/foundation/values/URL.h"
#include "platform/preferences/Support.h"
#include "support/BuildFolder.h"

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
    // The status that identifies the very file, and shows whether it was written.
    [[nodiscard]] struct stat state() const {
        struct stat info{};
        EXPECT_EQ(::lstat(file_.c_str(), &info), 0);
        return info;
    }

    PreferencesDomain domain_ = mine("a");
    std::filesystem::path file_ = config_ / "a.plist";
};

TEST_F(StoredFilesTest, WritesNothingForUnchangedValues) {
    const Value value =
        Value::dictionary({{"date", Value::date({.secondsSinceReference = 357568200.75})},
                           {"tiny", Value::real(5e-324)},
                           {"list", Value::array({Value::array({}), Value::integer(INT64_MIN)})}});
    ASSERT_EQ(set("key", value, domain_), "");
    const struct stat before = state();
    EXPECT_EQ(set("key", value, domain_), "") << "the date has no fractions when it is stored";
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

TEST_F(StoredFilesTest, ChangesOnlyNotedKeysInAnyEncoding) {
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

TEST_F(StoredFilesTest, EmptyDomainHasNoFile) {
    ASSERT_EQ(set("one", text("1"), domain_), "");
    EXPECT_EQ(set("one", std::nullopt, domain_), "");
    EXPECT_EQ(namesIn(config_), std::set<std::string>{});
    std::filesystem::remove_all(config_);
    EXPECT_EQ(set("one", std::nullopt, domain_), "");
    EXPECT_FALSE(std::filesystem::exists(config_)) << "made for nothing";
    std::filesystem::create_directory(config_);
    put("");
    EXPECT_EQ(set("key", text("x"), domain_), "") << "an empty file is an empty domain";
    EXPECT_EQ(preferences_.copyValue("key", domain_), text("x"));
}

// A user who changed the rights of the file meant it; but the set-user-id bit is not handed on.
TEST_F(StoredFilesTest, NewFileGetsRightsOfOldOne) {
    put("{ old = 1; }");
    ASSERT_EQ(::chmod(file_.c_str(), 04640), 0);
    if (::geteuid() == 0) {
        ASSERT_EQ(::chown(file_.c_str(), kNobody, 5), 0);
        ASSERT_EQ(::chmod(file_.c_str(), 04640), 0);
    }
    const struct stat before = state();
    ASSERT_EQ(set("new", text("1"), domain_), "");
    EXPECT_NE(state().st_ino, before.st_ino);
    EXPECT_EQ(state().st_mode & 07777U, 0640U);
    EXPECT_EQ(state().st_uid, before.st_uid);
    EXPECT_EQ(state().st_gid, before.st_gid);
}

// Somebody may still rescue the user's values from it.
TEST_F(StoredFilesTest, LeavesFilesThatAreNotDictionaries) {
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
TEST_F(StoredFilesTest, WaitsForFileThatIsBeingWritten) {
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

TEST_F(StoredFilesTest, LocatesValuesThatCannotBeStored) {
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
    Value wide = Value::array({text("x")});
    const int levels = isSanitized() ? 20'000 : 100'000;
    for (int i = 0; i < levels; ++i) {
        wide = Value::array({wide, wide});
    }
    EXPECT_NE(set("key", wide, domain_), "") << "2 to the power of many thousand texts, as deep";
    EXPECT_EQ(preferences_.values(domain_).value(), Value::dictionary({{"key", text("old")}}));
}

} // namespace
} // namespace qv::test
