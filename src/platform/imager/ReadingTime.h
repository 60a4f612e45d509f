#pragma once

#include <chrono>
#include <sys/stat.h>

namespace qv::imager {

/// The longest time that reading a file may take. None of a usable size takes a second for a
/// mebibyte; beyond that the file has its reader go in circles.
inline std::chrono::seconds readingTimeOf(int file) {
    constexpr std::chrono::minutes kLeast{10};
    constexpr unsigned kMebibyte = 20;
    struct stat info{};
    static_cast<void>(::fstat(file, &info));
    return kLeast + std::chrono::seconds(info.st_size >> kMebibyte);
}

} // namespace qv::imager
