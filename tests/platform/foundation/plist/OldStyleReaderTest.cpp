#include "platform/foundation/plist/OldStyleReader.h"

#include "support/CaseFile.h"

#include "PlistTestSupport.h"

namespace qv::test {
namespace {

TEST(OldStyleReader, ReadsOrRefuses) {
    for (const auto& [place, fields] : casesOf(QV_PLIST_CASES "/oldstyle.txt", 2)) {
        const auto value = plist::readOldStyle(fields[0], {});
        EXPECT_EQ(value ? dump(*value) : "refused: " + reasonOf(value.error()), fields[1]) << place;
    }
}

} // namespace
} // namespace qv::test
