#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace qv {

/// The form of a class's objects in an archive.
enum class ArchiveClass : std::uint8_t {
    string,     ///< NS.string, inline
    data,       ///< NS.data, inline
    array,      ///< NS.objects
    set,        ///< NS.objects
    countedSet, ///< NS.count and NS.object0, NS.object1 ..., or as a set
    dictionary, ///< NS.keys and NS.objects, in step
    date,       ///< NS.time, inline
    null,       ///< nothing
    url,        ///< NS.base and NS.relative
    uuid,       ///< NS.uuidbytes, inline
    error,      ///< NSDomain, NSCode (inline), NSUserInfo
};

/// Returns none for a class that is not understood.
[[nodiscard]] std::optional<ArchiveClass> archiveClassNamed(std::string_view name);

namespace archive_key {
inline constexpr std::string_view kVersion = "$version";
inline constexpr std::string_view kObjects = "$objects";
inline constexpr std::string_view kArchiver = "$archiver";
inline constexpr std::string_view kTop = "$top";
inline constexpr std::string_view kRoot = "root";
inline constexpr std::string_view kClass = "$class";
inline constexpr std::string_view kClassName = "$classname";
inline constexpr std::string_view kClasses = "$classes";
inline constexpr std::string_view kClassHints = "$classhints";
inline constexpr std::string_view kInlineString = "NS.string";
inline constexpr std::string_view kInlineData = "NS.data";
inline constexpr std::string_view kMembers = "NS.objects";
inline constexpr std::string_view kCount = "NS.count";
inline constexpr std::string_view kNumberedMember = "NS.object"; ///< before the number
inline constexpr std::string_view kKeys = "NS.keys";
inline constexpr std::string_view kTime = "NS.time";
inline constexpr std::string_view kBase = "NS.base";
inline constexpr std::string_view kRelative = "NS.relative";
inline constexpr std::string_view kUUIDBytes = "NS.uuidbytes";
inline constexpr std::string_view kDomain = "NSDomain";
inline constexpr std::string_view kCode = "NSCode";
inline constexpr std::string_view kUserInfo = "NSUserInfo";
} // namespace archive_key

inline constexpr std::int64_t kArchiveVersion = 100000;
/// Element 0 of the objects, and any string of this text, stands for nil.
inline constexpr std::string_view kNilText = "$null";

} // namespace qv
