#include "tools/service/RunProgress.h"

#include "script/step/StepText.h"
#include "tools/service/RunText.h"
#include "tools/terminal/Json.h"
#include "tools/terminal/Terminal.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <poll.h>
#include <unistd.h>
#include <utility>

namespace qv::tools {

namespace {

using std::chrono::milliseconds;

// The journal tells of new records late, so it is asked; after the reply the rest comes soon.
constexpr milliseconds kPauseWhileRunning(100);
constexpr milliseconds kPauseAfterReply(1); // the pause behind a record as well
constexpr milliseconds kLongestRest(2000);  // since the last record
constexpr std::chrono::seconds kBetweenLines(1);
// A watch shows when the journal begins a new file. Closing it takes the kernel some 15 ms, so a
// short run is followed without one: what is added to a file that is open is seen all the same.
constexpr std::chrono::seconds kWithoutWatch(1);

bool isLeaf(const Value& step) {
    const Operation* operation = operationOfStep(step);
    return operation == nullptr || (operation->code != OperationCode::beginIfBlock &&
                                    operation->code != OperationCode::beginElseBlock &&
                                    operation->code != OperationCode::endIfBlock);
}

bool isContinuation(char byte) { return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U; }

// The part of a text that fits into so many columns, a character a column.
std::string fitted(const std::string& text, std::size_t columns) {
    std::size_t end = 0;
    for (std::size_t shown = 0; end < text.size(); ++end) {
        if (!isContinuation(text[end]) && ++shown > columns) {
            break;
        }
    }
    return text.substr(0, end);
}

} // namespace

RunProgress::RunProgress(const Value& steps, Manner manner, int cancelDescriptor)
    : manner_(manner), cancelDescriptor_(cancelDescriptor), begin_(microsecondsNow()) {
    if (steps.is(Value::Kind::array)) {
        for (const Value& step : steps.asArray()) {
            leaves_.push_back(isLeaf(step));
        }
    }
    leafCount_ = static_cast<std::size_t>(std::ranges::count(leaves_, true));
    if (manner != Manner::silent) {
        thread_ = std::thread([this] { follow(); });
    }
}

RunProgress::~RunProgress() { static_cast<void>(end(Phase::abandoned)); }

std::optional<RunEntry> RunProgress::finish() { return end(Phase::replied); }
std::optional<RunEntry> RunProgress::abandon() { return end(Phase::abandoned); }

std::optional<RunEntry> RunProgress::end(Phase phase) {
    if (thread_.joinable()) {
        {
            const std::lock_guard lock(mutex_);
            phase_ = phase;
        }
        changed_.notify_all();
        thread_.join();
        erase();
    }
    return run_ == nullptr ? std::nullopt : std::optional(std::move(*std::exchange(run_, nullptr)));
}

void RunProgress::follow() {
    // Nothing is recorded if there is no receiver, so nothing is waited for.
    if (auto history =
            hasJournal() ? RunHistory::open({}, RunHistory::Steps::with) : tl::unexpected(Error());
        history && !history->followFrom(begin_)) {
        history_ = std::move(*history);
    }
    std::optional<Clock::time_point> until;
    for (;;) {
        const bool tookSome = takeRecords();
        std::unique_lock lock(mutex_);
        if (phase_ == Phase::replied && (tookSome || !until)) {
            until = Clock::now() + kLongestRest;
        }
        if (phase_ == Phase::abandoned ||
            (until && (!history_ || isComplete() || Clock::now() >= *until || isCancelled()))) {
            return;
        }
        if (Clock::now() - lastDrawn_ >= kPauseWhileRunning) {
            lastDrawn_ = Clock::now();
            draw();
        }
        changed_.wait_for(lock, until || tookSome ? kPauseAfterReply : kPauseWhileRunning);
    }
}

bool RunProgress::isComplete() const { return run_ != nullptr && !run_->outcome.empty(); }

bool RunProgress::isCancelled() const {
    pollfd cancel{.fd = cancelDescriptor_, .events = POLLIN, .revents = 0};
    return ::poll(&cancel, 1, 0) == 1;
}

bool RunProgress::takeRecords() {
    constexpr int kMostAtOnce = 1000; // then the bar is drawn
    const bool watches = Clock::now() - start_ >= kWithoutWatch;
    const std::chrono::microseconds time(watches ? 1 : 0);
    bool tookSome = false;
    for (int count = 0; history_ && count < kMostAtOnce; ++count) {
        const tl::expected<RunEntry*, Error> next = history_->next(time);
        if (!next || *next == nullptr) {
            break;
        }
        RunEntry& run = **next;
        if (run.process == static_cast<std::uint64_t>(::getpid()) && run.user == ::getuid()) {
            take(run);
            tookSome = true;
        }
    }
    return tookSome;
}

void RunProgress::take(RunEntry& run) {
    run_ = &run;
    for (; stepsTaken_ < run.steps.size(); ++stepsTaken_) {
        const StepEntry& step = run.steps[stepsTaken_];
        leavesDone_ += step.index >= leaves_.size() || leaves_[step.index] ? 1U : 0U;
        if (manner_ == Manner::json) {
            Terminal::standardOutput().line(jsonText(stepRecord(step), true));
        }
    }
}

void RunProgress::draw() {
    Terminal& out = Terminal::standardError();
    if (out.isQuiet()) {
        return;
    }
    if (out.isInteractive()) {
        drawBar(frame_++);
        return;
    }
    if (manner_ == Manner::forPeople && leavesDone_ > shownLeaves_ &&
        Clock::now() - lastLine_ >= kBetweenLines) {
        shownLeaves_ = leavesDone_;
        lastLine_ = Clock::now();
        out.line(
            fmt::format("{} of {} steps: {}", leavesDone_, leafCount_,
                        out.styled(onOneLine(run_->steps.back().text), Terminal::Style::plain)));
    }
}

void RunProgress::drawBar(std::size_t frame) {
    constexpr std::array<std::string_view, 4> kTurns = {"|", "/", "-", "\\"};
    constexpr std::size_t kWidest = 24;
    constexpr std::size_t kOthers = 40; // columns that the rest of the line takes
    Terminal& out = Terminal::standardError();
    const std::size_t columns = out.columns();
    const std::size_t width = std::min(kWidest, columns - std::min(columns, kOthers));
    const auto seconds =
        std::chrono::duration_cast<std::chrono::seconds>(Clock::now() - start_).count();
    std::string line;
    if (run_ != nullptr && leafCount_ > 0) {
        const std::size_t done = std::min(leavesDone_, leafCount_);
        line = width == 0
                   ? std::string()
                   : fmt::format("[{:.<{}}] ", std::string(width * done / leafCount_, '#'), width);
        line += fmt::format("{} of {} steps, {} s", done, leafCount_, seconds);
        if (!run_->steps.empty()) {
            line += "  " + onOneLine(run_->steps.back().text);
        }
    } else {
        line = fmt::format("{} running the script, {} s", kTurns[frame % kTurns.size()], seconds);
    }
    // The terminal's line wrap is off: a character may be two columns wide.
    out.write("\r\x1b[K\x1b[?7l" + fitted(out.styled(line, Terminal::Style::plain), columns - 1) +
              "\x1b[?7h");
    isDrawn_ = true;
}

void RunProgress::erase() {
    if (isDrawn_) {
        Terminal::standardError().write("\r\x1b[K");
    }
}

} // namespace qv::tools
