// The language of requirements, by the cases in text files: what texts compile to, and for which
// code they hold.

#include "platform/security/requirement/Requirement.h"

#include "platform/foundation/plist/PropertyList.h"
#include "platform/security/requirement/CodeSigningStatus.h"

#include <fmt/core.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TextCases.h"
#include <map>

namespace qv::test {
namespace {

constexpr double kDay = 86400;

std::string repeat(std::string_view text, std::size_t count) {
    std::string result;
    for (std::size_t index = 0; index < count; ++index) {
        result += text;
    }
    return result;
}

std::string outcomeOf(std::string_view text) {
    const auto compiled = Requirement::compile(text);
    return compiled ? compiled->text() : compiled.error().description();
}

TEST(RequirementCompile, GivesCanonicalTextOrError) {
    const std::vector<TextCase> cases = textCasesOf(QV_CASES "compile.txt");
    ASSERT_GT(cases.size(), 100U);
    for (const TextCase& each : cases) {
        EXPECT_EQ(outcomeOf(each.text), each.outcome) << each.text;
    }
}

// A printer that drops a parenthesis or a quote would change whom a requirement lets in.
TEST(RequirementCompile, CanonicalTextMeansTheSame) {
    std::vector<std::string> texts;
    for (const TextCase& each : textCasesOf(QV_CASES "compile.txt")) {
        if (Requirement::compile(each.text)) {
            texts.push_back("(" + each.text + "\n)"); // a comment must not hide the parenthesis
        }
    }
    std::erase_if(texts, [](const std::string& text) { return text.find(';') != text.npos; });
    ASSERT_GT(texts.size(), 50U);
    for (std::size_t index = 2; index < texts.size(); ++index) {
        const auto [a, b, c] = std::tie(texts[index - 2], texts[index - 1], texts[index]);
        for (const std::string& text :
             {fmt::format("!({} and {}) or {}", a, b, c), fmt::format("{} and ({} or {})", a, b, c),
              fmt::format("{} and ({} and !{})", a, b, c), fmt::format("{} or ({} or {})", a, b, c),
              fmt::format("({} or {}) and !!{}", a, b, c)}) {
            const auto compiled = Requirement::compile(text);
            ASSERT_TRUE(compiled) << text << compiled.error().description();
            const auto again = Requirement::compile(compiled->text());
            ASSERT_TRUE(again) << compiled->text();
            EXPECT_EQ(*again, *compiled) << text;
            EXPECT_EQ(again->text(), compiled->text());
        }
    }
}

// The service's own requirement: how it binds decides who is let in.
constexpr std::string_view kClient =
    R"(anchor apple generic and identifier "com.larkwen.QVCatalogHelper" and (certificate leaf[field.1.2.840.113635.100.6.1.9] /* exists */ or certificate 1[field.1.2.840.113635.100.6.2.6] /* exists */ and certificate leaf[field.1.2.840.113635.100.6.1.13] /* exists */ and certificate leaf[subject.OU] = T4KQ8ZP3WM))";

TEST(RequirementCompile, DumpsTheClientRequirement) {
    EXPECT_EQ(Requirement::compile(kClient)->tree(), R"(and
  anchor apple generic
  identifier "com.larkwen.QVCatalogHelper"
  or
    certificate leaf[field.1.2.840.113635.100.6.1.9] exists
    and
      certificate 1[field.1.2.840.113635.100.6.2.6] exists
      certificate leaf[field.1.2.840.113635.100.6.1.13] exists
      certificate leaf[subject.OU] = T4KQ8ZP3WM
)");
    EXPECT_EQ(Requirement::compile("!(legacy and (legacy and identifier \"a\nb\"))")->tree(),
              "not\n  and\n    legacy\n    and\n      legacy\n      identifier \"a\\x0ab\"\n");
}

// Deep nesting must end in an error, not on the end of the stack.
TEST(RequirementCompile, BoundsNestingAndLength) {
    const std::string deepest = repeat("(", 1000) + "always" + repeat(")", 1000);
    EXPECT_EQ(outcomeOf("(always) and " + deepest), "always and always");
    EXPECT_EQ(outcomeOf(repeat("(!", 500) + "( always"),
              "line 1, column 1001: more than 1000 parentheses and negations are nested here: "
              "\"(\"");
    EXPECT_EQ(Requirement::compile(repeat("!", 60000)).error().offset, 1000U);
    EXPECT_EQ(Requirement::compile(repeat("(always or ", 5000)).error().offset, 11000U);

    const std::string longest = "identifier \"" + repeat("x", 65536 - 13) + "\"";
    EXPECT_EQ(outcomeOf(longest), longest);
    EXPECT_EQ(Requirement::compile(longest + " ").error().reason,
              "the text is longer than 65536 bytes");
    // A text that could not be compiled again must not be compiled either.
    EXPECT_EQ(Requirement::compile(repeat("info[a]or ", 6000) + "info[a]").error().reason,
              "written in full the text is longer than 65536 bytes");
}

TEST(RequirementCompile, AsksTheCallerForCertificateFiles) {
    std::vector<std::string> asked;
    const CertificateHashLoader loader = [&](const std::string& path) {
        asked.push_back(path);
        return path == "/none/here" ? std::nullopt : std::optional(std::array<std::uint8_t, 20>{});
    };
    const auto compiled = Requirement::compile(
        "anchor = /etc/root or cert leaf \"/a b.pem\" or cert 1 == leaf.pem", loader);
    ASSERT_TRUE(compiled) << compiled.error().description();
    EXPECT_EQ(asked, (std::vector<std::string>{"/etc/root", "/a b.pem", "leaf.pem"}));
    EXPECT_EQ(compiled->text(), fmt::format("certificate root = {0} or certificate leaf = {0} or "
                                            "certificate 1 = {0}",
                                            "H\"" + repeat("0", 40) + "\""));
    EXPECT_EQ(Requirement::compile("anchor = /none/here", loader).error().description(),
              "line 1, column 10: this file gives no certificate: \"/none/here\"");
}

CertificateFacts leafCertificate() {
    CertificateFacts leaf;
    leaf.sha1.fill(0xAA);
    leaf.subject = {{"C", "DE"},
                    {"CN", "Developer: Jane"},
                    {"OU", "T4KQ8ZP3WM"},
                    {"OU", "SECOND"},
                    {"2.5.4.10.1", "Group"},
                    {"2.5.4.11.1", "Unit"},
                    {"2.5.4.8.1", "State"},
                    {"2.5.4.9.1", "Street"},
                    {"STREET", ""},
                    {"1.2.3", "unnamed"}};
    leaf.extensionOIDs = {"1.2.840.1"};
    leaf.policyOIDs = {"2.5.29.32.0"};
    leaf.timestamps = {{"1.2.33", Date{10 * kDay}}};
    return leaf;
}

// The facts with leaf, intermediate and the vendor's root, or with the first of them, from the leaf
// on.
CodeFacts signedBy(std::size_t certificates) {
    CodeFacts facts;
    facts.identifier = "com.example.tool";
    facts.platform = 3;
    facts.cdhash.fill(0x11);
    const auto lists = PropertyList::propertyListWithData(contentOf(QV_CASES "evaluate.plist"));
    facts.info = *lists->root.find("info");
    facts.entitlements = *lists->root.find("entitlements");
    facts.chain.resize(certificates);
    if (certificates > 1) {
        for (const char* name : {"C", "CN", "D", "L", "O", "OU", "ST", "STREET", "UID"}) {
            facts.chain[1].subject.emplace_back(name, "x");
        }
    }
    if (certificates > 0) {
        facts.chain.back().sha1.fill(0xCC);
        facts.chain.back().vendorRoot = true;
        facts.chain.front() = leafCertificate();
        facts.chain.front().vendorRoot = certificates == 1;
    }
    return facts;
}

template <typename Change> CodeFacts changed(CodeFacts facts, const Change& change) {
    change(facts.chain);
    return facts;
}

std::map<std::string, CodeFacts> codes() {
    const CodeFacts three = signedBy(3);
    const CodeFacts upsideDown = changed(three, [](auto& chain) {
        chain[0].vendorRoot = chain[0].platformRoot = true;
        chain[1].vendorRoot = chain[1].platformRoot = true;
        chain[2].vendorRoot = false;
    });
    const CodeFacts trusted = changed(three, [](auto& chain) { chain[1].trusted = true; });
    return {{"[three certificates]", three},
            {"[one certificate]", signedBy(1)},
            {"[no certificate]", signedBy(0)},
            {"[roots below the root]", upsideDown},
            {"[root of the platform]",
             changed(upsideDown, [](auto& chain) { chain[2].platformRoot = true; })},
            {"[trusted intermediate]", trusted},
            {"[revoked leaf below trusted intermediate]",
             changed(trusted, [](auto& chain) { chain[0].revoked = true; })},
            {"[intermediate trusted and revoked]",
             changed(trusted, [](auto& chain) { chain[1].revoked = true; })}};
}

TEST(RequirementEvaluate, HoldsForTheRightCode) {
    const std::map<std::string, CodeFacts> codes = test::codes();
    const CodeFacts* code = nullptr;
    for (const std::string& line : linesOfCases(QV_CASES "evaluate.txt")) {
        if (line.starts_with('[')) {
            code = &codes.at(line);
            continue;
        }
        const auto compiled = Requirement::compile(line.substr(2));
        ASSERT_TRUE(compiled) << line << compiled.error().description();
        EXPECT_EQ(compiled->evaluate(*code),
                  line.starts_with('+') ? codesign_status::kSuccess : codesign_status::kReqFailed)
            << line << " over " << code->chain.size() << " certificates";
    }
}

// 60 levels that each hold the next one twice have 2^60 elements; 200,000 levels are more than a
// stack holds.
TEST(RequirementEvaluate, BearsHostileArrays) {
    CodeFacts facts;
    Value shared = Value::array({Value::string("x")});
    for (int level = 0; level < 60; ++level) {
        shared = Value::array({shared, shared});
    }
    Value deep = Value::string("bottom");
    for (int level = 0; level < 200'000; ++level) {
        deep = Value::array({deep});
    }
    facts.info = Value::dictionary({{"shared", shared}, {"deep", deep}});
    EXPECT_EQ(Requirement::compile("info[deep] = bottom")->evaluate(facts), 0);
    EXPECT_EQ(Requirement::compile("info[shared] = y")->evaluate(facts),
              codesign_status::kReqFailed);
}

TEST(RequirementEvaluate, BoundsDepthOfTree) {
    const auto row = [](std::size_t count) {
        return *Requirement::compile(repeat("never or ", count - 1) + "always");
    };
    EXPECT_EQ(row(1000).evaluate({}), codesign_status::kSuccess);
    EXPECT_EQ(row(1001).evaluate({}), codesign_status::kReqInvalid);
    const Requirement longest = row(7000);
    EXPECT_EQ(longest.explain({}).size(), 7000U);
    EXPECT_EQ(Requirement::compile(longest.text())->tree(), longest.tree());
    EXPECT_EQ(Requirement::compile(repeat("!", 1000) + "true")->evaluate({}),
              codesign_status::kReqInvalid);
}

// The four other facts of the client requirement decide when anchor and identifier are given:
// everything with the store marker, and intermediate, leaf marker and team together.
TEST(RequirementEvaluate, AcceptsNineOfSixteenClients) {
    const Requirement requirement = *Requirement::compile(kClient);
    for (unsigned facts = 0; facts < 16; ++facts) {
        const bool store = (facts & 1U) != 0;
        const bool intermediate = (facts & 2U) != 0;
        const bool leaf = (facts & 4U) != 0;
        const bool team = (facts & 8U) != 0;
        CodeFacts code;
        code.identifier = "com.larkwen.QVCatalogHelper";
        code.chain.resize(3);
        code.chain[2].vendorRoot = true;
        code.chain[0].extensionOIDs = {store ? "1.2.840.113635.100.6.1.9" : "1.2",
                                       leaf ? "1.2.840.113635.100.6.1.13" : "1.3"};
        code.chain[1].extensionOIDs = {intermediate ? "1.2.840.113635.100.6.2.6" : "1.2"};
        code.chain[0].subject = {{"OU", team ? "T4KQ8ZP3WM" : "OTHERTEAM1"}};
        EXPECT_EQ(requirement.evaluate(code) == codesign_status::kSuccess,
                  store || (intermediate && leaf && team))
            << "combination " << facts;
        code.identifier += "X";
        EXPECT_EQ(requirement.evaluate(code), codesign_status::kReqFailed);
    }
}

TEST(RequirementEvaluate, ExplainsConditionsInOrderOfText) {
    const auto requirement = Requirement::compile(
        "anchor generic apple and !(identifier x or !(legacy and platform 3)) and !!never");
    std::vector<std::string> lines;
    for (const RequirementFinding& finding : requirement->explain(signedBy(3))) {
        lines.push_back(fmt::format("{}{}: {}", finding.negated ? "not " : "", finding.condition,
                                    finding.holds));
    }
    EXPECT_THAT(lines,
                testing::ElementsAre("anchor apple generic: true", "not identifier \"x\": false",
                                     "legacy: false", "platform = 3: true", "never: false"));
}

TEST(CodeSigningStatus, HasMeaningsOfReportedNumbersOnly) {
    EXPECT_EQ(codesign_status::meaning(codesign_status::kReqFailed),
              "The code does not satisfy the requirement.");
    EXPECT_EQ(codesign_status::meaning(100003), "No such process");
    EXPECT_EQ(codesign_status::meaning(codesign_status::kErrnoBase), "");
    EXPECT_EQ(codesign_status::meaning(100256), "");
}

} // namespace
} // namespace qv::test
