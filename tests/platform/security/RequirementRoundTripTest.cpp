#include "platform/security/requirement/Requirement.h"

#include <gtest/gtest.h>

#include <array>
#include <random>
#include <string>
#include <vector>

namespace qv::test {
namespace {

// Writes arbitrary requirements by the grammar, with more ways to say things than the printer has.
class RequirementWriter {
public:
    explicit RequirementWriter(unsigned seed) : random_(seed) {}

    std::string expression(int depth) {
        switch (below(depth > 0 ? 6 : 2)) {
        case 0:
        case 1:
            return condition();
        case 2:
            return "(" + expression(depth - 1) + ")";
        case 3:
            return "!(" + expression(depth - 1) + ")";
        case 4:
            return expression(depth - 1) + blank() + "and" + blank() + expression(depth - 1);
        default:
            return expression(depth - 1) + blank() + "or" + blank() + expression(depth - 1);
        }
    }

private:
    std::size_t below(std::size_t bound) {
        return std::uniform_int_distribution<std::size_t>(0, bound - 1)(random_);
    }
    template <std::size_t N> std::string any(const std::array<const char*, N>& choices) {
        return choices.at(below(N));
    }
    std::string blank() { return any(std::array{" ", "\n", "/* or */", " # and\n\t"}); }

    std::string condition() {
        switch (below(5)) {
        case 0:
            return any(std::array{"always", "true", "never", "legacy", "platform 7", "anchor apple",
                                  "anchor generic apple", "cert trusted",
                                  "cdhash H\"000102030405060708090A0B0C0D0E0F10111213\""});
        case 1:
            return "identifier" + blank() + any(std::array{"", "=", "=="}) + blank() + value();
        case 2:
            return any(std::array{"info[", "entitlement ["}) + value() + "]" + match();
        case 3:
            return slot() + any(std::array{" H\"ff", "=H\"00"}) + std::string(38, 'c') + "\"";
        default:
            return slot() +
                   any(std::array{"[subject.OU]", "[\"subject.C-O\"]", "[subject.Foo]",
                                  "[field.1.2.3]", "[extension.1.2.3]", "[policy.2.5]",
                                  "[timestamp.1.2.33]"}) +
                   match();
        }
    }
    std::string slot() {
        return any(std::array{"anchor", "certificate leaf", "cert root", "cert 0", "cert -1",
                              "cert 3", "cert -2"});
    }
    std::string value() {
        return any(std::array{"word", "a.1.b", "\"leaf\"", "\"\"", "\"4A\"", "\"a-b\"",
                              R"("say \"x\"")", "\"gr\xC3\xBC\xC3\x9F\"", "\"two\nlines\""});
    }
    std::string data() {
        return below(3) > 0 ? value() : any(std::array{"0x4142", "0x00", "0x5c", "0xFF80", "0x22"});
    }
    std::string instant() {
        return any(std::array{" timestamp \"20190408000000Z\"", " timestamp\"00010101235959Z\"",
                              " timestamp \"99991231000000Z\""});
    }
    std::string match() {
        switch (below(5)) {
        case 0:
            return any(std::array{"", " exists", " absent"});
        case 1:
            return any(std::array{"=", "=="}) + any(std::array{"", "*"}) + data() +
                   any(std::array{"", "*"});
        case 2:
            return "~" + data();
        case 3:
            return any(std::array{"<", ">", "<=", ">="}) + data();
        default:
            return any(std::array{"<", ">", "<=", ">=", "=", "=="}) + instant();
        }
    }

    std::mt19937 random_;
};

// A printer that drops a parenthesis or a quote would change whom a requirement lets in.
TEST(RequirementRoundTrip, CanonicalTextCompilesToTheSameTree) {
    for (unsigned seed = 0; seed < 3000; ++seed) {
        const std::string text = RequirementWriter(seed).expression(6);
        const auto compiled = Requirement::compile(text);
        ASSERT_TRUE(compiled) << text << "\n" << compiled.error().description();
        const auto again = Requirement::compile(compiled->text());
        ASSERT_TRUE(again) << compiled->text() << "\n" << again.error().description();
        ASSERT_EQ(*again, *compiled) << text << "\n" << compiled->text();
        ASSERT_EQ(again->text(), compiled->text());
        ASSERT_EQ(again->tree(), compiled->tree());
    }
}

// Cut, doubled and exchanged bytes: every outcome is fine but for one that hangs or crashes, or an
// error that points outside of the text.
TEST(RequirementRoundTrip, DamagedTextsEndInAnErrorInsideTheText) {
    std::mt19937 random(1);
    for (unsigned seed = 0; seed < 3000; ++seed) {
        std::string text = RequirementWriter(seed).expression(3);
        for (int fault = 0; fault < 3; ++fault) {
            const std::size_t place = random() % text.size();
            const char other = " \"'()[]!=*~<>;/\\.#-_0xHa\n\0\xC3\xFF"[random() % 27];
            text =
                random() % 2 == 0 ? text.replace(place, 1, 1, other) : text.insert(place, 1, other);
        }
        const auto compiled = Requirement::compile(text);
        if (!compiled) {
            const RequirementError& error = compiled.error();
            ASSERT_LE(error.offset, text.size());
            ASSERT_FALSE(error.reason.empty());
            ASSERT_TRUE(error.offset == text.size() || !error.piece.empty()) << text;
        }
    }
}

} // namespace
} // namespace qv::test
