// A packaged desktop application, found and launched through the service, on a display of its own.

#include "service/ServiceTest.h"
#include "support/StartedProgram.h"
#include "support/TemporaryDirectory.h"
#include "tools/Command.h"

#include <fmt/core.h>

#include <csignal>
#include <thread>

namespace fs = std::filesystem;

namespace qv::test {
namespace {

const std::string kSigned = QV_LIVE_PROGRAMS "/qvcatalog";

// What the X server keeps its screen in is XWD: a header that tells its length, width and height
// in big-endian words 0, 4 and 5, the bytes of a line in word 12, the number of colours, of twelve
// bytes each, in word 19; then lines of blue, green, red and nothing. Writes it as PNG, and prints
// how many pixels are not black.
constexpr const char* kScreenshot = R"(
import struct, sys, zlib
data = open(sys.argv[1], 'rb').read()
head = struct.unpack('>25I', data[:100])
length, width, height, line, colours = head[0], head[4], head[5], head[12], head[19]
start, lit, rows = length + 12 * colours, 0, b''
for y in range(height):
    row = data[start + y * line:start + y * line + 4 * width]
    rgb = bytearray(3 * width)
    rgb[0::3], rgb[1::3], rgb[2::3] = row[2::4], row[1::4], row[0::4]
    lit += sum(1 for x in range(0, 3 * width, 3) if rgb[x] or rgb[x + 1] or rgb[x + 2])
    rows += b'\0' + bytes(rgb)
def chunk(kind, body):
    return struct.pack('>I', len(body)) + kind + body + struct.pack('>I', zlib.crc32(kind + body))
with open(sys.argv[2], 'wb') as out:
    out.write(b'\x89PNG\r\n\x1a\n' + chunk(b'IHDR', struct.pack('>2I5B', width, height, 8, 2, 0, 0, 0))
              + chunk(b'IDAT', zlib.compress(rows)) + chunk(b'IEND', b''))
print(lit)
)";

class DesktopLaunch : public ServiceTest {
protected:
    void SetUp() override {
        ServiceTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        keepServing();
        PipeEnds number = makePipe();
        server_.emplace(ProgramStart{.command = {"/usr/bin/Xvfb", "-displayfd", "1", "-screen", "0",
                                                 "640x480x24", "-fbdir", folder_.path().native(),
                                                 "-nolisten", "tcp", "-noreset"},
                                     .standard = {-1, number.write.get(), -1}});
        number.write.reset();
        display_ = "DISPLAY=:";
        for (char digit = 0; ::read(number.read.get(), &digit, 1) == 1 && digit != '\n';) {
            display_ += digit;
        }
        ASSERT_NE(display_, "DISPLAY=:") << "the display does not come up";
    }

    void TearDown() override {
        if (server_) { // asked to end, it takes its lock and its socket away
            ::kill(server_->pid(), SIGTERM);
            server_->wait();
        }
        ServiceTest::TearDown();
    }

    template <typename Condition> static bool comesTrue(const Condition& condition) {
        const auto end = std::chrono::steady_clock::now() + kPatience;
        while (!condition()) {
            if (std::chrono::steady_clock::now() > end) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return true;
    }

    std::optional<StartedProgram> server_; // with it, its clients end
    std::string display_;
};

TEST_F(DesktopLaunch, APackagedApplicationShowsItsWindow) {
    const ProgramRun found = qvcatalog({"application", "debian-xterm"});
    ASSERT_EQ(found.output, "/usr/share/applications/debian-xterm.desktop\n");
    const ProgramRun named = qvcatalog({"application", "--name", "XTerm"});
    EXPECT_EQ(named.output, found.output);

    const ProgramRun run = runProgram(
        {kSigned, "run", "-", "--socket", service_->socketPath()},
        "( { operation = 1; URL = \"file:///usr/share/applications/debian-xterm.desktop\"; } )",
        {display_});
    EXPECT_EQ(run.status, 0) << run.output << run.errors;
    EXPECT_TRUE(comesTrue([&] {
        return runProgram({"/usr/bin/xwininfo", "-root", "-tree"}, {}, {display_})
                   .output.find("(\"xterm\" \"XTerm\")") != std::string::npos;
    }));
    fs::create_directories(QV_ARTEFACTS);
    constexpr int kOfAWindow = 10'000;
    EXPECT_TRUE(comesTrue([&] {
        const ProgramRun taken =
            runProgram({QV_PYTHON, "-c", kScreenshot, (folder_ / "Xvfb_screen0").native(),
                        QV_ARTEFACTS "/desktop-application.png"});
        EXPECT_EQ(taken.errors, "");
        return taken.status != 0 || std::stoi(taken.output) > kOfAWindow;
    }));
}

} // namespace
} // namespace qv::test
