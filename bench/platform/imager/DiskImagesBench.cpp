// A compressed disk image of 100 MiB: attached, copied out and detached, against 7-Zip, which
// unpacks it in one go and checks nothing. Once the kernel mounts the volume, once 7-Zip unpacks
// it. As root; TMPDIR has to be on a disk.

#include "platform/foundation/files/manager/FileManager.h"
#include "platform/foundation/values/URL.h"
#include "support/BuildFolder.h"
#include "support/Contest.h"
#include "support/ShrinkingFiles.h"
#include "support/TemporaryDirectory.h"

#include <fmt/core.h>

#include <cstdlib>
#include <filesystem>

namespace {

namespace fs = std::filesystem;
using namespace qv::bench; // NOLINT(google-build-using-namespace)

constexpr int kRounds = 9;
constexpr int kFiles = 100;
constexpr std::size_t kFileSize = std::size_t{1} << 20U;

int attachAndCopy(const std::string& image, const std::string& mountPoint, const fs::path& out) {
    const std::string imager = qv::test::built("bin/QVCatalogImager");
    measure([&] {
        return runProgram(
            {imager, "attach", "-quiet", "-nobrowse", "-mountpoint", mountPoint, image});
    });
    fs::create_directory(out);
    for (const auto& item : fs::directory_iterator(mountPoint)) {
        const fs::path copy = out / item.path().filename();
        if (qv::FileManager::copyItemAtURL(qv::test::urlOf(item), qv::test::urlOf(copy))) {
            return EXIT_FAILURE;
        }
    }
    measure([&] { return runProgram({imager, "detach", "-force", mountPoint}); });
    return EXIT_SUCCESS;
}

void compare(const qv::test::TemporaryDirectory& folder, std::string_view name,
             const std::string& makeVolume) {
    measure([&] {
        const std::string script = fmt::format("cd '{}'; ({}) >log 2>&1 && {} v i.dmg zlib",
                                               folder.path().native(), makeVolume, QV_DISK_IMAGE);
        return runProgram({"/bin/bash", "-c", script});
    });
    const std::string image = folder / "i.dmg";
    const fs::path out = folder / "out";
    const auto run = [&](Costs& costs, const auto& body) {
        fs::remove_all(out);
        ::sync();
        costs.add(measure(body));
    };
    Costs ours;
    Costs peer;
    for (int round = 0; round < kRounds; ++round) {
        run(ours, [&] { return attachAndCopy(image, folder / "mounted", out); });
        run(peer, [&] {
            return runProgram({"/usr/bin/7zz", "x", "-bso0", "-bsp0", "-o" + out.native(), image});
        });
    }
    fmt::print("a disk image of {} MiB with {}, attached and copied out, against 7zz x:\n", kFiles,
               name);
    report(ours, peer, 1.1);
}

} // namespace

int main() {
    const qv::test::TemporaryDirectory folder;
    writeShrinkingFiles(folder, kFiles, kFileSize);
    compare(folder, "SquashFS", "mksquashfs in v -noD -noF -noI");
    compare(folder, "HFS+",
            "rm v; xorriso -as mkisofs -hfsplus -V NAME -o iso in; 7zz x -tapm -oapm iso; "
            "mv apm/HFSPLUS_Hybrid.hfs v");
}
