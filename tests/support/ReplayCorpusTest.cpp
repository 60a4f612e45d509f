// Runs every stored input of a fuzz target through its entry point: the seeds, and what ever broke
// it.

#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace qv::test {
namespace {

TEST(ReplayCorpus, SurvivesEveryStoredInput) {
    std::size_t replayed = 0;
    for (const auto& entry : std::filesystem::directory_iterator(QV_CORPUS)) {
        SCOPED_TRACE(entry.path());
        const std::string content = contentOf(entry.path());
        const std::vector<std::uint8_t> bytes(content.begin(), content.end());
        EXPECT_EQ(LLVMFuzzerTestOneInput(bytes.data(), bytes.size()), 0);
        ++replayed;
    }
    EXPECT_GT(replayed, 0U) << "no corpus in " << QV_CORPUS;
}

} // namespace
} // namespace qv::test
