// Runs the stored inputs of one fuzz target through its entry point: every seed, and every input
// that ever broke it.

#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <filesystem>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size);

namespace qv::test {
namespace {

TEST(ReplayCorpus, EveryStoredInputIsSurvived) {
    std::size_t replayed = 0;
    for (const auto& entry : std::filesystem::directory_iterator(QV_CORPUS)) {
        SCOPED_TRACE(entry.path());
        const std::string content = contentOf(entry.path());
        EXPECT_EQ(LLVMFuzzerTestOneInput(reinterpret_cast<const unsigned char*>(content.data()),
                                         content.size()),
                  0);
        ++replayed;
    }
    EXPECT_GT(replayed, 0U) << "no corpus in " << QV_CORPUS;
}

} // namespace
} // namespace qv::test
