// Intervals in words, dates in words, timestamps. The tests stand in Germany and count Tokyo's
// time.

#include "foundation_ext/IntervalWords.h"
#include "foundation_ext/QVDateTools.h"
#include "support/CaseFile.h"
#include "support/TemporaryDirectory.h"

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

TEST(Intervals, AreSplitIntoTheUnitsAskedFor) {
    constexpr std::int64_t kBefore = 77;
    for (const auto& [place, fields] : casesOf(QV_EXT_CASES "/intervals.txt", 6)) {
        std::array<std::int64_t, 5> values{};
        values.fill(kBefore);
        std::array<std::int64_t*, 5> wanted{};
        for (std::size_t unit = 0; unit < values.size(); ++unit) {
            wanted.at(unit) = fields[unit + 1] == "-" ? nullptr : &values.at(unit);
        }
        QVDateTools::splitTimeInterval(std::stod(fields[0]), wanted[0], wanted[1], wanted[2],
                                       wanted[3], wanted[4]);
        for (std::size_t unit = 0; unit < values.size(); ++unit) {
            const bool isKept = fields[unit + 1] == "-" || fields[unit + 1] == "kept";
            EXPECT_EQ(values.at(unit), isKept ? kBefore : std::stoll(fields[unit + 1])) << place;
        }
    }
}

TEST(Intervals, AreToldInWords) {
    for (const auto& [place, fields] : casesOf(QV_EXT_CASES "/words.txt", 4)) {
        const auto asks = [&units = fields[1]](char unit) {
            return units.find(unit) != std::string::npos;
        };
        EXPECT_EQ(QVDateTools::stringFromTimeInterval(std::stod(fields[0]), asks('y'), asks('d'),
                                                      asks('h'), asks('m'), asks('s'),
                                                      fields[2] == "omit"),
                  fields[3])
            << place;
    }
    EXPECT_EQ(QVDateTools::stringFromTimeInterval(3600, false, true, true, true, false),
              "0 days 1 hour 0 minutes");
}

TEST(Intervals, TakeNamesFromTheBestTable) {
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
    // A value that is not a string is not a name.
    EXPECT_EQ(inWords("de_DE", 25 * 3600), "1 day 1 Stunde");
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

TEST(Dates, FollowTheStylesOfTheLocale) {
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

// Seconds since 1970, or none.
std::optional<double> unixTimeOf(const std::optional<Date>& date) {
    return date ? std::optional(date->secondsSinceReference + kReferenceDate) : std::nullopt;
}

TEST(Timestamps, AreReadOrRefused) {
    for (const auto& [place, fields] : casesOf(QV_EXT_CASES "/timestamps.txt", 3)) {
        SCOPED_TRACE(place + ": " + fields[1]);
        const std::optional<double> actual =
            unixTimeOf(fields[0] == "ISO8601" ? QVDateTools::dateFromISO8601DateString(fields[1])
                                              : QVDateTools::dateFromRFC3339DateString(fields[1]));
        ASSERT_EQ(actual.has_value(), fields[2] != "none");
        if (actual) {
            EXPECT_NEAR(*actual, std::stod(fields[2]), 1e-6);
        }
    }
    EXPECT_EQ(QVDateTools::dateFromISO8601DateString(std::nullopt), std::nullopt);
    EXPECT_EQ(QVDateTools::dateFromRFC3339DateString(std::nullopt), std::nullopt);
    const std::string longFraction(300, '4');
    EXPECT_EQ(QVDateTools::dateFromISO8601DateString("2012-05-01T10:20:30." + longFraction + "Z"),
              std::nullopt);
}

TEST(Timestamps, MayBeReadBySeveralThreads) {
    constexpr double kMoment = 1335867630; // 2012-05-01T10:20:30Z
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([thread] {
            const std::string text = "2012-05-01T10:20:3" + std::to_string(thread) + "Z";
            for (int i = 0; i < 500; ++i) {
                EXPECT_EQ(unixTimeOf(QVDateTools::dateFromRFC3339DateString(text)),
                          kMoment + thread);
            }
        });
    }
}

} // namespace
} // namespace qv::test
