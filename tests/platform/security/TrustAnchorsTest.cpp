#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SignatureFixture.h"
#include "TextCases.h"
#include <set>
#include <sys/stat.h>
#include <unistd.h>

namespace qv::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

struct TrustAnchorsTest : testing::Test {
    TrustAnchorsTest() { authority().anchorIn(folder()); }

    [[nodiscard]] fs::path folder() const { return temporary / "anchors.d"; }
    [[nodiscard]] TrustAnchors anchors() const { return TrustAnchors(folder(), ::geteuid()); }
    void write(std::string_view name, std::string_view content, mode_t mode = 0644) const {
        writeWithMode(folder() / name, content, mode);
    }
    [[nodiscard]] bool accepts(const TrustAnchors& anchors) const {
        AnchorSet::Digest digest{};
        X509_digest(authority().root.certificate(), EVP_sha256(), digest.data(), nullptr);
        const auto roles = anchors.current()->roles(digest);
        return roles && roles->vendor;
    }

    TemporaryDirectory temporary;
};

TEST_F(TrustAnchorsTest, AcceptFolderInOrder) {
    write("trusted/two.pem",
          "About these:\n" + authority().root.certificatePEM() + authority().leaf.certificatePEM());
    write("revoked", "# nothing yet\n\n   \t\n");
    EXPECT_TRUE(accepts(anchors())) << anchors().reason();
    EXPECT_EQ(anchors().reason(), "");
}

TEST_F(TrustAnchorsTest, CountOnlyWithoutAnyViolation) {
    for (const TextCase& each : textCasesOf(QV_CASES "trust-anchors.txt")) {
        SCOPED_TRACE(each.text);
        fs::remove_all(folder());
        fs::remove_all(temporary.path() / "made");
        ::chmod(temporary.path().c_str(), 0700);
        authority().anchorIn(folder());
        static_cast<void>(authority().requestIn(temporary / "made"));
        temporary.write("made/root.pem", authority().root.certificatePEM());
        const TrustAnchors anchors = this->anchors();
        ASSERT_TRUE(accepts(anchors)) << anchors.reason();
        runIn(temporary.path(), each.text);
        EXPECT_FALSE(accepts(anchors)) << "an earlier reading must not count";
        EXPECT_FALSE(accepts(this->anchors()));
        EXPECT_THAT(anchors.reason(), HasSubstr(each.outcome));
    }
}

TEST_F(TrustAnchorsTest, OfStrangersAreRefused) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root, to give files away";
    }
    constexpr uid_t kStranger = 12345;
    const fs::path file = folder() / "vendor/root.pem";
    ASSERT_EQ(::chown(file.c_str(), kStranger, 0), 0);
    EXPECT_THAT(anchors().reason(), HasSubstr("belongs to user 12345"));
    EXPECT_TRUE(accepts(TrustAnchors(folder(), kStranger))) << "a developer's own build";
    ASSERT_EQ(::chown(temporary.path().c_str(), kStranger, 0), 0);
    EXPECT_FALSE(accepts(anchors())) << "who owns a parent can replace all below";
}

TEST_F(TrustAnchorsTest, NeedPlainAbsolutePath) {
    for (const std::string& path :
         {std::string(), std::string("anchors.d"), folder().string() + "/../anchors.d"}) {
        const TrustAnchors odd(path, ::geteuid());
        EXPECT_FALSE(accepts(odd)) << path;
        EXPECT_NE(odd.reason(), "") << path;
    }
    EXPECT_TRUE(accepts(TrustAnchors(folder().string() + "//", ::geteuid())));
    EXPECT_NE(TrustAnchors().reason(), "");
}

TEST_F(TrustAnchorsTest, AreReadAgainAfterChangesOnly) {
    const TrustAnchors fresh = anchors();
    EXPECT_NE(fresh.current(), fresh.current()) << "may change within the same tick";
    const TrustAnchors settled(folder(), ::geteuid(), [] {
        return std::chrono::system_clock::now() + std::chrono::minutes(1);
    });
    const auto first = settled.current();
    temporary.write("beside", "does not concern the folder");
    EXPECT_EQ(settled.current(), first);
    ::utimensat(AT_FDCWD, (folder() / "vendor/root.pem").c_str(), nullptr, 0); // as a write does
    EXPECT_NE(settled.current(), first);
    EXPECT_EQ(settled.current()->fingerprint(), first->fingerprint());
    std::set<AnchorSet::Digest> fingerprints = {first->fingerprint()};
    for (const TestIdentity* revoked : {&authority().leaf, &authority().root}) {
        write("revoked", revoked->fingerprint() + "\n"); // same size, same name, at once
        EXPECT_TRUE(fingerprints.insert(fresh.current()->fingerprint()).second);
    }
    authority().anchorIn(folder(), "platform");
    EXPECT_TRUE(fingerprints.insert(fresh.current()->fingerprint()).second) << "another role";
}

} // namespace
} // namespace qv::test
