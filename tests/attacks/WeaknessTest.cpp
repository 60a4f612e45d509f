// The build that leaves checks out is one for these tests alone.

#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>

namespace qv::test {
namespace {

TEST(Weakness, IsOfNoProgramThatAnybodyGets) {
    constexpr std::string_view kVariable = "QV_MUTATIONS";
    EXPECT_NE(contentOf(QV_WEAKENED_SERVICE).find(kVariable), std::string::npos);
    for (const char* file : {QV_SERVICE_PROGRAM, QV_EXAMINER_PROGRAM, QV_TOOL, QV_LIBRARY}) {
        const std::string content = contentOf(file);
        EXPECT_FALSE(content.empty()) << file;
        EXPECT_EQ(content.find(kVariable), std::string::npos) << file;
    }
}

} // namespace
} // namespace qv::test
