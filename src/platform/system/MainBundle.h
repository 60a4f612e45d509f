#pragma once

#include "platform/foundation/values/Value.h"

#include <optional>
#include <string>

/// The program that this process runs, seen as a bundle: that of a plain program is the folder of
/// its executable, and its information list is carried in the executable itself.
namespace qv::MainBundle {

/// Returns "/usr/bin" for /usr/bin/program; none where the kernel does not tell.
[[nodiscard]] std::optional<std::string> bundlePath();

/// The property list in the program's section `__info_plist`, as it stands in the running image; an
/// empty dictionary for a program without one.
[[nodiscard]] Value infoDictionary();

/// A text of the dictionary; none for another value.
[[nodiscard]] std::optional<std::string> textForInfoDictionaryKey(std::string_view key);

} // namespace qv::MainBundle
