#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "SignatureFixture.h"
#include <functional>
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
    struct Case {
        const char* fault;
        std::function<void()> commit;
        const char* reason;
    };
    const fs::path root = folder() / "vendor/root.pem";
    const std::string pem = authority().root.certificatePEM();
    const std::vector<Case> cases = {
        {"missing", [&] { fs::remove_all(folder()); }, "No such file"},
        {"empty", [&] { fs::remove_all(folder() / "vendor"); }, "no certificate"},
        {"sticky does not help inside", [&] { ::chmod(folder().c_str(), 01777); },
         "written by others"},
        {"sub-folder writable by group", [&] { ::chmod(root.parent_path().c_str(), 0775); },
         "vendor: can be written"},
        {"parent writable by all", [&] { ::chmod(temporary.path().c_str(), 0777); },
         "written by others"},
        {"file writable by group", [&] { ::chmod(root.c_str(), 0664); }, "root.pem: can be"},
        {"linked file",
         [&] {
             fs::rename(root, temporary / "root.pem");
             fs::create_symlink(temporary / "root.pem", root);
         },
         "symbolic link"},
        {"linked folder",
         [&] {
             fs::rename(folder(), temporary / "elsewhere");
             fs::create_directory_symlink(temporary / "elsewhere", folder());
         },
         "no folder"},
        {"pipe", [&] { ::mkfifo((folder() / "vendor/pipe").c_str(), 0644); }, "no regular file"},
        {"second certificate cut", [&] { write("vendor/root.pem", pem + pem.substr(0, 40)); },
         "damaged"},
        {"key beside the certificate",
         [&] { write("vendor/root.pem", pem + authority().root.keyPEM()); },
         "something else than certificates"},
        {"too large", [&] { write("vendor/root.pem", std::string(65536, '\n') + pem); },
         "larger than"},
        {"unknown entry", [&] { write("revoked.txt", ""); }, "no business here"},
        {"bad revocation", [&] { write("revoked", "# one\nabcdef\n"); }, "line 2"},
        {"intermediate as anchor",
         [&] { write("vendor/x.pem", authority().intermediate.certificatePEM()); },
         "no self-signed authority"},
        {"leaf as anchor", [&] { write("platform/x.pem", authority().leaf.certificatePEM()); },
         "no self-signed authority"},
        {"too many files",
         [&] {
             for (int count = 0; count < 32; ++count) {
                 write("trusted/" + std::to_string(count), pem);
             }
         },
         "more than 32 files"},
    };
    for (const Case& each : cases) {
        fs::remove_all(folder());
        ::chmod(temporary.path().c_str(), 0700);
        authority().anchorIn(folder());
        const TrustAnchors anchors = this->anchors();
        ASSERT_TRUE(accepts(anchors)) << anchors.reason();
        each.commit();
        EXPECT_FALSE(accepts(anchors)) << each.fault << ": an earlier reading must not count";
        EXPECT_FALSE(accepts(this->anchors())) << each.fault;
        EXPECT_THAT(anchors.reason(), HasSubstr(each.reason)) << each.fault;
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
    ::chmod((folder() / "vendor/root.pem").c_str(), 0600);
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
