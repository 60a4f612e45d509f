#pragma once

#include "platform/foundation/values/Error.h"

#include <chrono>
#include <string>

namespace qv::imager {

/// Has 7-Zip write the content of a file, open for reading, into an empty folder, open too.
/// `format` is 7-Zip's name of what the file is ("Dmg", "HFS"); nothing else is tried, and what
/// carries checksums is held against them.
///
/// The file is a stranger's. As root the program that reads it has an identity and namespaces of
/// its own and sees nothing but /usr, the file and the folder; it ends with this process. The files
/// that it writes belong to that identity, so nobody else may reach the folder yet. It is killed,
/// and that is an error, once it has used no processor time for as long as `patience`.
[[nodiscard]] Error unpack(int file, const std::string& format, int folder,
                           std::chrono::milliseconds patience = std::chrono::minutes(1));

/// The path by which 7-Zip knew the folder: targets of absolute links begin with it.
[[nodiscard]] std::string pathWhileUnpacking(int folder);

} // namespace qv::imager
