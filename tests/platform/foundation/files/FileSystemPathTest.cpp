#include "platform/foundation/files/item/FileSystemPath.h"

#include "support/CaseFile.h"
#include "support/ErrorMatchers.h"

namespace qv {
namespace {

TEST(FileSystemPath, TakesOrRefusesURLs) {
    for (const auto& [place, fields] : test::casesOf(QV_FILE_CASES "/paths.txt", 2)) {
        SCOPED_TRACE(place + ": " + fields[0]);
        const std::optional<URL> url = URL::URLWithString(fields[0]);
        ASSERT_TRUE(url);
        const tl::expected<std::string, Error> path = fileSystemPath(url);
        if (path) {
            EXPECT_EQ(*path, fields[1]);
            continue;
        }
        EXPECT_EQ(path.error().domain(), error_domain::kCocoa);
        EXPECT_EQ("refused: " + std::to_string(path.error().code()), fields[1]);
        const Value userInfo = path.error().userInfo();
        const Value* named = userInfo.find(error_key::kURL);
        ASSERT_NE(named, nullptr) << "nobody can tell which URL was refused";
        EXPECT_EQ(named->asURL(), *url);
    }
    EXPECT_THAT(fileSystemPath(std::nullopt),
                failsWith(error_domain::kCocoa, cocoa_error::kFileNoSuchFile));
}

} // namespace
} // namespace qv
