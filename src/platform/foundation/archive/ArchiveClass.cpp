#include "platform/foundation/archive/ArchiveClass.h"

#include <algorithm>
#include <array>
#include <utility>

namespace qv {

namespace {

constexpr std::array<std::pair<std::string_view, ArchiveClass>, 16> kClasses{{
    {"NSArray", ArchiveClass::array},
    {"NSCountedSet", ArchiveClass::countedSet},
    {"NSData", ArchiveClass::data},
    {"NSDate", ArchiveClass::date},
    {"NSDictionary", ArchiveClass::dictionary},
    {"NSError", ArchiveClass::error},
    {"NSMutableArray", ArchiveClass::array},
    {"NSMutableData", ArchiveClass::data},
    {"NSMutableDictionary", ArchiveClass::dictionary},
    {"NSMutableSet", ArchiveClass::set},
    {"NSMutableString", ArchiveClass::string},
    {"NSNull", ArchiveClass::null},
    {"NSSet", ArchiveClass::set},
    {"NSString", ArchiveClass::string},
    {"NSURL", ArchiveClass::url},
    {"NSUUID", ArchiveClass::uuid},
}};

} // namespace

std::optional<ArchiveClass> archiveClassNamed(std::string_view name) {
    const auto* found =
        std::ranges::find(kClasses, name, [](const auto& row) { return row.first; });
    return found == kClasses.end() ? std::nullopt : std::optional(found->second);
}

} // namespace qv
