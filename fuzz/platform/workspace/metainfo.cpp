// Arbitrary bytes as a metainfo file: refused, or a version; and the same when they come in pieces.

#include "platform/workspace/applications/Metainfo.h"

#include "platform/foundation/values/UTF8.h"

#include <cstdlib>

namespace {

std::optional<std::string> versionIn(std::string_view bytes, std::size_t pieceLength) {
    qv::MetainfoReader reader("a.desktop");
    while (!bytes.empty()) {
        const std::string_view piece = bytes.substr(0, pieceLength);
        if (!reader.read(piece)) {
            break;
        }
        bytes.remove_prefix(piece.size());
    }
    return reader.finish();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    const std::string bytes(data, data + size);
    const std::optional<std::string> version = versionIn(bytes, bytes.size());
    constexpr std::size_t kPiece = 7;
    if ((version && (version->empty() || !qv::isUTF8(*version))) ||
        version != versionIn(bytes, kPiece)) {
        std::abort();
    }
    return 0;
}
