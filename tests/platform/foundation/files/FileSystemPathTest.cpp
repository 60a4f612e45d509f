#include "platform/foundation/files/item/FileSystemPath.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace qv {
namespace {

struct Case {
    std::string_view url;
    std::string_view path; // or
    std::int64_t code = 0;
};

constexpr Case kCases[] = {
    // NOLINT(modernize-avoid-c-arrays): a table that counts itself
    {"file:///a/b", "/a/b"},
    {"FiLe:///A", "/A"},
    {"file:/a", "/a"},
    {"file://localhost/a", "/a"},
    {"file://some.host/a", "/a"},
    {"file:///", "/"},
    {"file:////", "/"},
    {"file:///a/b//", "/a/b"},
    {"file:///a/./../b", "/a/./../b"}, // the kernel's business, links make it more than text
    {"file:///a?query#fragment", "/a"},
    {"file:///a%3Fb%23c", "/a?b#c"},
    {"file:///a%20b", "/a b"},
    {"file:///%FF%C3", "/\xFF\xC3"}, // names are bytes, not text
    {"file:///%C3%A9", "/\xC3\xA9"},
    {"file:///a%252Fb%2500", "/a%2Fb%00"}, // decoded once only
    {"file:///a%2Fb", {}, 258},
    {"file:///a%2fb", {}, 258},
    {"file:///%2e%2e%2f", {}, 258},
    {"file:///a%00", {}, 258},
    {"file:///%00/b", {}, 258},
    {"file:a/b", {}, 258},
    {"file:../a", {}, 258},
    {"file:", {}, 4},
    {"file://", {}, 4},
    {"file://host", {}, 4},
    {"file:?a", {}, 4},
    {"", {}, 262},
    {"a/b", {}, 262},
    {"/a/b", {}, 262},
    {"://a", {}, 262},
    {"http://host/a", {}, 262},
    {"files:///a", {}, 262},
    {"fil:///a", {}, 262},
};

TEST(FileSystemPath, OddURLsGiveTheirBytesOrTheirRefusal) {
    for (const Case& row : kCases) {
        SCOPED_TRACE(row.url);
        const std::optional<URL> url = URL::URLWithString(row.url);
        ASSERT_TRUE(url);
        const tl::expected<std::string, Error> path = fileSystemPath(url);
        ASSERT_EQ(path.has_value(), row.code == 0);
        if (path) {
            EXPECT_EQ(*path, row.path);
            continue;
        }
        EXPECT_EQ(path.error().domain(), error_domain::kCocoa);
        EXPECT_EQ(path.error().code(), row.code);
        const Value userInfo = path.error().userInfo();
        const Value* named = userInfo.find(error_key::kURL);
        ASSERT_NE(named, nullptr) << "nobody can tell which URL was refused";
        EXPECT_EQ(named->asURL(), *url);
    }
}

TEST(FileSystemPath, NoURLIsAnErrorToo) {
    const tl::expected<std::string, Error> path = fileSystemPath(std::nullopt);
    ASSERT_FALSE(path);
    EXPECT_EQ(path.error().domain(), error_domain::kCocoa);
    EXPECT_EQ(path.error().code(), cocoa_error::kFileNoSuchFile);
}

} // namespace
} // namespace qv
