#include "foundation_ext/QVStringTools.h"
#include "platform/foundation/text/Collation.h"
#include "platform/foundation/text/VersionOrder.h"

namespace qv {

ComparisonResult QVStringTools::compareVersionTo(std::optional<std::string_view> receiver,
                                                 std::optional<std::string_view> other) noexcept {
    return compareVersionTo(receiver, other, ".");
}

ComparisonResult QVStringTools::compareVersionTo(std::optional<std::string_view> receiver,
                                                 std::optional<std::string_view> other,
                                                 std::string_view withSeperator) noexcept {
    return receiver && other ? compareVersions(*receiver, *other, withSeperator)
                             : ComparisonResult::same;
}

ComparisonResult QVStringTools::compareLikeFinder(std::string_view receiver,
                                                  std::string_view other) {
    return compareAsFileBrowser(receiver, other);
}

} // namespace qv
