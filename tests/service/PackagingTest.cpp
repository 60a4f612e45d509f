// Tests units, a group, and the lists inside the service.

#include "support/BuildFolder.h"
#include "support/Transcript.h"

namespace qv::test {
namespace {

TEST(Packaging, PrintsWhatItsTranscriptShows) {
    const TemporaryDirectory folder;
    followTranscript(QV_TRANSCRIPT, folder,
                     {"UNITS=" + built("packaging"), "SYSUSERS=" QV_SYSUSERS,
                      "SOURCES=" QV_SERVICE_SOURCES, "INFO=" + built("Info.plist"),
                      "SERVICE=" + built("bin/QVCatalogHelperXPC"), "VERSION=" QV_VERSION,
                      "SOCKET=" + built("run/helper.sock"), "SYSTEMD_COLORS=0"});
}

} // namespace
} // namespace qv::test
