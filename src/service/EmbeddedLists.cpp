#include "service/EmbeddedLists.h"

#include "platform/foundation/plist/PropertyList.h"

// Retained sections whose names are C identifiers: the linker gives their bounds.
asm(".pushsection __info_plist, \"aR\", @progbits\n"
    ".incbin \"" QV_INFO_PLIST "\"\n"
    ".popsection\n"
    ".pushsection __launchd_plist, \"aR\", @progbits\n"
    ".incbin \"" QV_LAUNCHD_PLIST "\"\n"
    ".popsection\n");

// The linker's names.
// NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming)
extern "C" {
extern const char __start___info_plist[];
extern const char __stop___info_plist[];
extern const char __start___launchd_plist[];
extern const char __stop___launchd_plist[];
}

namespace qv {

std::string_view infoPlistSection() noexcept { return {__start___info_plist, __stop___info_plist}; }

std::string_view launchdPlistSection() noexcept {
    return {__start___launchd_plist, __stop___launchd_plist};
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming)

Value infoDictionary() {
    const auto list = PropertyList::propertyListWithData(infoPlistSection());
    return list && list->root.is(Value::Kind::dictionary) ? list->root : Value::dictionary({});
}

} // namespace qv
