// Archives and disk images whose makers want more than a folder of files.

#include "machine/Machine.h"

namespace qv::test {
namespace {

struct Hostile {
    std::string recipe;  ///< makes a.zip or a.dmg
    int status;          ///< of unpacking it as root
    std::string listing; ///< of what has come out: kind, mode, path and target of a link
};

const std::string kZip = QV_SOURCE "/tests/platform/archiver/make-zip ";
const std::string kTree = "mkdir -m 3777 t; cp /bin/true t/s; chmod 6755 t/s; mknod t/n c 1 3; "
                          "setcap cap_setuid+ep t/s; ln -s /srv t/l; mksquashfs t v -quiet "
                          "-no-progress; rm -r t; ";
const std::string kMounted = "f755 s\nl777 l /srv\n";
const std::string kUnpacked = "f644 n\n" + kMounted; // a file instead of the device

const std::vector<Hostile> kHostile = {
    {kZip + "../x 100644 x >a.zip", 1, ""},
    {kZip + "/srv/x 100644 x >a.zip", 1, ""},
    {kZip + "l 120777 /srv l/x 100644 x >a.zip", 1, ""},
    {kZip + "l 120777 d/../.. d/ 40755 '' l/x 100644 x >a.zip", 1, "d700 d\n"},
    {kZip + "d/ 40755 '' l 120777 d l/x 100644 x >a.zip", 1, "d700 d\nl777 l d\n"},
    {kZip + "n 20666 '' >a.zip", 1, ""},
    {kZip + "s 106755 x S 104711 x t/ 41777 '' >a.zip", 0, "d777 t\nf711 S\nf755 s\n"},
    {kTree + "mv v a.dmg", 0, kUnpacked},
    {kTree + QV_SOURCE "/tests/platform/imager/disk_image.py v a.dmg zlib", 0, kUnpacked},
    {"for i in {0..63}; do mknod /dev/loop$i b 7 $i; done; mknod /dev/loop-control c 10 237; " +
         kTree + "mv v a.dmg",
     0, kMounted}};

std::string unpackedBy(uid_t user, int& status) {
    const std::string folder = "/srv/hostile/" + std::to_string(user);
    status = shell("cd " + folder + "; qvcatalog extract ../a.* --to out", user).status;
    return shell("cd " + folder +
                 " && find out -mindepth 1 -printf '%y%m %P %l\\n' | sed 's/ $//' "
                 "| LC_ALL=C sort; getcap -r out; rm -rf out")
        .output;
}

TEST(HostileArchives, ChangeNothingOutsideTheirFolder) {
    const std::string state =
        "find /etc /home /srv /tmp /usr/libexec -path /srv/hostile -prune -o "
        "-newer /srv/hostile/begin "
        "-print; cat /proc/mounts; find /Volumes /run/qvcatalog/images -mindepth 1; "
        "grep -s /srv/ /sys/block/loop*/loop/backing_file";
    for (const Hostile& hostile : kHostile) {
        SCOPED_TRACE(hostile.recipe);
        ASSERT_EQ(
            shell("rm -rf /srv/hostile; mkdir -p /srv/hostile; cd /srv/hostile; mkdir 0 1001; "
                  "chown 1001 1001; touch begin; " +
                  hostile.recipe)
                .status,
            0);
        const std::string before = shell(state).output;
        int status = -1;
        EXPECT_EQ(unpackedBy(kRoot, status), hostile.listing);
        EXPECT_EQ(status, hostile.status);
        const bool isImage = hostile.recipe.find(".dmg") != std::string::npos;
        EXPECT_EQ(unpackedBy(kVictim, status), isImage ? "" : hostile.listing);
        EXPECT_EQ(status, isImage ? 1 : hostile.status);
        EXPECT_EQ(shell(state).output, before);
    }
}

} // namespace
} // namespace qv::test
