#pragma once

#include <atomic>
#include <string>
#include <string_view>
#include <thread>

namespace qv::tools {

/// The appearance that a person wants, for both streams.
struct Appearance {
    enum class Colours : unsigned char { automatic, always, never };
    Colours colours = Colours::automatic; ///< on a terminal, but for NO_COLOR and TERM=dumb
    bool quiet = false;                   ///< nothing on standard error but what has failed
};

/// The output that a person sees: colours and moving progress on a terminal, plain lines elsewhere.
class Terminal {
public:
    enum class Style : unsigned char { plain, good, bad, faint, strong };
    static Terminal& standardOutput();
    static Terminal& standardError();
    /// Has to be called before anything is printed.
    static void setAppearance(const Appearance& appearance);

    /// A text in a style, or as it is where there are no colours. Control characters are shown as
    /// \xNN, so that nothing foreign steers the terminal.
    [[nodiscard]] std::string styled(std::string_view text, Style style) const;
    /// Prints one line.
    void line(std::string_view text);
    /// A text as it is.
    void write(std::string_view text);
    /// The errno of the first write that failed; 0 if all that was printed has been written.
    [[nodiscard]] int error() const noexcept { return error_; }
    [[nodiscard]] bool isInteractive() const noexcept { return interactive_; }
    [[nodiscard]] bool isQuiet() const noexcept { return quiet_; }
    /// The width of the terminal; 80 if it does not tell.
    [[nodiscard]] std::size_t columns() const noexcept;

private:
    explicit Terminal(int descriptor);
    void set(const Appearance& appearance);
    int descriptor_;
    bool interactive_;
    bool colours_;
    bool quiet_ = false;
    int error_ = 0;
};

/// A line that tells, while it lives, what is waited for and how long already. Shows nothing unless
/// standard error is a terminal.
class Progress {
public:
    explicit Progress(std::string what);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    Progress(Progress&&) = delete;
    Progress& operator=(Progress&&) = delete;

private:
    void animate() const;
    std::string what_;
    std::atomic<bool> done_ = false;
    std::thread thread_;
};

/// A text with its line ends and runs of blanks as single blanks: descriptions of containers span
/// lines.
[[nodiscard]] std::string onOneLine(std::string_view text);

/// Prints one line on standard error: "qvcatalog: TEXT".
void complain(std::string_view text);
/// The same of what is not a failure.
void remark(std::string_view text);

/// The line of a text around a byte of it, and below it a mark at that byte.
void showPlace(Terminal& terminal, std::string_view text, std::size_t offset);
/// The same on standard error.
void complainAtPlace(std::string_view text, std::size_t offset);

} // namespace qv::tools
