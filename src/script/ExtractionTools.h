#pragma once

#include <string>

namespace qv {

/// The programs that unpack archives and disk images, absolute paths, and where images are mounted:
/// the builder's choices, unless a test names others.
struct ExtractionTools {
    ExtractionTools();
    std::string archiveTool;
    std::string diskImageTool;
    std::string volumesFolder;
};

} // namespace qv
