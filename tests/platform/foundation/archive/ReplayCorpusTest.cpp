// Every stored input of the fuzz target, seeds and what once broke it, goes through its entry
// point.

#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

TEST(ReplayCorpus, Archives) {
    std::size_t count = 0;
    for (const auto& file : std::filesystem::directory_iterator(QV_CORPUS)) {
        SCOPED_TRACE(file.path());
        const std::string input = qv::test::contentOf(file.path());
        EXPECT_EQ(LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(input.data()),
                                         input.size()),
                  0);
        ++count;
    }
    EXPECT_GT(count, 0U) << "no corpus in " << QV_CORPUS;
}
