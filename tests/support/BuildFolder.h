#pragma once

#include <filesystem>
#include <string>
#include <string_view>

extern "C" void __sanitizer_print_stack_trace() __attribute__((weak)); // NOLINT: its given name

namespace qv::test {

/// A file of the build that this test was built in: built("bin/qvcatalog"); the folder without a
/// path. Looked up at run time, so that builds which differ in their folder alone share a test's
/// objects.
[[nodiscard]] inline std::string built(std::string_view path = {}) {
    static const std::filesystem::path kFolder =
        std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path();
    return path.empty() ? kFolder.native() : (kFolder / path).native();
}

/// Whether the code under test is built with a sanitizer.
[[nodiscard]] inline bool isSanitized() { return &__sanitizer_print_stack_trace != nullptr; }

} // namespace qv::test
