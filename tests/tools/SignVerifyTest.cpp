// qvcatalog sign and verify on real programs, with the anchors of this build.

#include "support/TestAuthority.h"
#include "tools/Command.h"

#include <unistd.h>

namespace qv::test {
namespace {

TEST(SignAndVerify, PrintWhatTheirTranscriptShows) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root: looks into processes, and the anchors are root's";
    }
    const TemporaryDirectory folder;
    static_cast<void>(TestAuthority().requestIn(folder / "keys"));
    static_cast<void>(TestAuthority().requestIn(folder / "other"));
    std::filesystem::copy_file(QV_WIRE_PUPPET, folder / "program");
    std::filesystem::copy_file(QV_LIVE_PROGRAMS "/wire_puppet", folder / "good");
    expectTranscript("sign", folder);
}

} // namespace
} // namespace qv::test
