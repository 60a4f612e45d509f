#pragma once

#include "platform/foundation/values/URL.h"
#include "script/QVCatalogScript.h"
#include "support/TemporaryDirectory.h"

#include <fmt/core.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace qv::test {

/// A small tree with what makes file operations interesting.
inline void makeTree(const std::string& root) {
    namespace fs = std::filesystem;
    const auto own = [&](const std::string& name, uid_t user, mode_t mode) {
        EXPECT_EQ(::lchown((root + name).c_str(), user, user), 0);
        EXPECT_EQ(::chmod((root + name).c_str(), mode), 0);
    };
    const auto folder = [&](const std::string& name, uid_t user, mode_t mode) {
        fs::create_directories(root + name);
        own(name, user, mode);
    };
    const auto file = [&](const std::string& name, uid_t user, mode_t mode) {
        std::ofstream(root + name) << name;
        own(name, user, mode);
    };
    const auto link = [&](const std::string& name, const std::string& target, uid_t user) {
        fs::create_symlink(target, root + name);
        EXPECT_EQ(::lchown((root + name).c_str(), user, user), 0);
    };
    folder("/a", 0, 0755);
    file("/a/f", 0, 0644);
    file("/a/set", 1000, 04755);
    file("/a/group", 1001, 02755);
    file("/a/locked", 1000, 02644);
    folder("/a/sub", 1001, 0750);
    file("/a/sub/x", 1001, 0640);
    file("/a/sub/two", 0, 04711);
    fs::create_hard_link(root + "/a/sub/two", root + "/a/two");
    folder("/b", 1001, 02775);
    file("/b/y", 1001, 0600);
    link("/b/up", "../a", 0);
    link("/b/to-y", "y", 1001);
    link("/b/to-f", "../a/f", 1001);
    link("/b/nowhere", "nothing", 0);
    link("/b/lost", "nothing", 1001);
    link("/b/round", "around", 0);
    link("/b/around", "round", 0);
    link("/a/sub/out", "../../b/y", 0);
    link("/a/sub/whole", root + "/b/up/sub", 0);
    folder("/c", 0, 0700);
    folder("/c/e", 0, 0711);
    folder("/c/App.app/Contents", 0, 0755);
    std::ofstream(root + "/c/App.app/Contents/Info.plist") << "{ CFBundleVersion = 2.1; }";
    file("/c/notes", 0, 0444);
    folder("/home", 0, 0700);
    folder("/prefs", 0, 0755);
}

/// Scripts that are the same every time.
class RandomScripts {
public:
    RandomScripts(std::string root, unsigned seed) : root_(std::move(root)), random_(seed) {}

    Value next() {
        std::vector<Value> steps;
        if (below(3) != 0) {
            steps.push_back(step(20, {{"arg1", Value::integer(below(4) != 0 ? 1 : 0)}}));
        }
        for (unsigned count = 6 + below(8); count > 0; --count) {
            steps.push_back(below(5) == 0 ? control() : operation());
        }
        return Value::array(std::move(steps));
    }

private:
    using Fields = std::initializer_list<std::pair<std::string_view, Value>>;

    unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }
    template <std::size_t count> const char* one(const char* const (&list)[count]) {
        return list[below(count)];
    }
    std::string path() {
        static constexpr const char* kPaths[] = {"/a",
                                                 "/a/f",
                                                 "/a/set",
                                                 "/a/group",
                                                 "/a/locked",
                                                 "/a/sub",
                                                 "/a/sub/x",
                                                 "/a/sub/two",
                                                 "/a/two",
                                                 "/a/new",
                                                 "/a/sub/new",
                                                 "/a/f/below",
                                                 "/a/missing/new",
                                                 "/b",
                                                 "/b/y",
                                                 "/b/up",
                                                 "/b/up/f",
                                                 "/b/up/new",
                                                 "/b/to-y",
                                                 "/b/to-f",
                                                 "/b/nowhere",
                                                 "/b/lost",
                                                 "/b/round",
                                                 "/b/up/sub/out",
                                                 "/b/round/f",
                                                 "/b/lost/f",
                                                 "/b/new",
                                                 "/b/new/x",
                                                 "/c",
                                                 "/c/e",
                                                 "/c/e/new",
                                                 "/c/App.app",
                                                 "/c/notes",
                                                 "/c/e/../notes",
                                                 "/c/._A_new",
                                                 "/c/new",
                                                 "/a/sub/",
                                                 "/a/sub/whole",
                                                 "/a/sub/whole/x",
                                                 "/a/.",
                                                 "/c/new/f",
                                                 "/c/new/sub",
                                                 "/c/new/sub/two"};
        return root_ + one(kPaths);
    }
    Value url() {
        switch (below(60)) {
        case 0:
            return Value::string("file:///" + std::string(300, 'n'));
        case 1:
            return Value::string("http://host/" + path());
        case 2:
            return Value::string("no url");
        case 3:
            return Value::string("file://" + root_ + "/a%2Ff");
        default:
            return Value::string("file://" + path());
        }
    }
    Value flag() { return Value::boolean(below(2) == 0); }
    Value owner() {
        static constexpr std::int64_t kOwners[] = {0, 1000, 1001, 4242, -1};
        return Value::integer(kOwners[below(5)]);
    }
    Value step(std::int64_t code, Fields fields) {
        std::vector<std::pair<Value, Value>> pairs = {
            {Value::string("operation"), Value::integer(code)}};
        for (const auto& [key, value] : fields) {
            pairs.emplace_back(Value::string(key), value);
        }
        return Value::dictionary(std::move(pairs));
    }
    Value identifier() { return Value::string(one({"one", "two"})); }

    Value operation() {
        static constexpr std::int64_t kModes[] = {0755, 0644, 04755, 02750, 0, 0x101ED};
        switch (below(13)) {
        case 0:
            return step(2, {{"URL", url()}});
        case 1:
            return step(3, {{"URL", url()}});
        case 2:
        case 3:
            return step(4,
                        {{"fromURL", url()}, {"toURL", url()}, {"arg1", flag()}, {"arg2", flag()}});
        case 4:
        case 5:
            return step(5,
                        {{"fromURL", url()}, {"toURL", url()}, {"arg1", flag()}, {"arg2", flag()}});
        case 6:
            return step(6, {{"fromURL", url()}, {"toURL", url()}, {"arg1", flag()}});
        case 7:
            return step(7, {{"URL", url()}});
        case 8:
            return step(10, {{"fromURL", url()}, {"arg1", identifier()}});
        case 9:
            return step(11, {{"toURL", url()}, {"arg1", flag()}, {"arg2", identifier()}});
        case 10:
            return step(12,
                        {{"URL", url()}, {"arg1", owner()}, {"arg2", owner()}, {"arg3", flag()}});
        case 11:
            return step(
                13, {{"URL", url()}, {"arg1", Value::integer(kModes[below(6)])}, {"arg2", flag()}});
        default:
            return preference();
        }
    }
    Value preference() {
        const Value value = below(2) == 0 ? Value::integer(below(3)) : Value::string("text");
        const Value domain = Value::string(one({"com.example.one", "com.example.two", ""}));
        return below(4) == 0 ? step(9, {{"arg1", domain},
                                        {"arg2", Value::string(one({"k", "l"}))},
                                        {"arg4", Value::string("kCFPreferencesAnyUser")},
                                        {"arg5", Value::string("kCFPreferencesAnyHost")}})
                             : step(9, {{"arg1", domain},
                                        {"arg2", Value::string(one({"k", "l"}))},
                                        {"arg3", value},
                                        {"arg4", Value::string("kCFPreferencesAnyUser")},
                                        {"arg5", Value::string("kCFPreferencesAnyHost")}});
    }
    Value control() {
        switch (below(11)) {
        case 0:
        case 1:
            return step(17, {{"arg1", Value::string("lastStatementExecutionError == 1")}});
        case 2:
        case 3:
            return step(17, {{"arg1", Value::string(fmt::format(
                                          "${{filesystem(do={};absPath={})}} == {}",
                                          one({"exists", "exists", "exists", "size", "sha1sum"}),
                                          path(), one({"TRUE", "FALSE", "6"})))}});
        case 4:
            return step(17, {{"arg1", Value::string("this does not parse")}});
        case 5:
        case 6:
            return step(18, {});
        case 7:
        case 8:
            return step(19, {});
        case 9:
            return below(4) == 0 ? step(13, {{"URL", url()}, {"arg1", Value::array({})}})
                                 : step(99, {});
        default:
            return below(6) == 0 ? step(8, {{"arg1", Value::string("/bin/true")}})
                                 : step(20, {{"arg1", Value::integer(below(2))}});
        }
    }

    std::string root_;
    std::mt19937 random_;
};

} // namespace qv::test
