// Measures the unpacking of a ZIP archive of 4,000 files, 100 MiB, or of as many files of that size
// as the argument says (20000: 500 MiB), through the class method, which feeds the archiver through
// a pipe, against bsdtar and unzip, which read the file; and looking for a bundle in 100,000
// folders against find. They take turns. TMPDIR has to be on a disk.

#include "platform/foundation/values/URL.h"
#include "script/QVCatalogScript.h"
#include "support/Contest.h"
#include "support/ShrinkingFiles.h"
#include "support/TemporaryDirectory.h"

#include <fmt/core.h>

#include <cstdlib>
#include <filesystem>

namespace {

namespace fs = std::filesystem;
using namespace qv::bench; // NOLINT(google-build-using-namespace)

constexpr int kRounds = 7;
constexpr int kUsualFiles = 4000;
constexpr std::size_t kFileSize = 26214;
constexpr int kFolders = 1000; // times 100

void unpack(const qv::test::TemporaryDirectory& folder, int files) {
    const std::string archive = folder / "a.zip";
    const std::string out = folder / "out";
    const auto run = [&](Costs& costs, const auto& body) {
        fs::remove_all(out);
        fs::create_directory(out);
        ::sync();
        costs.add(measure(body));
    };
    Costs ours;
    Costs bsdtar;
    Costs unzip;
    for (int round = 0; round < kRounds; ++round) {
        run(ours, [&] {
            return qv::QVCatalogScript::extractZIP(qv::URL::fileURLWithPath(archive),
                                                   qv::URL::fileURLWithPath(out))
                       ? EXIT_FAILURE
                       : EXIT_SUCCESS;
        });
        run(bsdtar, [&] { return runProgram({"/usr/bin/bsdtar", "-xf", archive, "-C", out}); });
        run(unzip, [&] { return runProgram({"/usr/bin/unzip", "-q", archive, "-d", out}); });
    }
    fmt::print("a ZIP archive of {} files, against bsdtar -xf:\n", files);
    report("wall time", ours.wall, bsdtar.wall, 1.1);
    report("processor time", ours.processor, bsdtar.processor, 0);
    fmt::print("the same against unzip:\n");
    report("wall time", ours.wall, unzip.wall, 0.9);
    report("processor time", ours.processor, unzip.processor, 0);
}

void find(const qv::test::TemporaryDirectory& folder) {
    for (int i = 0; i < kFolders; ++i) {
        for (int j = 0; j < 99; ++j) {
            fs::create_directories(folder / fmt::format("tree/{}/{}", i, j));
        }
    }
    const std::string tree = folder / "tree";
    Costs ours;
    Costs peer;
    for (int round = 0; round < kRounds; ++round) {
        ours.add(measure([&] {
            return qv::QVCatalogScript::findBundleWithIdentifier("org.example.none",
                                                                 qv::URL::fileURLWithPath(tree))
                       ? EXIT_FAILURE
                       : EXIT_SUCCESS;
        }));
        peer.add(
            measure([&] { return runProgram({"/usr/bin/find", tree, "-name", "Info.plist"}); }));
    }
    fmt::print("a bundle that is not in {} folders, against find -name Info.plist:\n",
               kFolders * 100);
    report(ours, peer, 0);
}

} // namespace

int main(int count, char** arguments) {
    const int files = count > 1 ? std::atoi(arguments[1]) : kUsualFiles;
    const qv::test::TemporaryDirectory folder;
    writeShrinkingFiles(folder, files, kFileSize);
    measure([&] {
        return fs::current_path(folder / "in"),
               runProgram({"/usr/bin/zip", "-qr", "../a.zip", "."});
    });
    unpack(folder, files);
    find(folder);
}
