// The examiner as a process of its own: what it answers, what it has given up, and what neither a
// broken request nor a broken program does to the next one.

#include "platform/security/examination/ExaminerCall.h"
#include "platform/security/requirement/CodeSigningStatus.h"
#include "platform/security/signature/CodeSigner.h"
#include "support/BuildFolder.h"
#include "support/ErrorMatchers.h"
#include "support/LiveService.h"
#include "support/TestAuthority.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

namespace qv::test {
namespace {

using std::chrono::milliseconds;
using testing::HasSubstr;

constexpr milliseconds kTime{2000};

class ExaminerTest : public testing::Test {
protected:
    void SetUp() override {
        listener_ = listenAt(socketPath());
        examiner_ = std::make_unique<StartedProgram>(
            ProgramStart{.command = {built("bin/QVCatalogExaminer")},
                         .listener = listener_.get(),
                         .listenerName = "com.larkwen.qvcatalog.examiner"});
        authority_.anchorIn(folder_ / "anchors.d");
        copySmallProgram(program());
        SigningRequest request = authority_.requestIn(folder_ / "keys");
        request.flags |= code_flags::kCheckExpiration; // so that it has to ask for the time as well
        const auto done = CodeSigner::sign(program(), request);
        ASSERT_TRUE(done) << done.error().description();
    }
    [[nodiscard]] std::string socketPath() const { return folder_ / "examiner.sock"; }
    [[nodiscard]] std::filesystem::path program() const { return folder_ / "program"; }
    [[nodiscard]] std::shared_ptr<const AnchorSet> anchors() const { return anchors_.current(); }
    [[nodiscard]] Descriptor opened() const {
        return Descriptor(::open(program().c_str(), O_RDONLY | O_CLOEXEC));
    }

    ExaminerCall::Result examined(int fd, milliseconds time = kTime) {
        auto call = ExaminerCall::begin(socketPath(), fd, *anchors(), time);
        return call ? finished(*call) : tl::unexpected(call.error());
    }
    static bool waitsFor(int fd, int events) {
        pollfd entry{.fd = fd, .events = static_cast<short>(events), .revents = 0};
        return ::poll(&entry, 1, milliseconds(kPatience).count()) == 1;
    }
    static ExaminerCall::Result finished(ExaminerCall& call) {
        for (;;) {
            if (auto result = call.advance()) {
                return std::move(*result);
            }
            if (!waitsFor(call.descriptor(), call.isSending() ? POLLOUT : POLLIN)) {
                return tl::unexpected<std::string>("nothing came");
            }
        }
    }

    TemporaryDirectory folder_{built()};
    TestAuthority authority_;
    TrustAnchors anchors_{folder_ / "anchors.d", ::geteuid()};
    Descriptor listener_;
    std::unique_ptr<StartedProgram> examiner_;
};

TEST_F(ExaminerTest, JudgesAsThisProcessWould) {
    const auto judged = examined(opened().get());
    ASSERT_TRUE(judged) << judged.error();
    EXPECT_EQ(judged->status(), codesign_status::kSuccess) << judged->reason();
    EXPECT_EQ(judged->encoded(),
              StaticCode::examine(opened().get(), {.anchors = *anchors()}).encoded());
    EXPECT_EQ(examined(opened().get(), milliseconds(0))->status(), codesign_status::kCancelled);
    const Descriptor changed(::open(program().c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(::pwrite(changed.get(), "x", 1, 4096), 1);
    EXPECT_EQ(examined(changed.get())->status(), codesign_status::kSignatureFailed);
}

TEST_F(ExaminerTest, HasGivenUpEveryPrivilege) {
    ASSERT_TRUE(examined(opened().get())); // it is past its start
    const std::string status = contentOf("/proc/" + std::to_string(examiner_->pid()) + "/status");
    for (const char* line :
         {"NoNewPrivs:\t1", "CapInh:\t0000000000000000", "CapPrm:\t0000000000000000",
          "CapEff:\t0000000000000000", "CapAmb:\t0000000000000000", "Seccomp:\t2"}) {
        EXPECT_THAT(status, HasSubstr(isSanitized() && line[0] == 'S' ? "" : line));
    }
    if (::geteuid() == 0) {
        EXPECT_THAT(status, HasSubstr("Uid:\t47111\t47111\t47111\t47111\n"
                                      "Gid:\t47111\t47111\t47111\t47111\n"));
        EXPECT_THAT(status, HasSubstr("Groups:\t \n"));
    }
}

// Neither broken requests nor slow clients keep others waiting.
TEST_F(ExaminerTest, RefusesBrokenRequests) {
    const auto frame = [](const Value& value) { return frameOf(value, kLongestRequest).value(); };
    const std::string good = frame(Value::dictionary(
        {{"anchors", anchors()->encoded()}, {"milliseconds", Value::integer(1)}}));
    std::vector<ExaminerCall> calls;
    for (const std::string& bytes :
         {std::string(), good.substr(0, good.size() / 2), good + "more", good /* no program */,
          frame(Value::array({})), frame(Value::dictionary({{"anchors", Value()}}))}) {
        auto call = ExaminerCall::begin(socketPath(), 0, *anchors(), kTime).value();
        EXPECT_TRUE(writeAll(call.descriptor(), bytes)); // in place of its own request
        ::shutdown(call.descriptor(), SHUT_WR);
        EXPECT_TRUE(waitsFor(call.descriptor(), POLLIN));
        std::string answer(4096, '\0');
        const ssize_t count = ::recv(call.descriptor(), answer.data(), answer.size(), 0);
        ValueFrameReader reader(kLongestReply);
        answer.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
        EXPECT_TRUE(reader.take(answer));
        EXPECT_THAT(reader.result(), failsWith(kWorkerErrorDomain, EBADMSG));
    }
    for (int i = 0; i < 7; ++i) { // one process is left
        calls.push_back(ExaminerCall::begin(socketPath(), 0, *anchors(), kTime).value());
    }
    EXPECT_TRUE(examined(opened().get()));
}

// The incomplete answer of an examiner that breaks is not a judgement, whatever it was about to
// say.
TEST_F(ExaminerTest, TakesNoBrokenAnswer) {
    const std::string place = folder_ / "false.sock";
    const Descriptor listener = listenAt(place);
    const auto judgementFrom = [&](std::string_view answer) {
        auto call = ExaminerCall::begin(place, opened().get(), *anchors(), kTime);
        const Descriptor connection(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
        while (call->isSending() && !call->advance()) {
        }
        std::string request(kLongestRequest, '\0');
        EXPECT_GT(::recv(connection.get(), request.data(), request.size(), 0), 0);
        EXPECT_TRUE(writeAll(connection.get(), answer));
        ::shutdown(connection.get(), SHUT_RDWR);
        return finished(*call);
    };
    const auto frame = [](const WorkResult& result) {
        return frameOf(result, kLongestReply).value();
    };
    const std::string good =
        frame(StaticCode::examine(opened().get(), {.anchors = *anchors()}).encoded());
    ASSERT_EQ(judgementFrom(good)->status(), codesign_status::kSuccess) << "it can be said";
    for (const std::string& bad :
         {std::string(), good.substr(0, good.size() - 1), good + "x", frame(Value::array({})),
          frame(Value::dictionary({{"status", Value::integer(0)}}))}) {
        EXPECT_FALSE(judgementFrom(bad));
    }
    const Error error = Error::withDescription("D", 1, "why");
    EXPECT_EQ(judgementFrom(frame(tl::unexpected(error))).error(), "why");
}

TEST_F(ExaminerTest, SaysWhyNobodyCanBeAsked) {
    const auto why = [&](const std::string& path) {
        return ExaminerCall::begin(path, 0, *anchors(), kTime).error();
    };
    EXPECT_THAT(why(folder_ / "nobody.sock"), HasSubstr("nobody.sock: No such file or directory"));
    examiner_->kill();
    ASSERT_TRUE(examiner_->wait());
    listener_.reset();
    EXPECT_THAT(why(socketPath()), HasSubstr("Connection refused"));
}

} // namespace
} // namespace qv::test
