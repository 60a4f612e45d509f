#include "platform/foundation/values/URL.h"

#include "platform/foundation/values/ASCII.h"
#include "platform/foundation/values/UTF8.h"

#include <algorithm>
#include <filesystem>
#include <sys/stat.h>
#include <vector>

namespace qv {

namespace {

constexpr std::string_view kNeverInURL = " \"<>\\^`{|}";
constexpr std::string_view kEncodedInPath = " \"#%;<>?[\\]^`{|}";

bool isEscape(std::string_view text, std::size_t index) {
    return index + 2 < text.size() && hexDigitValue(text[index + 1]) >= 0 &&
           hexDigitValue(text[index + 2]) >= 0;
}

bool isOutsideASCII(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte <= 0x20 || byte >= 0x7F;
}

void appendEncodedIf(bool encode, std::string& out, char c) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    if (encode) {
        const auto byte = static_cast<unsigned char>(c);
        out += {'%', kDigits[byte >> 4U], kDigits[byte & 0xFU]};
    } else {
        out += c;
    }
}

void appendEncoded(std::string& out, std::string_view text) {
    for (const char c : text) {
        appendEncodedIf(isOutsideASCII(c) || kEncodedInPath.find(c) != std::string_view::npos, out,
                        c);
    }
}

bool isFolder(const std::string& path) {
    struct stat info{};
    return path.find('\0') == std::string::npos && ::stat(path.c_str(), &info) == 0 &&
           S_ISDIR(info.st_mode);
}

// The begin and end of the path in a URL's text.
std::pair<std::size_t, std::size_t> pathBounds(std::string_view text, std::size_t schemeLength) {
    std::size_t begin = schemeLength == 0 ? 0 : schemeLength + 1;
    const std::size_t end = std::min(text.find_first_of("?#", begin), text.size());
    if (text.substr(begin, 2) == "//") {
        begin = std::min(text.find('/', begin + 2), end);
    }
    return {begin, end};
}

// Removes dot segments as RFC 3986, 5.2.4 says.
std::string withoutDotSegments(std::string_view path) {
    std::vector<std::string_view> segments;
    const bool isAbsolute = path.starts_with('/');
    path.remove_prefix(isAbsolute ? 1 : 0);
    for (bool isLast = false; !isLast;) {
        const std::size_t slash = path.find('/');
        isLast = slash == std::string_view::npos;
        const std::string_view segment = path.substr(0, slash);
        path.remove_prefix(isLast ? path.size() : slash + 1);
        const bool isParent = segment == "..";
        if (isParent && !segments.empty()) {
            segments.pop_back();
        }
        if (!isParent && segment != ".") {
            segments.push_back(segment);
        } else if (isLast) {
            segments.emplace_back(); // the rest is a folder
        }
    }
    std::string text;
    for (const std::string_view segment : segments) {
        text += isAbsolute || !text.empty() ? "/" : "";
        text += segment;
    }
    return text;
}

} // namespace

std::string percentDecoded(std::string_view text) {
    std::string bytes;
    bytes.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && isEscape(text, i)) {
            bytes +=
                static_cast<char>(hexDigitValue(text[i + 1]) * 16 + hexDigitValue(text[i + 2]));
            i += 2;
        } else {
            bytes += text[i];
        }
    }
    return bytes;
}

std::optional<URL> URL::URLWithString(std::string_view text) {
    bool fragment = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const bool secondFragment = c == '#' && fragment;
        fragment = fragment || c == '#';
        if (isOutsideASCII(c) || kNeverInURL.find(c) != std::string_view::npos || secondFragment ||
            (c == '%' && !isEscape(text, i))) {
            return std::nullopt;
        }
    }
    URL url{std::string(text)};
    const auto [begin, end] = pathBounds(text, url.scheme().size());
    const std::string_view path = text.substr(begin, end - begin);
    if (path.find_first_of("[]") != std::string_view::npos) { // they belong to hosts only
        url.text_.resize(begin);
        for (const char c : path) {
            appendEncodedIf(c == '[' || c == ']', url.text_, c);
        }
        url.text_ += text.substr(end);
    }
    return url;
}

std::optional<URL> URL::URLWithString(std::string_view text, const URL& base) {
    std::optional<URL> url = URLWithString(text);
    if (!url || base.text_.empty() || !url->scheme().empty()) {
        return url;
    }
    const std::string_view start = base.text_;
    const std::size_t schemeEnd = base.scheme().empty() ? 0 : base.scheme().size() + 1;
    const auto [baseBegin, baseEnd] = pathBounds(start, base.scheme().size());
    const std::string_view basePath = start.substr(baseBegin, baseEnd - baseBegin);
    const std::string_view relative = url->text_;
    const auto [begin, end] = pathBounds(relative, 0);
    const std::string_view path = relative.substr(begin, end - begin);
    const std::string_view rest = relative.substr(end); // query and fragment
    if (begin > 0) {                                    // an authority of its own
        return URL(std::string(start.substr(0, schemeEnd)) +
                   std::string(relative.substr(0, begin)) + withoutDotSegments(path) +
                   std::string(rest));
    }
    const std::string authority(start.substr(0, baseBegin));
    if (path.empty()) {
        const std::size_t kept =
            rest.starts_with('?') ? baseEnd : std::min(start.find('#', baseEnd), start.size());
        return URL(std::string(start.substr(0, kept)) + std::string(rest));
    }
    std::string merged;
    if (!path.starts_with('/')) {
        const bool isBare = basePath.empty() && baseBegin > schemeEnd;
        merged = isBare ? "/" : basePath.substr(0, basePath.rfind('/') + 1);
    }
    merged += path;
    return URL(authority + withoutDotSegments(merged) + std::string(rest));
}

URL URL::fileURLWithPath(std::string_view path) {
    std::error_code status;
    std::filesystem::path absolute(path);
    if (absolute.is_relative()) {
        absolute = std::filesystem::current_path(status) / absolute;
    }
    std::string text = status ? "./" : "file://";
    appendEncoded(text, status ? path : absolute.native());
    if (!status && !text.ends_with('/') && isFolder(absolute.native())) {
        text += '/';
    }
    return URL(std::move(text));
}

URL URL::fileURLOfAbsolutePath(std::string_view path) {
    std::string text = "file://";
    appendEncoded(text, path);
    return URL(std::move(text));
}

std::string_view URL::scheme() const noexcept {
    const std::string_view text = text_;
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos || colon == 0) {
        return {};
    }
    const auto letter = [](char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); };
    const auto inScheme = [&](char c) {
        return letter(c) || (c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.';
    };
    const std::string_view name = text.substr(0, colon);
    return letter(name.front()) && std::ranges::all_of(name, inScheme) ? name : std::string_view();
}

bool URL::isFileURL() const noexcept {
    return std::ranges::equal(scheme(), std::string_view("file"),
                              [](char a, char b) { return (a | 0x20) == b; });
}

std::string_view URL::encodedPath() const noexcept {
    const auto [begin, end] = pathBounds(text_, scheme().size());
    return std::string_view(text_).substr(begin, end - begin);
}

std::optional<std::string> URL::path() const {
    std::string decoded = percentDecoded(encodedPath());
    if (!isUTF8(decoded)) {
        return std::nullopt;
    }
    if (decoded.size() > 1 && decoded.ends_with('/')) {
        decoded.pop_back();
    }
    return decoded;
}

std::string URL::lastPathComponent() const {
    std::string_view encoded = withoutTrailingSlashes(encodedPath());
    if (encoded != "/") {
        encoded = encoded.substr(encoded.rfind('/') + 1);
    }
    std::string decoded = percentDecoded(encoded);
    if (!isUTF8(decoded)) {
        decoded = encoded;
    }
    return decoded;
}

std::string URL::pathExtension() const {
    const std::string name = lastPathComponent();
    const std::size_t dot = name.rfind('.');
    if (dot == std::string::npos || dot == 0 || dot + 1 == name.size() ||
        name.find_first_of(" /", dot) != std::string::npos) {
        return {};
    }
    return name.substr(dot + 1);
}

URL URL::URLByDeletingLastPathComponent() const {
    const std::size_t schemeLength = scheme().size();
    const auto [begin, end] = pathBounds(text_, schemeLength);
    const std::string_view path =
        withoutTrailingSlashes(std::string_view(text_).substr(begin, end - begin));
    const bool hasAuthority = begin > schemeLength + 1;
    std::string parent;
    if (path == "/" || (path.empty() && hasAuthority)) {
        parent = "/../";
    } else if (path.empty()) {
        parent = "../";
    } else if (path == ".." || path.ends_with("/..")) { // to cut it would lead down, not up
        parent = std::string(path) + "/../";
    } else {
        const std::size_t slash = path.rfind('/');
        parent = slash == std::string_view::npos ? "./" : std::string(path.substr(0, slash + 1));
    }
    return URL(text_.substr(0, begin) + parent + text_.substr(end));
}

URL URL::URLByAppendingPathComponent(std::string_view component) const {
    const auto [begin, end] = pathBounds(text_, scheme().size());
    std::string text = text_.substr(0, end);
    if (begin == end || !text.ends_with('/')) {
        text += '/';
    }
    component.remove_prefix(std::min(component.find_first_not_of('/'), component.size()));
    appendEncoded(text, component);
    if (isFileURL() && !text.ends_with('/') && isFolder(percentDecoded(text.substr(begin)))) {
        text += '/';
    }
    return URL(text + text_.substr(end));
}

std::string_view withoutTrailingSlashes(std::string_view path) {
    while (path.size() > 1 && path.ends_with('/')) {
        path.remove_suffix(1);
    }
    return path;
}

} // namespace qv
