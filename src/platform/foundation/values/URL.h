#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace qv {

/// A URL as RFC 3986 reads it, kept as the text that was given and decoded on demand.
class URL {
public:
    /// Returns none for a text with characters that a URL cannot hold (blanks, controls, non-ASCII,
    /// `"<>\^`{|}`), a `%` without two hexadecimal digits, or a second `#`. The empty text is a
    /// URL. Brackets in the path are percent-encoded; all else stays as it is given.
    static std::optional<URL> URLWithString(std::string_view text);
    /// The same of a text that may be relative to a base: resolved against it as RFC 3986, 5.2.2,
    /// has it.
    static std::optional<URL> URLWithString(std::string_view text, const URL& base);
    URL() = default; ///< the empty text
    /// A file URL of a path in bytes; a relative path is based on the current directory (where that
    /// is gone, the result is a relative URL, no file URL). A slash is added for an existing
    /// folder.
    static URL fileURLWithPath(std::string_view path);
    /// The file URL that says an absolute path as it stands, its slash at the end included. Looks
    /// at no file, so that it is the same on every machine.
    static URL fileURLOfAbsolutePath(std::string_view path);

    [[nodiscard]] const std::string& absoluteString() const noexcept { return text_; }
    [[nodiscard]] std::string_view scheme() const noexcept; ///< empty when there is none
    [[nodiscard]] bool isFileURL() const noexcept;
    /// The path as it stands, percent signs and all, without query and fragment.
    [[nodiscard]] std::string_view encodedPath() const noexcept;
    /// The decoded path without a trailing slash (the root stays "/"); none when the decoded bytes
    /// are not UTF-8. An encoded slash is a slash here: code that opens files uses
    /// `fileSystemPath` (files/FileSystemPath.h), which refuses it.
    [[nodiscard]] std::optional<std::string> path() const;
    /// The decoded last component; "/" for the root. Where that is not UTF-8, its encoded form.
    [[nodiscard]] std::string lastPathComponent() const;
    /// The text behind the last dot of the last component; empty when that begins with its only dot
    /// or ends in a dot, or when a blank or slash follows the dot.
    [[nodiscard]] std::string pathExtension() const;
    /// The root gives "/../". Query and fragment stay.
    [[nodiscard]] URL URLByDeletingLastPathComponent() const;
    /// Adds a slash when needed and the percent-encoded text; its inner slashes stay slashes, those
    /// at its begin count as the one that is needed. A slash is added for an existing folder.
    [[nodiscard]] URL URLByAppendingPathComponent(std::string_view component) const;

    friend bool operator==(const URL&, const URL&) = default;

private:
    friend class Value; // keeps the text
    explicit URL(std::string text) : text_(std::move(text)) {}
    std::string text_;
};

/// Bytes of a percent-encoded text. A `%` without two digits stays as it is.
[[nodiscard]] std::string percentDecoded(std::string_view text);

/// A path without the slashes at its end; "/" stays.
[[nodiscard]] std::string_view withoutTrailingSlashes(std::string_view path);

} // namespace qv
