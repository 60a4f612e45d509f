// Tests qvcatalog sign and verify on real programs, with the anchors of this build.

#include "support/BuildFolder.h"
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
    std::filesystem::copy_file(built("bin/wire_puppet"), folder / "program");
    std::filesystem::copy_file(built("live/wire_puppet"), folder / "good");
    expectTranscript("sign", folder);
}

} // namespace
} // namespace qv::test
