// The messages between the examiner and the service: an examiner that was taken over may answer
// anything, and each message that is read must read the same again.

#include "platform/security/examination/ExaminerCall.h"
#include "platform/security/signature/StaticCode.h"
#include "platform/security/signature/TrustAnchors.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    qv::ValueFrameReader reader(qv::kLongestReply);
    const std::size_t half = size / 2;
    auto complete = reader.take(bytes.substr(0, half));
    if (complete && !*complete) {
        complete = reader.take(bytes.substr(half));
    }
    if (!complete || !*complete) {
        return 0;
    }
    const qv::WorkResult content = reader.result();
    if (!content) {
        static_cast<void>(content.error().localizedDescription()); // the service logs this
        return 0;
    }
    if (const auto code = qv::StaticCode::decoded(*content)) {
        const auto again = qv::StaticCode::decoded(code->encoded());
        if (!again || qv::frameOf(again->encoded(), qv::kLongestReply) !=
                          qv::frameOf(code->encoded(), qv::kLongestReply)) {
            std::abort();
        }
    }
    static_cast<void>(qv::AnchorSet::decoded(*content));
    return 0;
}
