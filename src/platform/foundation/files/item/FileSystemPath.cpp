#include "platform/foundation/files/item/FileSystemPath.h"

#include <string_view>

namespace qv {

namespace {

tl::unexpected<Error> refuse(std::int64_t code, const URL& url, std::string_view why) {
    return tl::unexpected(
        Error(error_domain::kCocoa, code,
              Value::dictionary({{error_key::kURL, Value::url(url)},
                                 {error_key::kDebugDescription, Value::string(why)}})));
}

bool containsEscape(std::string_view text, std::string_view escape) {
    for (std::size_t at = text.find('%'); at != std::string_view::npos;
         at = text.find('%', at + 1)) {
        const std::string_view found = text.substr(at, 3);
        if (found.size() == 3 && found[1] == escape[0] && (found[2] | 0x20) == (escape[1] | 0x20)) {
            return true;
        }
    }
    return false;
}

} // namespace

tl::expected<std::string, Error> fileSystemPath(const std::optional<URL>& url) {
    if (!url) {
        return tl::unexpected(Error(
            error_domain::kCocoa, cocoa_error::kFileNoSuchFile,
            Value::dictionary({{error_key::kDebugDescription, Value::string("there is no URL")}})));
    }
    if (!url->isFileURL()) {
        return refuse(cocoa_error::kFileReadUnsupportedScheme, *url, "the URL is not a file URL");
    }
    const std::string_view encoded = url->encodedPath();
    if (encoded.empty()) {
        return refuse(cocoa_error::kFileNoSuchFile, *url, "the URL has no path");
    }
    if (!encoded.starts_with('/')) {
        return refuse(cocoa_error::kFileReadInvalidFileName, *url,
                      "the URL's path is not absolute");
    }
    if (containsEscape(encoded, "2F") || containsEscape(encoded, "00")) {
        return refuse(cocoa_error::kFileReadInvalidFileName, *url,
                      "the URL's path holds an encoded slash or an encoded NUL");
    }
    std::string path = percentDecoded(encoded);
    while (path.size() > 1 && path.ends_with('/')) {
        path.pop_back();
    }
    return path;
}

} // namespace qv
