#include "platform/foundation/plist/WriteRefusal.h"

#include <fmt/core.h>

namespace qv::plist {

std::string keyPath(std::span<const WriteFrame> frames) {
    constexpr std::size_t kLongest = 1024;
    std::string path;
    for (const WriteFrame& frame : frames) {
        if (frame.next == 0) {
            continue;
        }
        if (path.size() > kLongest) {
            return path + "...";
        }
        if (frame.container.is(Value::Kind::dictionary)) {
            path += path.empty() ? "" : ".";
            path += frame.container.asDictionary().key(frame.next - 1);
        } else {
            path += fmt::format("[{}]", frame.next - 1);
        }
    }
    return path.empty() ? "the root" : path;
}

Error writeRefusal(std::span<const WriteFrame> frames, std::string_view wording) {
    return {
        error_domain::kCocoa, cocoa_error::kPropertyListWriteInvalid,
        Value::dictionary({{error_key::kDebugDescription,
                            Value::string(fmt::format("{} at {}", wording, keyPath(frames)))}})};
}

const Value& nextChild(const WriteFrame& frame) {
    return frame.container.is(Value::Kind::dictionary)
               ? frame.container.asDictionary().value(frame.next)
               : frame.container.asArray()[frame.next];
}

std::size_t childCount(const Value& container) {
    return container.is(Value::Kind::dictionary) ? container.asDictionary().size()
                                                 : container.asArray().size();
}

bool isContainer(const Value& value) {
    return value.is(Value::Kind::dictionary) || value.is(Value::Kind::array) ||
           value.is(Value::Kind::set);
}

} // namespace qv::plist
