// Units, a group, and the lists inside the service.

#include "support/Transcript.h"

namespace qv::test {
namespace {

TEST(Packaging, PrintsWhatItsTranscriptShows) {
    const TemporaryDirectory folder;
    followTranscript(QV_TRANSCRIPT, folder,
                     {"UNITS=" QV_UNITS, "SYSUSERS=" QV_SYSUSERS, "SOURCES=" QV_SERVICE_SOURCES,
                      "INFO=" QV_INFO_PLIST, "SERVICE=" QV_SERVICE_PROGRAM, "VERSION=" QV_VERSION,
                      "SOCKET=" QV_SOCKET_PATH, "SYSTEMD_COLORS=0"});
}

} // namespace
} // namespace qv::test
