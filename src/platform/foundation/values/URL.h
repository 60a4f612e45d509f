#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace qv {

/// A URL as RFC 3986 reads it, kept as the text that was given and decoded on demand.
class URL {
public:
    /// None for a text with characters that a URL cannot hold (blanks, controls, non-ASCII,
    /// `"<>\^`{|}`), a `%` without two hexadecimal digits, or a second `#`. The empty text is a
    /// URL.
    static std::optional<URL> URLWithString(std::string_view text);
    /// A file URL of a path in bytes; a relative path stays relative to the current directory. A
    /// slash is added for an existing folder.
    static URL fileURLWithPath(std::string_view path);

    [[nodiscard]] const std::string& absoluteString() const noexcept { return text_; }
    [[nodiscard]] std::string_view scheme() const noexcept; ///< empty when there is none
    [[nodiscard]] bool isFileURL() const noexcept;
    /// The path as it stands, percent signs and all, without query and fragment.
    [[nodiscard]] std::string_view encodedPath() const noexcept;
    /// The decoded path without a trailing slash (the root stays "/"); none when the decoded bytes
    /// are not UTF-8. An encoded slash is a slash here: code that opens files uses
    /// `fileSystemPath` (files/FileSystemPath.h), which refuses it.
    [[nodiscard]] std::optional<std::string> path() const;
    [[nodiscard]] std::string lastPathComponent() const;
    [[nodiscard]] std::string pathExtension() const;
    [[nodiscard]] URL URLByDeletingLastPathComponent() const;
    /// Adds a slash when needed and the percent-encoded text; its inner slashes stay slashes.
    [[nodiscard]] URL URLByAppendingPathComponent(std::string_view component) const;

    friend bool operator==(const URL&, const URL&) = default;

private:
    explicit URL(std::string text) : text_(std::move(text)) {}
    std::string text_;
};

/// Bytes of a percent-encoded text. A `%` without two digits stays as it is.
[[nodiscard]] std::string percentDecoded(std::string_view text);

} // namespace qv
