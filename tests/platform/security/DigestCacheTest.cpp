#include "platform/security/DigestCache.h"

#include "platform/foundation/files/UniqueFd.h"
#include "platform/security/signature/SignatureVerdict.h"

#include <gtest/gtest.h>

#include "SignatureFixture.h"
#include <array>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qv::test {
namespace {

using namespace codesign_status;
using std::chrono::steady_clock;

constexpr auto kNoDeadline = steady_clock::time_point::max();

// A clock that has moved on since the files of a test were written.
DigestCache::Clock later(std::chrono::seconds by = std::chrono::seconds(10)) {
    return [by] { return std::chrono::system_clock::now() + by; };
}

struct DigestCacheTest : testing::Test {
    DigestCacheTest() { cache.useAnchors(*anchors.current()); }

    UniqueFd file(std::string_view content) {
        const auto path = folder.write("file", content);
        return UniqueFd(::open(path.c_str(), O_RDWR | O_CLOEXEC));
    }

    TemporaryDirectory folder;
    TrustAnchors anchors;
    DigestCache cache{::geteuid(), later()};
};

TEST_F(DigestCacheTest, HashesAnUnchangedFileOnce) {
    const std::string content(3'000'000, 'x');
    const UniqueFd opened = file(content);
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(cache.digest(opened.get(), content.size(), kNoDeadline), sha256(content));
        EXPECT_EQ(cache.hashedBytes(), content.size());
    }
    EXPECT_EQ(cache.digest(opened.get(), 5, kNoDeadline), sha256("xxxxx"))
        << "another range of the same file";
}

TEST_F(DigestCacheTest, HashesAgainAfterAnyChange) {
    const UniqueFd opened = file("before");
    ASSERT_EQ(cache.digest(opened.get(), 6, kNoDeadline), sha256("before"));
    ASSERT_EQ(::pwrite(opened.get(), "after!", 6, 0), 6);
    // The writer hides the moment.
    const std::array<timespec, 2> times = {timespec{0, UTIME_OMIT}, timespec{1, 0}};
    ASSERT_EQ(::futimens(opened.get(), times.data()), 0);
    EXPECT_EQ(cache.digest(opened.get(), 6, kNoDeadline), sha256("after!"));
    EXPECT_EQ(cache.hashedBytes(), 12U);
}

TEST_F(DigestCacheTest, ForgetsUnderOtherAnchors) {
    const UniqueFd opened = file("content");
    ASSERT_TRUE(cache.digest(opened.get(), 7, kNoDeadline));
    cache.useAnchors(*anchors.current());
    ASSERT_TRUE(cache.digest(opened.get(), 7, kNoDeadline));
    ASSERT_EQ(cache.hashedBytes(), 7U) << "the same anchors";
    TestAuthority().anchorIn(folder / "anchors.d");
    cache.useAnchors(*TrustAnchors(folder / "anchors.d", ::geteuid()).current());
    ASSERT_TRUE(cache.digest(opened.get(), 7, kNoDeadline));
    EXPECT_EQ(cache.hashedBytes(), 14U);
}

TEST_F(DigestCacheTest, RemembersNeitherFreshNorForeignFiles) {
    const UniqueFd opened = file("content");
    DigestCache fresh(::geteuid(), later(std::chrono::seconds(1)));
    DigestCache foreign(::geteuid() + 1, later());
    for (DigestCache* other : {&fresh, &foreign}) {
        ASSERT_TRUE(other->digest(opened.get(), 7, kNoDeadline));
        ASSERT_TRUE(other->digest(opened.get(), 7, kNoDeadline));
        EXPECT_EQ(other->hashedBytes(), 14U);
    }
}

TEST_F(DigestCacheTest, KeepsTheLatestSixtyFour) {
    const UniqueFd opened = file(std::string(100, 'x'));
    for (std::uint64_t length = 1; length <= 65; ++length) {
        ASSERT_TRUE(cache.digest(opened.get(), length, kNoDeadline));
    }
    const std::uint64_t hashed = cache.hashedBytes();
    ASSERT_TRUE(cache.digest(opened.get(), 2, kNoDeadline));
    EXPECT_EQ(cache.hashedBytes(), hashed);
    ASSERT_TRUE(cache.digest(opened.get(), 1, kNoDeadline));
    EXPECT_EQ(cache.hashedBytes(), hashed + 1) << "the oldest had to go";
}

TEST_F(DigestCacheTest, StopsAtItsLimits) {
    const UniqueFd opened = file("x");
    ASSERT_EQ(::ftruncate(opened.get(), 1LL << 40), 0); // sparse
    EXPECT_EQ(statusOf(cache.digest(opened.get(), DigestCache::kLongestRange + 1, kNoDeadline)),
              kSignatureNotVerifiable);
    EXPECT_EQ(statusOf(cache.digest(opened.get(), DigestCache::kLongestRange,
                                    steady_clock::now() + std::chrono::milliseconds(5))),
              kCancelled);
    EXPECT_LT(cache.hashedBytes(), DigestCache::kLongestRange);
    ASSERT_EQ(::ftruncate(opened.get(), 1), 0);
    EXPECT_EQ(statusOf(cache.digest(opened.get(), 2, kNoDeadline)), kErrnoBase + ENODATA);
}

TEST_F(DigestCacheTest, OnlyGoodAndTimelessVerdictsOfTrustedFilesStay) {
    const UniqueFd opened = file("content");
    SignatureVerdict good;
    good.status = kSuccess;
    good.directory.emplace();
    SignatureVerdict bad = good;
    bad.status = kSignatureFailed;
    SignatureVerdict timed = good;
    timed.directory->flags = code_flags::kCheckExpiration;
    DigestCache foreign(::geteuid() + 1, later());
    struct Case {
        const char* name;
        DigestCache& judging;
        const SignatureVerdict& verdict;
        int judged;
    };
    for (const Case& each : {Case{"bad", cache, bad, 2}, Case{"timed", cache, timed, 2},
                             Case{"foreign", foreign, good, 2}, Case{"good", cache, good, 1}}) {
        int judged = 0;
        const auto judge = [&] {
            ++judged;
            return each.verdict;
        };
        static_cast<void>(each.judging.verdict(opened.get(), sha256("key"), judge));
        const auto second = each.judging.verdict(opened.get(), sha256("key"), judge);
        EXPECT_EQ(second->status, each.verdict.status) << each.name;
        EXPECT_EQ(judged, each.judged) << each.name;
    }
}

} // namespace
} // namespace qv::test
