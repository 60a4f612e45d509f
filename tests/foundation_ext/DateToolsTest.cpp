// Intervals in words, dates in words, timestamps. The tests stand in Germany and count Tokyo's
// time.

#include "foundation_ext/IntervalWords.h"
#include "foundation_ext/QVDateTools.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <initializer_list>
#include <limits>
#include <thread>
#include <vector>

namespace qv::test {
namespace {

constexpr double kReferenceDate = 978307200; // 2001-01-01 in seconds since 1970

// The library of the platform looks once, when it is asked for the first time.
const bool kPlaceIsSet = [] {
    // NOLINTBEGIN(concurrency-mt-unsafe): no other thread is there yet
    return ::setenv("LC_ALL", "de_DE.UTF-8", 1) == 0 && ::setenv("TZ", "Asia/Tokyo", 1) == 0;
    // NOLINTEND(concurrency-mt-unsafe)
}();

Date unixTime(double seconds) { return {seconds - kReferenceDate}; }

TEST(Splitting, TakesOutTheUnitsThatAreAskedFor) {
    constexpr std::int64_t kBefore = 77;
    constexpr std::int64_t kNot = -77;
    struct Row {
        double interval;
        std::array<std::int64_t, 5> expected; ///< kNot: no pointer given
    };
    constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
    for (const Row& row : std::initializer_list<Row>{
             {90061, {0, 1, 1, 1, 1}},
             {90061, {0, kNot, 25, 1, 1}},
             {59.9, {0, 0, kBefore, 0, 59}}, // the hours are left as they were
             {3599, {kNot, kNot, kBefore, 59, 59}},
             {3600, {kNot, kNot, 1, 0, 0}},
             {31535999, {0, 364, 23, 59, 59}},
             {31536000, {1, 0, kBefore, 0, 0}},
             {2 * 31536000.0 + 3 * 86400, {2, 3, kBefore, 0, 0}},
             {90061, {kNot, kNot, kNot, kNot, 90061}},
             {90061, {kNot, 1, kNot, 61, 1}},
             {90061, {kNot, kNot, kNot, kNot, kNot}},
             {-90061.5, {0, 0, kBefore, 0, -90062}},
             {-0.5, {kNot, kNot, kNot, kNot, -1}},
             {0, {0, 0, kBefore, 0, 0}},
             {1e300, {kNot, kNot, kNot, kNot, kMost}},
             {std::numeric_limits<double>::infinity(), {kNot, kNot, kNot, kNot, kMost}},
             {std::nan(""), {0, 0, kBefore, 0, 0}},
         }) {
        std::array<std::int64_t, 5> values{};
        std::array<std::int64_t*, 5> wanted{};
        for (std::size_t unit = 0; unit < values.size(); ++unit) {
            values.at(unit) = row.expected.at(unit) == kNot ? kNot : kBefore;
            wanted.at(unit) = row.expected.at(unit) == kNot ? nullptr : &values.at(unit);
        }
        QVDateTools::splitTimeInterval(row.interval, wanted[0], wanted[1], wanted[2], wanted[3],
                                       wanted[4]);
        EXPECT_EQ(values, row.expected) << row.interval;
    }
}

struct WordsRow {
    double interval;
    IntervalUnits units; ///< years, days, hours, minutes, seconds
    bool omitUnused;
    std::string_view expected;
};

TEST(IntervalInWords, NamesTheUnits) {
    const IntervalUnits all = {true, true, true, true, true};
    for (const WordsRow& row : std::initializer_list<WordsRow>{
             {3600, {false, true, true, true, false}, true, "1 hour"},
             {3600, {false, true, true, true, false}, false, "0 days 1 hour 0 minutes"},
             {97200, {false, true, true, true, false}, false, "1 day 3 hours 0 minutes"},
             {0, {false, true, true, false, false}, true, "0 days 0 hours"},
             {59, {false, true, true, false, false}, true, "0 days 0 hours"},
             {31536000 + 86400 + 3600 + 60 + 1, all, true, "1 year 1 day 1 hour 1 minute 1 second"},
             {63244922, all, false, "2 years 2 days 0 hours 2 minutes 2 seconds"},
             {63244922, all, true, "2 years 2 days 2 minutes 2 seconds"},
             {59.99, {false, false, false, true, false}, false, "0 minutes"},
             {-1, all, true, "-1 seconds"},
             {7200, {false, false, false, false, false}, true, ""},
         }) {
        const auto& [years, days, hours, minutes, seconds] = row.units;
        EXPECT_EQ(QVDateTools::stringFromTimeInterval(row.interval, years, days, hours, minutes,
                                                      seconds, row.omitUnused),
                  row.expected)
            << row.interval;
    }
    EXPECT_EQ(QVDateTools::stringFromTimeInterval(3600, false, true, true, true, false),
              "0 days 1 hour 0 minutes");
}

TEST(IntervalInWords, TakesNamesFromTheTableThatSuitsBest) {
    const TemporaryDirectory folder;
    folder.write("de.lproj/Localizable.strings",
                 "/* Namen */ \"hour\" = \"Stunde\"; \"hours\" = \"Stunden\"; \"day\" = (Tag);");
    folder.write("de_AT.lproj/Localizable.strings", "\"hour\" = \"Stund'\";");
    folder.write("Base.lproj/Localizable.strings", "\"hours\" = \"h\";");
    folder.write("it.lproj/Localizable.strings", "\"hours\" = ");
    folder.write("nl.lproj/Localizable.strings", "(hours, uur)");
    folder.write("sv.lproj/Localizable.strings",
                 "\"hours\" = \"timmar\";" + std::string(1 << 20, ' '));
    const auto inWords = [&](std::string_view locale, double interval) {
        return intervalInWords(interval, {false, true, true, false, false}, false,
                               LocalizedStrings(folder.path(), locale));
    };
    EXPECT_EQ(inWords("de_DE", 2 * 3600), "0 days 2 Stunden");
    EXPECT_EQ(inWords("de_DE", 25 * 3600), "1 day 1 Stunde"); // what is no string is no name
    EXPECT_EQ(inWords("de_AT@currency=EUR", 3600), "0 days 1 Stund'");
    EXPECT_EQ(inWords("de-Latn-CH", 0), "0 days 0 Stunden");
    for (const std::string_view other : {"fr_FR", "", "../de", "it", "nl", "sv"}) {
        EXPECT_EQ(inWords(other, 0), "0 days 0 h") << other;
    }
    const TemporaryDirectory single;
    single.write("Localizable.strings", "\"hours\" = \"ore\";");
    EXPECT_EQ(intervalInWords(0, {false, false, true, false, false}, false,
                              LocalizedStrings(single.path(), "it_IT")),
              "0 ore");
}

TEST(DateInWords, FollowsTheStylesOfTheLocale) {
    ASSERT_TRUE(kPlaceIsSet);
    using Style = DateFormatterStyle;
    struct Row {
        Style dateStyle;
        Style timeStyle;
        std::string_view expected;
    };
    const Date evening = unixTime(1335902430); // 20:00:30 GMT of 1 May 2012, the next day in Tokyo
    for (const Row& row : std::initializer_list<Row>{
             {Style::shortStyle, Style::none, "2012-05-02"},
             {Style::shortStyle, Style::shortStyle, "2012-05-02 05:00"},
             {Style::medium, Style::none, "02.05.2012"},
             {Style::longStyle, Style::none, "2. Mai 2012"},
             {Style::full, Style::none, "Mittwoch, 2. Mai 2012"},
             {Style::none, Style::medium, "05:00:30"},
             {Style::medium, Style::medium, "02.05.2012, 05:00:30"},
             {Style::none, Style::none, ""},
         }) {
        EXPECT_EQ(QVDateTools::localizedStringFormattedWithDateStyle(evening, row.dateStyle,
                                                                     row.timeStyle),
                  row.expected)
            << static_cast<int>(row.dateStyle) << ' ' << static_cast<int>(row.timeStyle);
    }
    for (const double seconds : {std::nan(""), std::numeric_limits<double>::infinity()}) {
        EXPECT_EQ(QVDateTools::localizedStringFormattedWithDateStyle({seconds}, Style::shortStyle,
                                                                     Style::none),
                  std::nullopt);
    }
    EXPECT_TRUE(QVDateTools::localizedStringFormattedWithDateStyle({1e300}, Style::shortStyle,
                                                                   Style::none));
}

constexpr double kMoment = 1335867630; // 2012-05-01T10:20:30Z
constexpr double kNone = -1e18;

struct TimestampRow {
    std::string text;
    double unixTime; ///< kNone where it is refused
};

double shown(const std::optional<Date>& date) {
    return date ? date->secondsSinceReference + kReferenceDate : kNone;
}

TEST(Timestamps, OfISO8601HaveAFraction) {
    for (const TimestampRow& row : std::initializer_list<TimestampRow>{
             {"2012-05-01T10:20:30.123+0000", kMoment + 0.123},
             {"2012-05-01T10:20:30.123+0200", kMoment - 7200 + 0.123},
             {"2012-05-01T10:20:30.123-0730", kMoment + 7.5 * 3600 + 0.123},
             {"2012-05-01T10:20:30.123+02:00", kMoment - 7200 + 0.123},
             {"2012-05-01T10:20:30.1+0000", kMoment + 0.1},
             {"2012-05-01T10:20:30.123456+0000", kMoment + 0.123},
             {"2012-05-01T10:20:30.999999+0000", kMoment + 0.999},
             {"2012-05-01T10:20:30.123456789012+0000", kMoment + 0.123}, // more than 32 bits hold
             {std::string("2012-05-01T10:20:30.") + std::string(35, '4') + "Z", kMoment + 0.444},
             {"2012-05-01T10:20:30.𝟏𝟐𝟑𝟒Z", kMoment + 0.123}, // digits of two units each
             {"2012-05-01T10:20:30. 5Z", kNone},
             {"2012-05-01T10:20:30.-5Z", kNone},
             {"2012-05-01T10:20:30.1e2Z", kNone}, // no number of another form
             {"2012-05-01T10:20:3e1.5Z", kNone},
             {"2012-05-01T10:20:30.123Z", kMoment + 0.123},
             {"2012-05-01T10:20:30.123GMT+02:00", kMoment - 7200 + 0.123},
             {"2012-05-01T10:20:30+0000", kNone},
             {"2012-05-01T10:20:30.+0000", kNone},
             {"2012-05-01T10:20:30.123", kNone},
             {"2012-05-01T10:20:30.123+0000x", kNone},
             {"2012-05-01T10:20:30,123+0000", kNone},
         }) {
        EXPECT_NEAR(shown(QVDateTools::dateFromISO8601DateString(row.text)), row.unixTime, 1e-6)
            << row.text;
    }
    EXPECT_EQ(QVDateTools::dateFromISO8601DateString(std::nullopt), std::nullopt);
}

TEST(Timestamps, OfRFC3339HaveNone) {
    for (const TimestampRow& row : std::initializer_list<TimestampRow>{
             {"2012-05-01T10:20:30+0200", kMoment - 7200},
             {"2012-05-01T10:20:30-0700", kMoment + 25200},
             {"2012-05-01T10:20:30+02:00", kMoment - 7200},
             {"2012-05-01T10:20:30-07:00", kMoment + 25200},
             {"2012-05-01T10:20:30+02:0:0", kMoment - 7200}, // every colon behind the sign goes
             {"2012-05-01T10:20:30+02", kMoment - 7200},
             {"2012-05-01T10:20:30+2", kMoment - 7200},
             {"2012-05-01T10:20:30Z", kMoment},
             {"2012-05-01T10:20:30z", kMoment},
             {"2012-05-01T10:20:30UTC", kMoment},
             {"2012-05-01T10:20:30GMT", kMoment},
             {"2012-05-01T10:20:30GMT+2", kMoment - 7200},
             {"2012-05-01T10:20:30UTC+02:00", kMoment - 7200},
             {"2012-05-01T10:20:30 +0200", kMoment - 7200},
             {"  2012-05-01T10:20:30+0000", kMoment},
             {"2012-05-01T10:20:30+0000 \t\n", kMoment},
             {"2012-02-29T23:59:59Z", 1330559999},
             {"1969-12-31T23:59:59Z", -1},
             {"9999-12-31T23:59:59Z", 253402300799},
             // Refused.
             {"2012-05-01T10:20:30.123+0000", kNone},
             {"2012-05-01T10:20:30", kNone},
             {"2012-05-01T10:20:30PST", kNone},
             {"2012-05-01T10:20:30GMT+02:00", kNone}, // would be read with its colon only
             {"2012-05-01t10:20:30Z", kNone},
             {"2012-05-01 10:20:30Z", kNone},
             {"2012-5-1T10:20:30Z", kNone},
             {"2012-13-01T10:20:30Z", kNone},
             {"2012-02-30T10:20:30Z", kNone},
             {"2011-02-29T10:20:30Z", kNone},
             {"2012-05-01T25:20:30Z", kNone},
             {"2012-05-01T10:60:30Z", kNone},
             {"2012-05-01T10:20:60Z", kNone},
             {"2012-05-01T10:20:30Zx", kNone},
             {"2012-05-01", kNone},
             {"+", kNone},
             {"-", kNone},
             {"", kNone},
             {"\xFF\xFE", kNone},
         }) {
        EXPECT_EQ(shown(QVDateTools::dateFromRFC3339DateString(row.text)), row.unixTime)
            << row.text;
    }
    EXPECT_EQ(QVDateTools::dateFromRFC3339DateString(std::nullopt), std::nullopt);
    EXPECT_EQ(QVDateTools::dateFromRFC3339DateString(std::string(300, ' ') + "2012"), std::nullopt);
}

TEST(Timestamps, MayBeReadBySeveralThreads) {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([thread] {
            const std::string text = "2012-05-01T10:20:3" + std::to_string(thread) + "Z";
            for (int i = 0; i < 500; ++i) {
                EXPECT_EQ(shown(QVDateTools::dateFromRFC3339DateString(text)), kMoment + thread);
            }
        });
    }
}

} // namespace
} // namespace qv::test
