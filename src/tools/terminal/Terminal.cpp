#include "tools/terminal/Terminal.h"

#include "platform/foundation/log/Log.h"
#include "platform/foundation/os/FileBytes.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <sys/ioctl.h>
#include <unistd.h>

namespace qv::tools {

namespace {

constexpr std::size_t kLongestLine = 4096;

// The variable is asked for once, before any thread is started.
bool hasVariable(const char* name) {
    const char* value = std::getenv(name); // NOLINT(concurrency-mt-unsafe): single-threaded here
    return value != nullptr && *value != '\0';
}

bool isDumb() {
    const char* term = std::getenv("TERM"); // NOLINT(concurrency-mt-unsafe): single-threaded here
    return term == nullptr || std::string_view(term) == "dumb";
}

} // namespace

Terminal::Terminal(int descriptor)
    : descriptor_(descriptor), interactive_(::isatty(descriptor) == 1 && !isDumb()),
      colours_(interactive_ && !hasVariable("NO_COLOR")) {}

Terminal& Terminal::standardOutput() {
    static Terminal terminal(STDOUT_FILENO);
    return terminal;
}

Terminal& Terminal::standardError() {
    static Terminal terminal(STDERR_FILENO);
    return terminal;
}

void Terminal::set(const Appearance& appearance) {
    quiet_ = appearance.quiet;
    if (appearance.colours != Appearance::Colours::automatic) {
        colours_ = appearance.colours == Appearance::Colours::always;
    }
}

void Terminal::setAppearance(const Appearance& appearance) {
    standardOutput().set(appearance);
    standardError().set(appearance);
}

std::size_t Terminal::columns() const noexcept {
    winsize size{};
    constexpr std::size_t kUsual = 80;
    return ::ioctl(descriptor_, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : kUsual;
}

std::string Terminal::styled(std::string_view text, Style style) const {
    std::string shown = log::foreign(text, kLongestLine);
    if (!colours_ || style == Style::plain) {
        return shown;
    }
    constexpr std::array<std::string_view, 5> kCodes = {"0", "32", "31", "2", "1"};
    return fmt::format("\x1b[{}m{}\x1b[0m", kCodes[static_cast<std::size_t>(style)], shown);
}

void Terminal::line(std::string_view text) { write(std::string(text) + "\n"); }

void Terminal::write(std::string_view text) {
    if (error_ == 0) {
        error_ = writeAll(descriptor_, text);
    }
}

Progress::Progress(std::string what) : what_(std::move(what)) {
    const Terminal& terminal = Terminal::standardError();
    if (terminal.isInteractive() && !terminal.isQuiet()) {
        thread_ = std::thread([this] { animate(); });
    }
}

Progress::~Progress() {
    done_ = true;
    done_.notify_all();
    if (thread_.joinable()) {
        thread_.join();
        Terminal::standardError().write("\r\x1b[K");
    }
}

void Progress::animate() const {
    constexpr std::array<std::string_view, 4> kTurns = {"|", "/", "-", "\\"};
    constexpr auto kFrame = std::chrono::milliseconds(100);
    const auto begin = std::chrono::steady_clock::now();
    Terminal& terminal = Terminal::standardError();
    for (std::size_t turn = 0; !done_; ++turn) {
        const auto elapsed = std::chrono::steady_clock::now() - begin;
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(elapsed).count();
        terminal.write(
            fmt::format("\r\x1b[K{} {} {}", kTurns[turn % kTurns.size()], what_,
                        terminal.styled(fmt::format("{} s", seconds), Terminal::Style::faint)));
        std::this_thread::sleep_for(kFrame);
    }
}

std::string onOneLine(std::string_view text) {
    std::string line;
    for (const char c : text) {
        const bool blank = c == ' ' || c == '\n';
        if (!blank || (!line.empty() && line.back() != ' ')) {
            line += blank ? ' ' : c;
        }
    }
    return line;
}

void complain(std::string_view text) {
    Terminal::standardError().line(fmt::format(
        "qvcatalog: {}", Terminal::standardError().styled(text, Terminal::Style::plain)));
}

void remark(std::string_view text) {
    if (!Terminal::standardError().isQuiet()) {
        complain(text);
    }
}

void showPlace(Terminal& terminal, std::string_view text, std::size_t offset) {
    constexpr std::size_t kAround = 50;
    offset = std::min(offset, text.size());
    const std::size_t begin = text.substr(0, offset).rfind('\n') + 1; // 0 when there is none
    const std::size_t end = std::min(text.find('\n', offset), text.size());
    const auto shown = [&](std::size_t from, std::size_t to) {
        const auto isInside = [&](std::size_t place) { // a character of several bytes
            return place < text.size() && (static_cast<unsigned char>(text[place]) & 0xC0U) == 0x80;
        };
        while (from > begin && isInside(from)) {
            --from;
        }
        while (to < end && isInside(to)) {
            ++to;
        }
        return terminal.styled(text.substr(from, to - from), Terminal::Style::plain);
    };
    const std::string before = shown(offset - std::min(kAround, offset - begin), offset);
    const std::string after = shown(offset, offset + std::min(kAround, end - offset));
    const auto width = std::ranges::count_if(
        before, [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80; });
    terminal.line(fmt::format("  {}{}", before, after));
    terminal.line(fmt::format("  {:>{}}", "^", width + 1));
}

void complainAtPlace(std::string_view text, std::size_t offset) {
    showPlace(Terminal::standardError(), text, offset);
}

} // namespace qv::tools
