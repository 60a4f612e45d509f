// Arbitrary bytes as a signed file, and as a code directory: what is read writes back and reads the
// same again.

#include "platform/foundation/os/Descriptor.h"
#include "platform/security/signature/CodeDirectory.h"
#include "platform/security/signature/OpenSSLHandles.h"
#include "platform/security/signature/SignatureTrailer.h"

#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr std::size_t kLongest = 200'000;

void require(bool fact) {
    if (!fact) {
        std::abort();
    }
}

void readDirectory(std::string_view bytes) {
    const auto directory = qv::CodeDirectory::decode(bytes);
    if (!directory) {
        require(directory.error().status != 0 && !directory.error().reason.empty());
        return;
    }
    const auto again = qv::CodeDirectory::decode(directory->encoded().value());
    require(again && again->identifier == directory->identifier && again->team == directory->team &&
            again->flags == directory->flags && again->platform == directory->platform &&
            again->digest == directory->digest &&
            again->coveredLength == directory->coveredLength && again->info == directory->info &&
            again->entitlements == directory->entitlements);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    if (size > kLongest) {
        return 0;
    }
    const std::string_view bytes = qv::bytesView(data, size);
    readDirectory(bytes);
    const qv::Descriptor file(::memfd_create("program", MFD_CLOEXEC));
    if (!file || ::write(file.get(), data, size) != static_cast<ssize_t>(size)) {
        return 0;
    }
    const auto trailer = qv::SignatureTrailer::read(file.get(), size);
    if (!trailer) {
        require(trailer.error().status != 0 && !trailer.error().reason.empty());
        return 0;
    }
    require(bytes.substr(trailer->covered) == trailer->encoded());
    readDirectory(trailer->directory);
    return 0;
}
