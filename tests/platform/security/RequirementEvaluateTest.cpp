#include "platform/security/requirement/CodeSigningStatus.h"
#include "platform/security/requirement/Requirement.h"

#include <fmt/core.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace qv::test {
namespace {

constexpr double kDay = 86400;

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

// Leaf, intermediate and the vendor's root, or as many of them, from the leaf on, as are asked for.
CodeFacts signedBy(std::size_t certificates) {
    CodeFacts facts;
    facts.identifier = "com.example.tool";
    facts.platform = 3;
    facts.cdhash.fill(0x11);
    facts.chain.resize(certificates);
    if (certificates > 0) {
        facts.chain.back().sha1.fill(0xCC);
        facts.chain.back().vendorRoot = true;
        facts.chain.front() = leafCertificate();
        facts.chain.front().vendorRoot = certificates == 1;
    }
    return facts;
}

struct Outcome {
    std::string text;
    bool holds;
};

void expectOutcomes(const CodeFacts& facts, const std::vector<Outcome>& rows) {
    for (const Outcome& row : rows) {
        const auto compiled = Requirement::compile(row.text);
        ASSERT_TRUE(compiled) << row.text << ": " << compiled.error().description();
        EXPECT_EQ(compiled->evaluate(facts),
                  row.holds ? codesign_status::kSuccess : codesign_status::kReqFailed)
            << row.text << " over " << facts.chain.size() << " certificates";
    }
}

std::string hash(std::string_view byte) {
    std::string digits;
    for (int index = 0; index < 20; ++index) {
        digits += byte;
    }
    return "H\"" + digits + "\"";
}

TEST(RequirementEvaluate, CodeConditions) {
    expectOutcomes(signedBy(3), {
                                    {"always", true},
                                    {"never", false},
                                    {"identifier com.example.tool", true},
                                    {"identifier com.example.Tool", false},
                                    {"identifier com.example", false},
                                    {"identifier \"com.example.*\"", false},
                                    {"cdhash " + hash("11"), true},
                                    {"cdhash " + hash("12"), false},
                                    {"platform = 3", true},
                                    {"platform = 4", false},
                                    {"notarized", false},
                                    {"legacy", false},
                                    {"!never and !legacy", true},
                                    {"!(always or never)", false},
                                    {"never and never or always", true},
                                    {"never and (never or always)", false},
                                });
}

TEST(RequirementEvaluate, AnchorsLookAtTheRootAlone) {
    expectOutcomes(
        signedBy(0),
        {{"anchor apple", false}, {"anchor apple generic", false}, {"anchor trusted", false}});
    expectOutcomes(signedBy(1), {{"anchor apple", false}, {"anchor apple generic", true}});
    CodeFacts facts = signedBy(3);
    expectOutcomes(facts, {{"anchor apple", false}, {"anchor apple generic", true}});
    facts.chain[2].vendorRoot = false;
    facts.chain[0].vendorRoot = facts.chain[1].vendorRoot = true;
    facts.chain[0].platformRoot = facts.chain[1].platformRoot = true;
    expectOutcomes(facts, {{"anchor apple", false}, {"anchor apple generic", false}});
    facts.chain[2].platformRoot = true;
    expectOutcomes(facts, {{"anchor apple", true}, {"anchor apple generic", true}});
}

TEST(RequirementEvaluate, TrustIsLookedForFromTheLeafUpward) {
    CodeFacts facts = signedBy(3);
    facts.chain[1].trusted = true;
    expectOutcomes(facts, {{"anchor trusted", true},
                           {"certificate leaf trusted", false},
                           {"certificate 1 trusted", true},
                           {"certificate -2 trusted", true},
                           {"certificate 3 trusted", false}});
    facts.chain[0].revoked = true;
    expectOutcomes(facts, {{"anchor trusted", false}});
    facts.chain[0] = {};
    facts.chain[1].revoked = true; // marked both ways: denied
    expectOutcomes(facts, {{"anchor trusted", false}, {"certificate 1 trusted", false}});
}

TEST(RequirementEvaluate, SlotsCountFromBothEnds) {
    const std::string leaf = hash("aa");
    const std::string root = hash("cc");
    const std::string middle = hash("00");
    expectOutcomes(signedBy(3), {
                                    {"certificate leaf = " + leaf, true},
                                    {"certificate -3 = " + leaf, true},
                                    {"certificate 1 = " + middle, true},
                                    {"certificate -2 = " + middle, true},
                                    {"certificate 2 = " + root, true},
                                    {"anchor = " + root, true},
                                    {"anchor = " + leaf, false},
                                });
    expectOutcomes(signedBy(1), {{"anchor = " + leaf, true}, {"certificate leaf = " + leaf, true}});
}

// A slot past either end holds nothing, so that even `absent` is false there - but for timestamps.
TEST(RequirementEvaluate, MissingSlotsFailEverything) {
    for (const std::size_t count : {0U, 1U, 3U}) {
        for (const std::string& slot : {std::to_string(count), "-" + std::to_string(count + 1),
                                        std::string("2147483647"), std::string("-2147483647")}) {
            const std::string certificate = "certificate " + slot;
            expectOutcomes(signedBy(count), {
                                                {certificate + " = " + hash("00"), false},
                                                {certificate + " trusted", false},
                                                {certificate + "[subject.CN]", false},
                                                {certificate + "[subject.CN] absent", false},
                                                {certificate + "[field.1.2] absent", false},
                                                {certificate + "[policy.1.2] absent", false},
                                                {certificate + "[timestamp.1.2]", false},
                                                {certificate + "[timestamp.1.2] absent", true},
                                            });
        }
    }
}

TEST(RequirementEvaluate, SubjectComponents) {
    CodeFacts facts = signedBy(3);
    expectOutcomes(facts, {
                              {"certificate leaf[subject.CN] = \"Developer: Jane\"", true},
                              {"certificate leaf[subject.OU] = T4KQ8ZP3WM", true},
                              {"certificate leaf[subject.OU] = SECOND", true}, // a list
                              {"certificate leaf[subject.OU] = t4kq8zp3wm", false},
                              {"certificate leaf[\"subject.C-O\"] = Group", true},
                              {"certificate leaf[\"subject.C-OU\"] = Unit", true},
                              {"certificate leaf[\"subject.C-ST\"] = State", true},
                              {"certificate leaf[\"subject.C-STREET\"] = Street", true},
                              {"certificate leaf[subject.STREET]", true},
                              {"certificate leaf[subject.STREET] = \"\"", true},
                              {"certificate leaf[subject.L]", false},
                              {"certificate leaf[subject.L] absent", false},
                              {"certificate leaf[subject.CN] absent", false},
                              {"certificate leaf[subject.1.2.3]", false}, // not a known component
                              {"certificate leaf[subject.Foo] absent", false},
                              {"certificate leaf[subject.cn]", false},
                              {"certificate 1[subject.CN]", false},
                          });
    for (const char* name : {"C", "CN", "D", "L", "O", "OU", "ST", "STREET", "UID"}) {
        facts.chain[1].subject = {{name, "x"}};
        expectOutcomes(facts, {{fmt::format("certificate 1[subject.{}] = x", name), true}});
    }
}

TEST(RequirementEvaluate, ExtensionsAndPoliciesAreThereOrNot) {
    for (const char* key : {"field.1.2.840.1", "extension.1.2.840.1", "policy.2.5.29.32.0"}) {
        const std::string leaf = fmt::format("certificate leaf[{}]", key);
        const std::string other = fmt::format("certificate 1[{}]", key);
        expectOutcomes(signedBy(3), {
                                        {leaf, true},
                                        {leaf + " absent", false},
                                        {leaf + " = \"true\"", false},
                                        {leaf + " = *\"\"*", false},
                                        {leaf + " >= \"\"", false},
                                        {leaf + " <= timestamp \"29991231000000Z\"", false},
                                        {other, false},
                                        {other + " absent", true},
                                    });
    }
    expectOutcomes(signedBy(3), {{"certificate leaf[field.1.2.840]", false},
                                 {"certificate leaf[field.2.5.29.32.0]", false},
                                 {"certificate leaf[policy.1.2.840.1]", false}});
}

TEST(RequirementEvaluate, Timestamps) {
    const std::string entry = "certificate leaf[timestamp.1.2.33] ";
    const std::string before = "timestamp \"20010110235959Z\"";
    const std::string on = "timestamp \"20010111000000Z\"";
    const std::string after = "timestamp \"20010111000001Z\"";
    expectOutcomes(signedBy(3), {
                                    {entry + "exists", true},
                                    {entry + "absent", false},
                                    {entry + "= " + on, true},
                                    {entry + "= " + after, false},
                                    {entry + "< " + after, true},
                                    {entry + "< " + on, false},
                                    {entry + "> " + before, true},
                                    {entry + "> " + on, false},
                                    {entry + "<= " + on, true},
                                    {entry + "<= " + before, false},
                                    {entry + ">= " + on, true},
                                    {entry + ">= " + after, false},
                                    {entry + "= \"20010111000000Z\"", false},
                                    {"certificate leaf[timestamp.1.2.34] absent", true},
                                    {"certificate leaf[timestamp.1.2.34] < " + after, false},
                                    {"certificate leaf[timestamp.1.2.34] >= " + on, false},
                                });
}

Value text(std::string_view content) { return Value::string(content); }

TEST(RequirementEvaluate, StringMatches) {
    CodeFacts facts = signedBy(0);
    facts.entitlements = Value::dictionary({{"a.b", text("inner")}});
    facts.info = Value::dictionary({{"K", text("Main App Store")},
                                    {"E", text("")},
                                    {"U", text("gr\xC3\xBC\xC3\x9F")},
                                    {"S", text("a*b")}});
    expectOutcomes(facts, {
                              {"info[K]", true},
                              {"info[E]", true},
                              {"info[K] absent", false},
                              {"info[k]", false},
                              {"info[k] absent", true},
                              {"entitlement[a.b] = inner", true},
                              {"entitlement[K]", false},
                              {"info[K] = \"Main App Store\"", true},
                              {"info[K] = \"Main\"", false},
                              {"info[K] = Main*", true},
                              {"info[K] = App*", false},
                              {"info[K] = *Store", true},
                              {"info[K] = *App", false},
                              {"info[K] = *\"App Store\"", true},
                              {"info[K] = *App*", true},
                              {"info[K] = *app*", false},
                              {"info[K] ~ \"n A\"", true},
                              {"info[K] = *\"\"*", false},
                              {"info[K] = \"\"*", false},
                              {"info[E] = \"\"", true},
                              {"info[S] = \"*b\"", false}, // a star in quotes is a star
                              {"info[S] ~ \"*b\"", true},
                              {"info[U] = 0x6772c3bcc39f", true},
                              {"info[U] = 0x6772c3*", false}, // half a character
                              {"info[U] < 0xff", false},
                              {"info[missing] = \"\"", false},
                          });
}

TEST(RequirementEvaluate, OrderTakesDigitsAsNumbers) {
    CodeFacts facts = signedBy(0);
    const auto holds = [&](std::string_view left, const char* symbol, std::string_view right) {
        facts.info = Value::dictionary({{"K", text(left)}});
        const auto compiled = Requirement::compile(fmt::format("info[K] {} \"{}\"", symbol, right));
        return compiled->evaluate(facts) == 0;
    };
    struct Pair {
        std::string_view smaller;
        std::string_view larger;
    };
    for (const auto& [smaller, larger] : {
             Pair{"9", "10"},
             Pair{"1.9.3", "1.10"},
             Pair{"1.2", "1.2.0"},
             Pair{"", "0"},
             Pair{"a", "b"},
             Pair{"B", "a"},
             Pair{"a9", "aa"},
             Pair{"099", "100"},
             Pair{"99999999999999999999999", "100000000000000000000000"},
             Pair{"z", "\xC3\xA4"},
         }) {
        SCOPED_TRACE(fmt::format("{} and {}", smaller, larger));
        EXPECT_TRUE(holds(smaller, "<", larger) && holds(smaller, "<=", larger));
        EXPECT_TRUE(holds(larger, ">", smaller) && holds(larger, ">=", smaller));
        EXPECT_FALSE(holds(smaller, ">", larger) || holds(smaller, ">=", larger));
        EXPECT_FALSE(holds(larger, "<", smaller) || holds(larger, "<=", smaller));
    }
    EXPECT_TRUE(holds("1.02", "<=", "1.2") && holds("1.02", ">=", "1.2"));
    EXPECT_FALSE(holds("1.02", "=", "1.2"));
    EXPECT_TRUE(holds("000", "<=", "0") && holds("000", ">=", "0"));
    expectOutcomes(facts, {{"info[missing] < z", false}, {"info[missing] >= \"\"", false}});
}

TEST(RequirementEvaluate, ValuesThatAreNoStrings) {
    CodeFacts facts = signedBy(0);
    facts.info = Value::dictionary({
        {"yes", Value::boolean(true)},
        {"no", Value::boolean(false)},
        {"zero", Value::integer(0)},
        {"real", Value::real(1)},
        {"data", Value::data("AB")},
        {"date", Value::date({10 * kDay})},
        {"dict", Value::dictionary({{"x", text("x")}})},
    });
    expectOutcomes(facts, {{"info[yes]", true}, {"info[no]", false}, {"info[no] absent", false}});
    for (const char* key : {"zero", "real", "data", "date", "dict"}) {
        expectOutcomes(facts, {{fmt::format("info[{}] exists", key), true},
                               {fmt::format("info[{}] absent", key), false}});
    }
    for (const char* key : {"yes", "no", "zero", "real", "data", "date", "dict"}) {
        for (const char* match : {"= \"1\"", "= \"0\"", "= AB", "= YES", "~ x", "< z", ">= \"\""}) {
            expectOutcomes(facts, {{fmt::format("info[{}] {}", key, match), false}});
        }
    }
    expectOutcomes(facts, {{"info[date] = timestamp \"20010111000000Z\"", true},
                           {"info[date] > timestamp \"20010111000000Z\"", false},
                           {"info[zero] < timestamp \"20010111000000Z\"", false}});
}

TEST(RequirementEvaluate, AnArraySucceedsWithAnyElement) {
    CodeFacts facts = signedBy(0);
    const Value inner = Value::array({text("deep"), Value::date({0})});
    facts.entitlements = Value::dictionary({
        {"groups", Value::array({Value::integer(1), text("one"), text("two"), inner})},
        {"empty", Value::array({})},
        {"off", Value::array({Value::boolean(false)})},
    });
    expectOutcomes(facts, {
                              {"entitlement[groups] = two", true},
                              {"entitlement[groups] = deep", true},
                              {"entitlement[groups] = on*", true},
                              {"entitlement[groups] = three", false},
                              {"entitlement[groups] = timestamp \"20010101000000Z\"", true},
                              {"entitlement[groups] absent", false},
                              {"entitlement[empty] exists", true},
                              {"entitlement[empty] absent", false},
                              {"entitlement[empty] ~ o", false},
                              {"entitlement[off] exists", true},
                          });
}

// 60 levels that each hold the next one twice are 2^60 elements to whoever counts them one by one;
// two hundred thousand levels are more than a stack holds.
TEST(RequirementEvaluate, HostileArraysTakeNeitherTimeNorStack) {
    CodeFacts facts = signedBy(0);
    Value shared = Value::array({text("x")});
    for (int level = 0; level < 60; ++level) {
        shared = Value::array({shared, shared});
    }
    Value deep = text("bottom");
    for (int level = 0; level < 200'000; ++level) {
        deep = Value::array({deep});
    }
    facts.info = Value::dictionary({{"shared", shared}, {"deep", deep}});
    expectOutcomes(facts, {{"info[shared] = y", false}, {"info[deep] = bottom", true}});
}

// Anchor and identifier given, the four other facts of the client requirement decide: everything
// with the store marker, and intermediate, leaf marker and team together.
TEST(RequirementEvaluate, NineOfSixteenClientsPass) {
    const auto requirement = Requirement::compile(
        R"(anchor apple generic and identifier "com.larkwen.QVCatalogHelper" and (certificate leaf[field.1.2.840.113635.100.6.1.9] /* exists */ or certificate 1[field.1.2.840.113635.100.6.2.6] /* exists */ and certificate leaf[field.1.2.840.113635.100.6.1.13] /* exists */ and certificate leaf[subject.OU] = T4KQ8ZP3WM))");
    ASSERT_TRUE(requirement);
    int passed = 0;
    for (unsigned facts = 0; facts < 16; ++facts) {
        const bool store = (facts & 1U) != 0;
        const bool intermediate = (facts & 2U) != 0;
        const bool leaf = (facts & 4U) != 0;
        const bool team = (facts & 8U) != 0;
        CodeFacts code;
        code.identifier = "com.larkwen.QVCatalogHelper";
        code.chain.resize(3);
        code.chain[2].vendorRoot = true;
        if (store) {
            code.chain[0].extensionOIDs.emplace_back("1.2.840.113635.100.6.1.9");
        }
        if (intermediate) {
            code.chain[1].extensionOIDs.emplace_back("1.2.840.113635.100.6.2.6");
        }
        if (leaf) {
            code.chain[0].extensionOIDs.emplace_back("1.2.840.113635.100.6.1.13");
        }
        code.chain[0].subject = {{"OU", team ? "T4KQ8ZP3WM" : "OTHERTEAM1"}};
        const bool passes = requirement->evaluate(code) == codesign_status::kSuccess;
        EXPECT_EQ(passes, store || (intermediate && leaf && team)) << "combination " << facts;
        passed += passes ? 1 : 0;

        CodeFacts renamed = code;
        renamed.identifier += "X";
        EXPECT_EQ(requirement->evaluate(renamed), codesign_status::kReqFailed);
        CodeFacts foreign = code;
        foreign.chain[2].vendorRoot = false;
        EXPECT_EQ(requirement->evaluate(foreign), codesign_status::kReqFailed);
    }
    EXPECT_EQ(passed, 9);
}

TEST(RequirementEvaluate, ExplainsEachConditionInTheOrderOfTheText) {
    const auto requirement = Requirement::compile(
        "anchor generic apple and !(identifier x or !(legacy and platform 3)) and !!never");
    std::vector<std::string> lines;
    for (const RequirementFinding& finding : requirement->explain(signedBy(3))) {
        lines.push_back(fmt::format("{}{}: {}", finding.negated ? "not " : "", finding.condition,
                                    finding.holds));
    }
    EXPECT_EQ(lines,
              (std::vector<std::string>{"anchor apple generic: true", "not identifier \"x\": false",
                                        "legacy: false", "platform = 3: true", "never: false"}));
}

} // namespace
} // namespace qv::test
