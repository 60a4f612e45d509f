// The examiner as a process of its own: what it answers, what it has given up, and what neither a
// broken request nor a broken program does to the next one.

#include "platform/security/examination/ExaminerCall.h"
#include "platform/security/requirement/CodeSigningStatus.h"
#include "platform/security/signature/CodeSigner.h"
#include "support/BuildFolder.h"
#include "support/LiveService.h"
#include "support/TestAuthority.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

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

    ExaminerCall::Result examined(int fd, milliseconds time = kTime) {
        auto call = ExaminerCall::begin(socketPath(), fd, *anchors(), time);
        return call ? finished(*call) : tl::unexpected(call.error());
    }
    static ExaminerCall::Result finished(ExaminerCall& call) {
        for (;;) {
            if (auto result = call.advance()) {
                return std::move(*result);
            }
            pollfd entry{.fd = call.descriptor(),
                         .events = static_cast<short>(call.isSending() ? POLLOUT : POLLIN),
                         .revents = 0};
            if (::poll(&entry, 1, std::chrono::milliseconds(kPatience).count()) != 1) {
                return tl::unexpected<std::string>("nothing came");
            }
        }
    }
    [[nodiscard]] Descriptor opened() const {
        return Descriptor(::open(program().c_str(), O_RDONLY | O_CLOEXEC));
    }
    // What a connection answers that gets these bytes and then no more.
    [[nodiscard]] std::string answerTo(std::string_view bytes) const {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        socketPath().copy(static_cast<char*>(address.sun_path), sizeof address.sun_path - 1);
        const Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        if (!socket) {
            return "no socket";
        }
        EXPECT_EQ(
            ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
            0);
        static_cast<void>(::send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL));
        ::shutdown(socket.get(), SHUT_WR);
        std::string answer(64, '\0');
        const ssize_t count = ::recv(socket.get(), answer.data(), answer.size(), 0);
        answer.resize(count < 0 ? 0 : static_cast<std::size_t>(count));
        return answer;
    }

    TemporaryDirectory folder_{built()};
    TestAuthority authority_;
    TrustAnchors anchors_{folder_ / "anchors.d", ::geteuid()};
    Descriptor listener_;
    std::unique_ptr<StartedProgram> examiner_;
};

TEST_F(ExaminerTest, SaysWhatAnExaminationInThisProcessSays) {
    const auto judged = examined(opened().get());
    ASSERT_TRUE(judged) << judged.error();
    EXPECT_EQ(judged->status(), codesign_status::kSuccess) << judged->reason();
    EXPECT_EQ(judged->encoded(),
              StaticCode::examine(opened().get(), {.anchors = *anchors()}).encoded());

    const Descriptor changed(::open(program().c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_EQ(::pwrite(changed.get(), "x", 1, 4096), 1);
    EXPECT_EQ(examined(changed.get())->status(), codesign_status::kSignatureFailed);
    const Descriptor plain(::open("/bin/true", O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(examined(plain.get())->status(), codesign_status::kUnsigned);
    const Descriptor folder(::open("/", O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(examined(folder.get())->status(), codesign_status::kRegularFile);
    EXPECT_EQ(examined(opened().get(), milliseconds(0))->status(), codesign_status::kCancelled);
}

TEST_F(ExaminerTest, HasGivenUpEveryPrivilege) {
    ASSERT_TRUE(examined(opened().get())); // it is past its start
    const std::string status = contentOf("/proc/" + std::to_string(examiner_->pid()) + "/status");
    EXPECT_THAT(status, HasSubstr("NoNewPrivs:\t1\n"));
    if (::geteuid() == 0) {
        EXPECT_THAT(status, HasSubstr("Uid:\t47111\t47111\t47111\t47111\n"));
        EXPECT_THAT(status, HasSubstr("Gid:\t47111\t47111\t47111\t47111\n"));
        EXPECT_THAT(status, HasSubstr("Groups:\t \n"));
    }
    for (const char* set : {"CapInh", "CapPrm", "CapEff", "CapAmb"}) {
        EXPECT_THAT(status, HasSubstr(std::string(set) + ":\t0000000000000000\n"));
    }
    if (!isSanitized()) {
        EXPECT_THAT(status, HasSubstr("Seccomp:\t2\n"));
    }
}

TEST_F(ExaminerTest, BrokenRequestsGetNoAnswerAndHarmNobody) {
    const std::string frame = examinationFrame(
        Value::dictionary({{"anchors", anchors()->encoded()}, {"milliseconds", Value::integer(1)}}),
        kLongestRequest);
    for (const std::string& bytes :
         {std::string(), std::string("\xff\xff\xff\xff", 4), frame.substr(0, frame.size() / 2),
          frame + "more", frame /* without a program */,
          examinationFrame(Value::dictionary({}), kLongestRequest),
          examinationFrame(Value::dictionary({{"anchors", Value::string("none")}}),
                           kLongestRequest)}) {
        EXPECT_EQ(answerTo(bytes), "");
    }
    EXPECT_TRUE(examined(opened().get()));
    EXPECT_TRUE(examiner_->isRunning());
}

TEST_F(ExaminerTest, SlowClientsDoNotKeepOthersWaiting) {
    std::vector<ExaminerCall> halfWay;
    for (int i = 0; i < 7; ++i) { // one process is left
        auto call = ExaminerCall::begin(socketPath(), opened().get(), *anchors(), kTime);
        ASSERT_TRUE(call) << call.error();
        halfWay.push_back(std::move(*call));
    }
    EXPECT_TRUE(examined(opened().get()));
}

// What an examiner that breaks leaves behind is no judgement, whatever it was about to say.
TEST_F(ExaminerTest, ABrokenAnswerIsNoJudgement) {
    const std::string place = folder_ / "false.sock";
    const Descriptor listener = listenAt(place);
    const auto judgementFrom = [&](std::string_view answer) {
        auto call = ExaminerCall::begin(place, opened().get(), *anchors(), kTime);
        const Descriptor connection(::accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
        while (call->isSending() && !call->advance()) {
        }
        std::string request(kLongestRequest, '\0');
        EXPECT_GT(::recv(connection.get(), request.data(), request.size(), 0), 0);
        EXPECT_EQ(::send(connection.get(), answer.data(), answer.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(answer.size()));
        ::shutdown(connection.get(), SHUT_RDWR);
        return finished(*call);
    };
    const auto frameOf = [](const Value& value) { return examinationFrame(value, kLongestReply); };
    const std::string good =
        frameOf(StaticCode::examine(opened().get(), {.anchors = *anchors()}).encoded());
    ASSERT_EQ(judgementFrom(good)->status(), codesign_status::kSuccess) << "it can be said";
    for (std::size_t length = 0; length < good.size(); length += length < 8 ? 1 : 7) {
        ASSERT_FALSE(judgementFrom(good.substr(0, length))) << length;
    }
    EXPECT_FALSE(judgementFrom(good + "x"));
    EXPECT_FALSE(judgementFrom(good + good));
    EXPECT_FALSE(judgementFrom(std::string("\xff\xff\xff\xff", 4) + good));
    EXPECT_FALSE(judgementFrom(frameOf(Value::dictionary({}))));
    EXPECT_FALSE(judgementFrom(frameOf(Value::array({}))));
    EXPECT_FALSE(judgementFrom(frameOf(Value::dictionary({{"status", Value::integer(0)}}))));
}

TEST_F(ExaminerTest, ACallSaysWhyNobodyCanBeAsked) {
    const auto call = ExaminerCall::begin(folder_ / "nobody.sock", 0, *anchors(), kTime);
    ASSERT_FALSE(call);
    EXPECT_THAT(call.error(), HasSubstr("nobody.sock: No such file or directory"));
    examiner_->kill();
    ASSERT_TRUE(examiner_->wait());
    listener_.reset();
    const auto refused = ExaminerCall::begin(socketPath(), 0, *anchors(), kTime);
    ASSERT_FALSE(refused);
    EXPECT_THAT(refused.error(), HasSubstr("Connection refused"));
}

} // namespace
} // namespace qv::test
