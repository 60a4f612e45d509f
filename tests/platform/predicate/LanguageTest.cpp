// Texts to trees and back, and the texts that are refused.

#include "platform/predicate/Outcome.h"
#include "support/CaseFile.h"

#include <gmock/gmock.h>

namespace qv::test {
namespace {

using testing::HasSubstr;

// The dump on one line: a node's operands in parentheses behind it.
std::string compact(const std::string& dump) {
    std::string result;
    std::size_t open = 0;
    for (std::size_t begin = 0; begin < dump.size();) {
        const std::size_t end = dump.find('\n', begin);
        const std::size_t title = dump.find_first_not_of(' ', begin);
        const std::size_t level = (title - begin) / 2;
        if (level > open) {
            result += '(';
        } else {
            result += std::string(open - level, ')') + (begin == 0 ? "" : " ");
        }
        result += dump.substr(title, end - title);
        open = level;
        begin = end + 1;
    }
    return result + std::string(open, ')');
}

TEST(PredicateLanguage, PrintsWhatItReads) {
    for (const auto& [place, fields] : casesOf(QV_PREDICATE_CASES "/grammar.txt", 3)) {
        SCOPED_TRACE(place + ": " + fields[0]);
        const std::string& format = fields[2];
        try {
            const Predicate predicate = Predicate::predicateWithFormat(fields[0]);
            EXPECT_EQ(compact(predicate.tree()), fields[1]);
            EXPECT_EQ(predicate.predicateFormat(), format);
            const Predicate again = Predicate::predicateWithFormat(format);
            EXPECT_EQ(again.tree(), predicate.tree());
            EXPECT_EQ(again.predicateFormat(), format);
        } catch (const Exception& exception) {
            ADD_FAILURE() << exception.reason();
        }
    }
}

TEST(PredicateLanguage, NamesPlaceAndCauseOfRefusal) {
    for (const auto& [place, fields] : casesOf(QV_PREDICATE_CASES "/refusals.txt", 3)) {
        SCOPED_TRACE(place + ": " + fields[0]);
        try {
            ADD_FAILURE() << "parses to " << Predicate::predicateWithFormat(fields[0]).tree();
        } catch (const PredicateSyntaxError& error) {
            EXPECT_EQ(error.name(), "NSInvalidArgumentException");
            EXPECT_EQ(std::to_string(error.offset()), fields[1]) << error.cause();
            EXPECT_THAT(error.cause(), HasSubstr(fields[2]));
        }
    }
}

TEST(PredicateLanguage, QuotesTheNeighbourhoodOfTheFault) {
    const std::string many = repeated("'ä' == 1 OR ", 50);
    EXPECT_EQ(outcome(many + "= 2 OR " + many),
              "NSInvalidArgumentException: a value should stand here, at byte 650 of \"..." +
                  many.substr(601) + "= 2 OR " + many.substr(0, 43) + "...\"");
}

} // namespace
} // namespace qv::test
