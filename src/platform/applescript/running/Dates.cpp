#include "platform/applescript/running/Dates.h"

#include "platform/foundation/values/ASCII.h"

#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <vector>

namespace qv::applescript {

namespace {

constexpr std::int64_t kSecondsOfDay = 86'400;

constexpr int offsetFrom(Term term, Term first) noexcept {
    return static_cast<int>(term) - static_cast<int>(first);
}
constexpr Term termAfter(Term first, std::int64_t offset) noexcept {
    return static_cast<Term>(static_cast<std::int64_t>(first) + offset);
}

std::chrono::sys_days daysFrom(const DateParts& parts) {
    const std::int64_t months = parts.year * 12 + parts.month - 1;
    const std::int64_t year = months >= 0 ? months / 12 : (months - 11) / 12;
    const auto month = static_cast<unsigned>(months - year * 12 + 1);
    return std::chrono::sys_days(std::chrono::year(static_cast<int>(year)) /
                                 std::chrono::month(month) / 1) +
           std::chrono::days(parts.day - 1);
}

/// A word, a number or a mark of a text that says a date.
struct DateToken {
    enum class Kind : std::uint8_t { number, word, mark };
    Kind kind = Kind::mark;
    std::string word = {}; ///< in lower case; of a mark the character
    std::int64_t number = 0;
    std::size_t digits = 0;
};

std::optional<std::vector<DateToken>> dateTokens(std::string_view text) {
    constexpr std::size_t kMostTokens = 32;
    std::vector<DateToken> tokens;
    for (std::size_t i = 0; i < text.size();) {
        const char c = text[i];
        // A narrow no-break space may stand before AM and PM.
        if (text.substr(i).starts_with("\u202f") || text.substr(i).starts_with("\u00a0")) {
            i += c == '\xc2' ? 2 : 3;
            continue;
        }
        if (isSpace(c) || c == ',') {
            ++i;
            continue;
        }
        DateToken token;
        const std::size_t begin = i;
        if (isDigit(c)) {
            token.kind = DateToken::Kind::number;
            for (; i < text.size() && isDigit(text[i]); ++i) {
                token.number = std::min<std::int64_t>(token.number * 10 + (text[i] - '0'), 99'999);
            }
            token.digits = i - begin;
        } else if (isLetter(c)) {
            token.kind = DateToken::Kind::word;
            for (; i < text.size() && isLetter(text[i]); ++i) {
                token.word += static_cast<char>(text[i] | 0x20);
            }
        } else {
            token.word = c;
            ++i;
        }
        tokens.push_back(std::move(token));
        if (tokens.size() > kMostTokens) {
            return std::nullopt;
        }
    }
    return tokens;
}

/// Reads the tokens from left to right: a date, a time, or both.
class DateReader {
public:
    explicit DateReader(std::vector<DateToken> tokens) : tokens_(std::move(tokens)) {}

    std::optional<double> read(double today) {
        while (at_ < tokens_.size()) {
            if (!readTime() && !readDate() && !skipWord()) {
                return std::nullopt;
            }
        }
        if (tokens_.empty() || (!hasDate_ && !hasTime_)) {
            return std::nullopt;
        }
        const DateParts now = partsOf(today);
        DateParts parts = hasDate_ ? parts_ : now;
        parts.time = hasTime_ ? parts_.time : 0;
        const bool isValid = parts.month >= 1 && parts.month <= 12 && parts.day >= 1 &&
                             partsOf(dateFrom(parts)).month == parts.month;
        return isValid ? std::optional(dateFrom(parts)) : std::nullopt;
    }

private:
    using TokenKind = DateToken::Kind;
    [[nodiscard]] const DateToken& token(std::size_t ahead = 0) const noexcept {
        static const DateToken kEnd;
        return at_ + ahead < tokens_.size() ? tokens_[at_ + ahead] : kEnd;
    }
    [[nodiscard]] bool isNumber(std::size_t ahead) const noexcept {
        return token(ahead).kind == TokenKind::number;
    }
    [[nodiscard]] bool isMark(std::size_t ahead, std::string_view mark) const noexcept {
        return token(ahead).kind == TokenKind::mark && token(ahead).word == mark;
    }
    /// Returns 1 for "january" or "jan"; 0 for no month.
    [[nodiscard]] static std::int64_t nameIn(std::string_view word, Term first, int count) {
        for (int i = 0; i < count; ++i) {
            std::string name(wordsOf(termAfter(first, i)));
            name[0] = static_cast<char>(name[0] | 0x20);
            if (word.size() >= 3 && std::string_view(name).starts_with(word)) {
                return i + 1;
            }
        }
        return 0;
    }
    static std::int64_t fullYear(const DateToken& year) noexcept {
        constexpr std::int64_t kFirstOfNineteenHundreds = 50;
        if (year.digits > 2) {
            return year.number;
        }
        return year.number + (year.number < kFirstOfNineteenHundreds ? 2000 : 1900);
    }

    // Reads 19:00, 7:00:05 PM, 7 pm.
    bool readTime() {
        if (hasTime_ || !isNumber(0)) {
            return false;
        }
        std::int64_t hour = token().number;
        std::int64_t minute = 0;
        std::int64_t second = 0;
        std::size_t used = 1;
        if (isMark(1, ":") && isNumber(2)) {
            minute = token(2).number;
            used = 3;
            if (isMark(3, ":") && isNumber(4)) {
                second = token(4).number;
                used = 5;
                used += isMark(5, ".") && isNumber(6) ? 2U : 0U;
            }
        }
        const std::string_view half = token(used).word;
        const bool isHalf = half == "am" || half == "pm";
        if (used == 1 && !isHalf) {
            return false;
        }
        if (hour > (isHalf ? 12 : 23) || minute > 59 || second > 59 || (isHalf && hour == 0)) {
            return false;
        }
        if (isHalf) {
            hour = hour % 12 + (half == "pm" ? 12 : 0);
            ++used;
        }
        at_ += used;
        parts_.time = (hour * 60 + minute) * 60 + second;
        return hasTime_ = true;
    }

    bool takeDate(std::int64_t year, std::int64_t month, std::int64_t day, std::size_t used) {
        parts_.year = year;
        parts_.month = month;
        parts_.day = day;
        at_ += used;
        return hasDate_ = true;
    }

    // Reads 2026-11-22, 11/22/2026, November 22 2026, 22 November 2026.
    bool readDate() {
        if (hasDate_) {
            return false;
        }
        const std::string& mark = token(1).word;
        const bool isMarked = token(1).kind == TokenKind::mark && isNumber(0) && isNumber(2) &&
                              isMark(3, mark) && isNumber(4);
        if (isMarked && mark == "-" && token().digits == 4) {
            return takeDate(token().number, token(2).number, token(4).number, 5);
        }
        if (isMarked && (mark == "/" || mark == "-")) {
            return takeDate(fullYear(token(4)), token().number, token(2).number, 5);
        }
        if (isMarked && mark == ".") {
            return takeDate(fullYear(token(4)), token(2).number, token().number, 5);
        }
        const std::int64_t month = nameIn(token().word, Term::january, 12);
        if (month != 0 && isNumber(1) && isNumber(2)) {
            return takeDate(fullYear(token(2)), month, token(1).number, 3);
        }
        const std::int64_t monthBehind = nameIn(token(1).word, Term::january, 12);
        if (isNumber(0) && monthBehind != 0 && isNumber(2)) {
            return takeDate(fullYear(token(2)), monthBehind, token().number, 3);
        }
        return false;
    }

    bool skipWord() {
        const std::string& word = token().word;
        const bool isSkipped = word == "at" || (word == "t" && hasDate_ && !hasTime_) ||
                               nameIn(word, Term::monday, 7) != 0;
        at_ += isSkipped ? 1U : 0U;
        return isSkipped;
    }

    std::vector<DateToken> tokens_;
    std::size_t at_ = 0;
    DateParts parts_;
    bool hasDate_ = false;
    bool hasTime_ = false;
};

} // namespace

DateParts partsOf(double date) {
    const auto seconds =
        static_cast<std::int64_t>(std::floor(std::clamp(date, -kFarthestDate, kFarthestDate)));
    const std::int64_t days =
        seconds >= 0 ? seconds / kSecondsOfDay : (seconds - kSecondsOfDay + 1) / kSecondsOfDay;
    const std::chrono::year_month_day calendar{std::chrono::sys_days(std::chrono::days(days))};
    return {static_cast<int>(calendar.year()), static_cast<unsigned>(calendar.month()),
            static_cast<unsigned>(calendar.day()), seconds - days * kSecondsOfDay};
}

double dateFrom(const DateParts& parts) {
    constexpr std::int64_t kFarthestYear = 9'999;
    constexpr std::int64_t kMost = 10'000'000; // months, days
    DateParts near = parts;
    near.year = std::clamp(parts.year, -kFarthestYear, kFarthestYear);
    near.month = std::clamp(parts.month, -kFarthestYear, kFarthestYear);
    near.day = std::clamp(parts.day, -kMost, kMost);
    const auto days = static_cast<double>(daysFrom(near).time_since_epoch().count());
    return days * static_cast<double>(kSecondsOfDay) + static_cast<double>(parts.time);
}

Term monthOf(double date) { return termAfter(Term::january, partsOf(date).month - 1); }

Term weekdayOf(double date) {
    const std::chrono::weekday weekday(daysFrom(partsOf(date)));
    return termAfter(Term::monday, weekday.iso_encoding() - 1);
}

int numberOf(Term monthOrWeekday) noexcept {
    if (monthOrWeekday >= Term::january && monthOrWeekday <= Term::december) {
        return offsetFrom(monthOrWeekday, Term::january) + 1;
    }
    if (monthOrWeekday >= Term::monday && monthOrWeekday <= Term::sunday) {
        return (offsetFrom(monthOrWeekday, Term::monday) + 1) % 7 + 1;
    }
    return 0;
}

std::string dateString(double date) {
    const DateParts parts = partsOf(date);
    return fmt::format("{}, {} {}, {}", wordsOf(weekdayOf(date)), wordsOf(monthOf(date)), parts.day,
                       parts.year);
}

std::string timeString(double date) {
    const std::int64_t time = partsOf(date).time;
    const std::int64_t hour = time / 3600;
    return fmt::format("{}:{:02}:{:02} {}", (hour + 11) % 12 + 1, time / 60 % 60, time % 60,
                       hour < 12 ? "AM" : "PM");
}

std::string shortDateString(double date) {
    const DateParts parts = partsOf(date);
    return fmt::format("{}/{}/{:02}", parts.month, parts.day, parts.year % 100);
}

std::string dateText(double date) { return dateString(date) + " at " + timeString(date); }

std::optional<double> dateFromText(std::string_view text, double today) {
    std::optional<std::vector<DateToken>> tokens = dateTokens(text);
    return tokens ? DateReader(std::move(*tokens)).read(today) : std::nullopt;
}

} // namespace qv::applescript
