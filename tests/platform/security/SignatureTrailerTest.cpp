#include "platform/security/signature/SignatureTrailer.h"

#include "platform/foundation/os/Descriptor.h"

#include <gtest/gtest.h>

#include "SignatureFixture.h"
#include <fcntl.h>
#include <unistd.h>

namespace qv::test {
namespace {

using namespace codesign_status;

const std::string kProgram = "\x7f" + std::string("ELF") + std::string(96, 'p');

tl::expected<SignatureTrailer, SignatureFailure> readFrom(std::string_view bytes) {
    const TemporaryDirectory folder;
    const auto path = folder.write("program", bytes);
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    return SignatureTrailer::read(file.get(), bytes.size());
}

std::string footer(std::uint32_t version, std::uint32_t directory, std::uint32_t cms,
                   std::uint32_t reserved = 0) {
    std::string out;
    for (const std::uint32_t number : {version, directory, cms, reserved}) {
        for (unsigned shift = 0; shift < 32; shift += 8) {
            out += static_cast<char>((number >> shift) & 0xFFU);
        }
    }
    return out + std::string(SignatureTrailer::kMagic);
}

TEST(SignatureTrailer, ReportsFirstFaultInItsOrder) {
    const std::string parts = "dcms";
    const std::string good = footer(1, 1, 3);
    const std::string kFull = "\x7f" + std::string("ELF") + std::string(60, 'p');
    struct Case {
        const char* fault;
        std::string bytes;
        std::int32_t status;
    };
    const std::vector<Case> cases = {
        {"empty file", "", kUnsigned},
        {"shorter than a footer", good.substr(1), kUnsigned},
        {"no magic", kProgram, kUnsigned},
        {"magic one byte early", kProgram + parts + good + "x", kUnsigned},
        {"version before lengths", kProgram + parts + footer(2, 0, 0, 1), kSignatureUnsupported},
        {"version 0", kProgram + parts + footer(0, 1, 3), kSignatureUnsupported},
        {"reserved field", kProgram + parts + footer(1, 1, 3, 1U << 31U), kSignatureInvalid},
        {"no directory", kProgram + parts + footer(1, 0, 4), kSignatureInvalid},
        {"no CMS", kProgram + parts + footer(1, 4, 0), kSignatureInvalid},
        {"directory too long", kProgram + parts + footer(1, 65537, 3), kSignatureInvalid},
        {"sum wraps around", kProgram + parts + footer(1, 0xFFFFFFFF, 5), kSignatureInvalid},
        {"longer than the file", kProgram + parts + footer(1, 200, 3), kSignatureInvalid},
        {"footer alone", good, kSignatureInvalid},
        {"63 bytes of program", kFull.substr(0, 63) + parts + good, kSignatureInvalid},
        {"not ELF", std::string(64, 'p') + parts + good, kSignatureInvalid},
        {"a trailer within", kProgram + parts + good + parts + good, kSignatureInvalid},
        {"64 bytes of program", kFull + parts + good, kSuccess},
    };
    for (const Case& each : cases) {
        const auto read = readFrom(each.bytes);
        EXPECT_EQ(statusOf(read), each.status) << each.fault << ": " << reasonOf(read);
        EXPECT_EQ(reasonOf(read).empty(), each.status == kSuccess) << each.fault;
    }
    const auto read = readFrom(kFull + parts + good);
    EXPECT_EQ(read->covered, kFull.size());
    EXPECT_EQ(read->directory + " " + read->cms, "d cms");
    EXPECT_EQ(read->encoded(), parts + good);
}

} // namespace
} // namespace qv::test
