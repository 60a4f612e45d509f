#include "platform/security/examination/CodeExaminer.h"

#include "platform/security/signature/CoveredRange.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
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

// Remembers what was signed a moment ago.
ExaminationCache rememberingCache(uid_t owner = ::geteuid(),
                                  std::chrono::seconds ahead = std::chrono::hours(1)) {
    return ExaminationCache(owner, [ahead] { return std::chrono::system_clock::now() + ahead; });
}

class CodeExaminerTest : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(program_.sign()); }
    [[nodiscard]] Descriptor opened() const {
        return Descriptor(::open(program_.path().c_str(), O_RDWR | O_CLOEXEC));
    }
    using Code = std::shared_ptr<const StaticCode>;
    static Code judgement(CodeExaminer& examiner, int program) {
        return std::get<Code>(examiner.examine(program, kNoDeadline));
    }
    [[nodiscard]] std::string anchors() const { return program_.anchorFolder(); }

    TestAuthority authority_;
    SignedProgram program_{authority_};
};

TEST_F(CodeExaminerTest, JudgesUnchangedGoodProgramOnce) {
    CodeExaminer examiner(anchors(), ::geteuid(), rememberingCache());
    const auto first = judgement(examiner, opened().get());
    ASSERT_EQ(first->status(), kSuccess) << first->reason();
    EXPECT_EQ(judgement(examiner, opened().get()), first);

    const Descriptor file = opened();
    ASSERT_EQ(::pwrite(file.get(), "x", 1, 4096), 1);
    // The writer hides the moment.
    const std::array<timespec, 2> times = {timespec{0, UTIME_OMIT}, timespec{1, 0}};
    ASSERT_EQ(::futimens(file.get(), times.data()), 0);
    const auto changed = judgement(examiner, file.get());
    EXPECT_EQ(changed->status(), kSignatureFailed);
    EXPECT_NE(judgement(examiner, file.get()), changed) << "only good ones stay";
}

TEST_F(CodeExaminerTest, ForgetsFreshForeignAndExpiredPrograms) {
    CodeExaminer fresh(anchors(), ::geteuid(),
                       rememberingCache(::geteuid(), std::chrono::seconds(1)));
    CodeExaminer foreign(anchors(), ::geteuid(), rememberingCache(::geteuid() + 1));
    for (CodeExaminer* examiner : {&fresh, &foreign}) {
        const auto first = judgement(*examiner, opened().get());
        EXPECT_EQ(first->status(), kSuccess);
        EXPECT_NE(judgement(*examiner, opened().get()), first);
    }
    ASSERT_TRUE(program_.sign(
        [](SigningRequest& request) { request.flags = code_flags::kCheckExpiration; }));
    for (const int days : {29, 31}) { // the leaf's are 30
        CodeExaminer examiner(anchors(), ::geteuid(),
                              rememberingCache(::geteuid(), std::chrono::days(days)));
        const auto timed = judgement(examiner, opened().get());
        ASSERT_EQ(timed->status(), kSuccess) << timed->reason();
        EXPECT_EQ(judgement(examiner, opened().get()) == timed, days < 30);
    }
}

TEST_F(CodeExaminerTest, HeedsRevocationAtOnce) {
    CodeExaminer examiner(anchors(), ::geteuid(), rememberingCache());
    const auto good = judgement(examiner, opened().get());
    ASSERT_EQ(good->status(), kSuccess) << good->reason();
    const auto revoked = program_.anchorFolder() / "revoked";
    std::vector<std::string> digests = {fmt::format("{:02x}", fmt::join(good->facts().cdhash, ""))};
    for (const CertificateFacts& certificate : good->facts().chain) {
        digests.push_back(fmt::format("{:02x}", fmt::join(certificate.sha256, "")));
    }
    for (const std::string& digest : digests) {
        writeWithMode(revoked, "# bad ones\n" + digest + " # stolen\n", 0644);
        EXPECT_EQ(judgement(examiner, opened().get())->status(), kCertificateRevoked);
    }
    std::filesystem::remove(revoked);
    EXPECT_EQ(judgement(examiner, opened().get())->status(), kSuccess);
}

TEST_F(CodeExaminerTest, RemembersLatestSixtyFour) {
    const auto code = std::make_shared<const StaticCode>(program_.examined());
    ExaminationCache cache = rememberingCache(0);
    FileKey file;
    for (file.inode = 1; file.inode <= ExaminationCache::kMost + 1; ++file.inode) {
        cache.add(file, code);
    }
    file.inode = 1;
    EXPECT_EQ(cache.find(file), nullptr) << "the oldest had to go";
    file.inode = 2;
    EXPECT_EQ(cache.find(file), code);
    file.generation = 1;
    EXPECT_EQ(cache.find(file), nullptr) << "another file with a number that was used before";
}

// Another process examines signed programs; its judgement counts once, for this file and these
// anchors.
TEST_F(CodeExaminerTest, DeferringOneReadsNothingSigned) {
    DeferringExaminer examiner(anchors(), ::geteuid(), rememberingCache());
    const auto unjudged = [&] {
        return std::get<UnjudgedProgram>(examiner.examine(opened().get(), kNoDeadline));
    };
    const auto judge = [&](const UnjudgedProgram& program) {
        examiner.provide(program,
                         StaticCode::examine(program.fd.get(), {.anchors = *program.anchors}));
    };
    judge(unjudged());
    const Code provided = judgement(examiner, opened().get());
    EXPECT_EQ(judgement(examiner, opened().get()), provided) << "and is remembered";

    ASSERT_TRUE(program_.sign()); // signing makes another file
    for (const char* change : {"file", "anchors"}) {
        judge(unjudged());
        if (change == std::string_view("file")) {
            ASSERT_TRUE(program_.sign());
        } else {
            writeWithMode(program_.anchorFolder() / "revoked", std::string(64, 'a'), 0644);
        }
        EXPECT_NO_THROW(unjudged()) << change;
    }

    const Descriptor plain(::open("/bin/true", O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(judgement(examiner, plain.get())->status(), kUnsigned);
}

TEST_F(CodeExaminerTest, DecodesCompleteJudgementsOnly) {
    const Value encoding = program_.examined().encoded();
    EXPECT_EQ(StaticCode::decoded(encoding)->encoded(), encoding);
    const DictionaryView fields = encoding.asDictionary();
    for (std::size_t i = 0; i < fields.size(); ++i) {
        std::vector<std::pair<Value, Value>> some;
        for (std::size_t j = 0; j < fields.size(); ++j) {
            if (j != i) {
                some.emplace_back(fields.keys()[j], fields.value(j));
            }
        }
        EXPECT_FALSE(StaticCode::decoded(Value::dictionary(some)));
        some.emplace_back(fields.keys()[i], Value::date({}));
        EXPECT_FALSE(StaticCode::decoded(Value::dictionary(some))) << fields.keys()[i].asString();
    }
    EXPECT_FALSE(StaticCode::decoded(Value::string("")));
}

TEST(CoveredRange, StopsAtItsLimits) {
    const TemporaryDirectory folder;
    const Descriptor file(::open(folder.write("file", "x").c_str(), O_RDWR | O_CLOEXEC));
    EXPECT_EQ(digestOfCoveredRange(file.get(), 1, kNoDeadline), sha256("x"));
    ASSERT_EQ(::ftruncate(file.get(), 1LL << 40), 0); // sparse
    EXPECT_EQ(statusOf(digestOfCoveredRange(file.get(), kLongestCoveredRange + 1, kNoDeadline)),
              kSignatureNotVerifiable);
    EXPECT_EQ(statusOf(digestOfCoveredRange(file.get(), kLongestCoveredRange,
                                            steady_clock::now() + std::chrono::milliseconds(5))),
              kCancelled);
    ASSERT_EQ(::ftruncate(file.get(), 1), 0);
    EXPECT_EQ(statusOf(digestOfCoveredRange(file.get(), 2, kNoDeadline)), kErrnoBase + ENODATA);
}

} // namespace
} // namespace qv::test
