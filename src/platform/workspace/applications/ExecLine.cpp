#include "platform/workspace/applications/ExecLine.h"

#include "platform/foundation/os/RegularFile.h"

#include <fmt/core.h>

#include <algorithm>

namespace qv {

namespace {

constexpr std::size_t kMostArguments = 1024;
constexpr std::size_t kMostBytes = std::size_t{128} * 1024; // the kernel's limit of one argument
constexpr std::string_view kOfTheShell = "\t\n\r'\\><~|&;$*?#()`";
constexpr std::string_view kVanishing = "fFuUdDnNvm";

/// Reads one `Exec`.
class ExecReader {
public:
    explicit ExecReader(const DesktopEntry& entry) : entry_(entry), text_(entry.exec) {}

    tl::expected<std::vector<std::string>, std::string> read() {
        while (place_ < text_.size() && reason_.empty()) {
            if (text_[place_] == ' ') {
                endWord();
                ++place_;
            } else if (text_[place_] == '"') {
                readQuoted();
            } else {
                readPlain();
            }
        }
        endWord();
        if (reason_.empty() && words_.empty()) {
            refuse(place_, "there is no command");
        }
        if (!reason_.empty()) {
            return tl::unexpected(std::move(reason_));
        }
        return std::move(words_);
    }

private:
    void refuse(std::size_t place, std::string_view why) {
        if (reason_.empty()) {
            std::size_t column = 1;
            for (const char c : text_.substr(0, place)) {
                column += (static_cast<unsigned char>(c) & 0xC0U) == 0x80U ? 0U : 1U;
            }
            reason_ = fmt::format("column {}: {}", column, why);
        }
    }

    void append(std::string_view text) {
        bytes_ += text.size();
        if (bytes_ > kMostBytes) {
            refuse(place_, fmt::format("more than {} bytes", kMostBytes));
            return;
        }
        word_ += text;
        isWord_ = true;
    }

    void beginWord() {
        if (!inWord_) {
            inWord_ = true;
            wordPlace_ = place_;
        }
    }

    void endWord() {
        if (inWord_ && isWord_) {
            finish();
        }
        inWord_ = false;
        isWord_ = false;
        word_.clear();
    }

    void finish() {
        if (words_.size() == kMostArguments) {
            refuse(wordPlace_, fmt::format("more than {} arguments", kMostArguments));
        }
        if (words_.empty() && (word_.empty() || word_.find('=') != std::string::npos)) {
            refuse(wordPlace_, word_.empty() ? "the program has no name"
                                             : "the name of the program has a \"=\"");
        }
        words_.push_back(std::move(word_));
    }

    void readQuoted() {
        beginWord();
        const std::size_t begin = place_++;
        isWord_ = true; // an empty word counts as well
        while (place_ < text_.size() && text_[place_] != '"' && reason_.empty()) {
            const char next = place_ + 1 < text_.size() ? text_[place_ + 1] : '\0';
            switch (text_[place_]) {
            case '\\':
                if (next != '"' && next != '`' && next != '$' && next != '\\') {
                    refuse(place_, R"(in quotes, \ stands before ", `, $ or \ only)");
                }
                ++place_;
                break;
            case '`':
            case '$':
                refuse(place_, fmt::format("in quotes, {} needs a \\ before it", text_[place_]));
                break;
            case '%':
                if (next != '%') {
                    refuse(place_, "a field code in quotes");
                }
                ++place_;
                break;
            default:
                break;
            }
            append(text_.substr(place_, 1));
            ++place_;
        }
        if (place_ >= text_.size()) {
            refuse(begin, "the quote has no end");
        }
        ++place_;
    }

    void readPlain() {
        beginWord();
        const char c = text_[place_];
        if (c == '%') {
            readCode();
        } else if (kOfTheShell.find(c) != std::string_view::npos) {
            refuse(place_, "outside quotes, this character is reserved");
        } else {
            append(text_.substr(place_, 1));
            ++place_;
        }
    }

    void readCode() {
        const char code = place_ + 1 < text_.size() ? text_[place_ + 1] : '\0';
        if (code == '%') {
            append("%");
        } else if (words_.empty()) {
            refuse(place_, "a field code in the program");
        } else if (code == 'c') {
            append(entry_.name);
        } else if (code == 'k') {
            append(entry_.filePath);
        } else if (code == 'i') {
            appendIcon();
        } else if (code == '\0' || kVanishing.find(code) == std::string_view::npos) {
            refuse(place_, "an unknown field code");
        }
        place_ += 2;
    }

    void appendIcon() {
        const bool isAlone =
            wordPlace_ == place_ && (place_ + 2 >= text_.size() || text_[place_ + 2] == ' ');
        if (!isAlone) {
            refuse(place_, "%i is an argument of its own only");
        } else if (!entry_.icon.empty()) {
            append("--icon");
            finish();
            word_.clear();
            append(entry_.icon);
        }
    }

    const DesktopEntry& entry_;
    std::string_view text_;
    std::size_t place_ = 0;
    std::size_t wordPlace_ = 0;
    std::size_t bytes_ = 0;
    bool inWord_ = false; // something of it was read
    bool isWord_ = false; // a word, and not only a code that vanishes
    std::string word_;
    std::vector<std::string> words_;
    std::string reason_;
};

bool isProgram(const std::string& path) {
    struct stat info{};
    return ::stat(path.c_str(), &info) == 0 && isProgramFile(info);
}

} // namespace

tl::expected<std::vector<std::string>, std::string> commandOf(const DesktopEntry& entry) {
    return ExecReader(entry).read();
}

std::optional<std::string> findProgram(std::string_view name, std::string_view pathList) {
    if (name.empty() || name.find('\0') != std::string_view::npos) {
        return std::nullopt;
    }
    if (name.find('/') != std::string_view::npos) {
        std::string path(name);
        return path.front() == '/' && isProgram(path) ? std::optional(std::move(path))
                                                      : std::nullopt;
    }
    while (!pathList.empty()) {
        const std::string_view folder = pathList.substr(0, pathList.find(':'));
        if (folder.starts_with('/')) {
            std::string path = fmt::format("{}/{}", folder, name);
            if (isProgram(path)) {
                return path;
            }
        }
        pathList.remove_prefix(std::min(folder.size() + 1, pathList.size()));
    }
    return std::nullopt;
}

} // namespace qv
