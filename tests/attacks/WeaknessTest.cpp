// The build that leaves checks out is one for these tests alone.

#include "support/BuildFolder.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>

namespace qv::test {
namespace {

TEST(Weakness, IsOfNoProgramThatAnybodyGets) {
    constexpr std::string_view kVariable = "QV_MUTATIONS";
    EXPECT_NE(contentOf(built("bin/weakened_service")).find(kVariable), std::string::npos);
    for (const std::string& file : {built("bin/QVCatalogHelperXPC"), built("bin/QVCatalogExaminer"),
                                    built("bin/qvcatalog"), built("lib/libqvcatalog.so")}) {
        const std::string content = contentOf(file);
        EXPECT_FALSE(content.empty()) << file;
        EXPECT_EQ(content.find(kVariable), std::string::npos) << file;
    }
}

} // namespace
} // namespace qv::test
