#include "platform/security/requirement/CodeSigningStatus.h"
#include "platform/security/requirement/Requirement.h"

#include <gtest/gtest.h>

#include <numeric>
#include <string>
#include <vector>

namespace qv::test {
namespace {

constexpr const char* kHash = "H\"000102030405060708090a0b0c0d0e0f10111213\"";

std::string repeat(std::string_view text, std::size_t count) {
    std::string result;
    for (std::size_t index = 0; index < count; ++index) {
        result += text;
    }
    return result;
}

std::string canonical(std::string_view text) {
    const auto compiled = Requirement::compile(text);
    return compiled ? compiled->text() : compiled.error().description();
}

RequirementError errorOf(std::string_view text) {
    const auto compiled = Requirement::compile(text);
    if (compiled) {
        ADD_FAILURE() << "compiles to " << compiled->text();
        return {};
    }
    return compiled.error();
}

struct Row {
    std::string text;
    std::string canonical;
};

void expectCanonical(const std::vector<Row>& rows) {
    for (const Row& row : rows) {
        EXPECT_EQ(canonical(row.text), row.canonical) << row.text;
        EXPECT_EQ(canonical(row.canonical), row.canonical) << "the canonical text is not its own";
    }
}

TEST(RequirementCompile, ReadsEveryCondition) {
    const std::string hash = kHash;
    expectCanonical({
        {"true", "always"},
        {"false", "never"},
        {"identifier com.x.y", R"(identifier "com.x.y")"},
        {"identifier = com.x.y", R"(identifier "com.x.y")"},
        {R"(identifier == "com.x.y")", R"(identifier "com.x.y")"},
        {R"(identifier "a \"b\"
c")",
         R"(identifier "a \"b\"
c")"},
        {"cdhash " + hash, "cdhash " + hash},
        {"cdhash = H\"000102030405060708090A0B0C0D0E0F10111213\"", "cdhash " + hash},
        {"platform = 4294967295", "platform = 4294967295"},
        {"platform 07", "platform = 7"},
        {"notarized", "notarized"},
        {"legacy", "legacy"},
        {"anchor apple", "anchor apple"},
        {"anchor apple generic;", "anchor apple generic"},
        {"anchor generic apple ; ;", "anchor apple generic"},
        {"anchor trusted", "anchor trusted"},
        {"cert trusted", "anchor trusted"},
        {"anchor = " + hash, "certificate root = " + hash},
        {"anchor " + hash, "certificate root = " + hash},
        {"anchor[subject.O] = X", "certificate root[subject.O] = X"},
        {"certificate leaf trusted", "certificate leaf trusted"},
        {"cert -1 == " + hash, "certificate root = " + hash},
        {"cert - 2 " + hash, "certificate -2 = " + hash},
        {"certificate 0[field.1.2.3]", "certificate leaf[field.1.2.3] exists"},
        {"certificate 1[extension.1.2.3] absent", "certificate 1[field.1.2.3] absent"},
        {"certificate 12[policy.1.2] exists", "certificate 12[policy.1.2] exists"},
        {R"(certificate leaf["subject.C-O"] = x)", R"(certificate leaf["subject.C-O"] = x)"},
        {"certificate leaf[subject.Foo]", "certificate leaf[subject.Foo] exists"},
        {R"(certificate leaf[timestamp.1.2.3] < timestamp "20190408235959Z")",
         R"(certificate leaf[timestamp.1.2.3] < timestamp "20190408235959Z")"},
    });
}

TEST(RequirementCompile, ReadsEveryMatch) {
    expectCanonical({
        {"info[K]", "info[K] exists"},
        {"entitlement[\"a-b\"] absent", "entitlement[\"a-b\"] absent"},
        {R"(info["leaf"] = "exists")", R"(info["leaf"] = "exists")"},
        {R"(info["K"] == "v")", "info[K] = v"},
        {"info[K] = \"4AB\"", "info[K] = \"4AB\""},
        {"info[K] = *v", "info[K] = *v"},
        {"info[K] = v*", "info[K] = v*"},
        {"info[K]=*v*", "info[K] = *v*"},
        {"info[K] ~ v", "info[K] = *v*"},
        {"info[K] = \"*v*\"", "info[K] = \"*v*\""},
        {"info[K] < \"9\"", "info[K] < \"9\""},
        {"info[K] >= v.1.2", "info[K] >= v.1.2"},
        {"info[K] <= \"\"", "info[K] <= \"\""},
        {"info[K] > v", "info[K] > v"},
        {"info[K] = 0x4142", "info[K] = AB"},
        {"info[K] = 0xc3A4", "info[K] = \"\xC3\xA4\""},
        {"info[K] = 0xff*", "info[K] = 0xff*"},
        {"info[K] = 0x5c", "info[K] = 0x5c"}, // a backslash has no form in quotes
        {"info[K] = 0x4100", "info[K] = 0x4100"},
        {R"(info[K] >= timestamp "20240229120000Z")", R"(info[K] >= timestamp "20240229120000Z")"},
    });
}

TEST(RequirementCompile, BindsNotThenAndThenOrToTheLeft) {
    expectCanonical({
        {"! anchor apple or always", "!anchor apple or always"},
        {"(! anchor apple) or always", "!anchor apple or always"},
        {"!(anchor apple or always)", "!(anchor apple or always)"},
        {"!!(legacy)", "!!legacy"},
        {"(true and false) and legacy", "always and never and legacy"},
        {"true and (false and legacy)", "always and (never and legacy)"},
        {"(true or false) or legacy", "always or never or legacy"},
        {"true or (false or legacy)", "always or (never or legacy)"},
        {"true or (false and legacy)", "always or never and legacy"},
        {"(true or false) and legacy", "(always or never) and legacy"},
        {"true and false or true and legacy", "always and never or always and legacy"},
    });
    EXPECT_NE(*Requirement::compile("true and (false and legacy)"),
              *Requirement::compile("true and false and legacy"));
    EXPECT_EQ(*Requirement::compile("( ( legacy ) )"), *Requirement::compile("legacy"));
}

TEST(RequirementCompile, SkipsBlanksAndComments) {
    expectCanonical({
        {"# first\r\nalways // last", "always"},
        {"/* * / */always/**/and/*or*/never", "always and never"},
        {"\t\n always\r\n;#", "always"},
        {"anchor=/**/" + std::string(kHash), "certificate root = " + std::string(kHash)},
    });
}

// The service's own requirement: how it binds decides who is let in.
TEST(RequirementCompile, DumpsTheClientRequirement) {
    const auto compiled = Requirement::compile(
        R"(anchor apple generic and identifier "com.larkwen.QVCatalogHelper" and (certificate leaf[field.1.2.840.113635.100.6.1.9] /* exists */ or certificate 1[field.1.2.840.113635.100.6.2.6] /* exists */ and certificate leaf[field.1.2.840.113635.100.6.1.13] /* exists */ and certificate leaf[subject.OU] = T4KQ8ZP3WM))");
    ASSERT_TRUE(compiled) << compiled.error().description();
    EXPECT_EQ(compiled->tree(), R"(and
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

struct Refused {
    std::string text;
    std::size_t offset;
    std::string piece;
    std::string reason;
};

void expectRefused(const std::vector<Refused>& rows) {
    for (const Refused& row : rows) {
        SCOPED_TRACE(row.text);
        const RequirementError error = errorOf(row.text);
        EXPECT_EQ(error.offset, row.offset);
        EXPECT_EQ(error.piece, row.piece);
        EXPECT_EQ(error.reason, row.reason);
    }
}

TEST(RequirementCompile, RefusesTokensWithPlaceAndCause) {
    const std::string odd = "the number of hexadecimal digits is odd";
    const std::string inQuotes = "this character may only stand inside quotes";
    const std::string path =
        "a path without quotes has two or more components of letters and digits";
    expectRefused({
        {"identifier \"abc", 11, "\"abc", "this quote is not closed"},
        {R"(identifier "a\n")", 13, R"(\n)", "in quotes a backslash may only stand before a quote"},
        {"identifier \"a\\", 13, "\\", "in quotes a backslash may only stand before a quote"},
        {"always /* x", 7, "/*", "this comment is not closed"},
        {"always /*/", 7, "/*", "this comment is not closed"},
        {"cdhash H\"0\"", 7, "H\"0\"", odd},
        {"cdhash H\"\"", 7, "H\"\"", "hexadecimal digits are missing"},
        {"cdhash H\"0g\"", 7, "H\"0g",
         "a hash constant holds hexadecimal digits and ends with a quote"},
        {"cdhash H\"00", 7, "H\"00",
         "a hash constant holds hexadecimal digits and ends with a quote"},
        {"info[K] = 0x123", 10, "0x123", odd},
        {"info[K] = 0x", 10, "0x", "hexadecimal digits are missing"},
        {"platform 4294967296", 9, "4294967296", "the number does not fit into 32 bits"},
        {"anchor = /cert", 9, "/cert", path},
        {"anchor = /", 9, "/", path},
        {"always & never", 7, "&", inQuotes},
        {"always \x01", 7, "\\x01", inQuotes},
        {"identifier a.", 12, ".", inQuotes},
        {"identifier \xC3\xA4", 11, "\xC3\xA4",
         "a character outside of ASCII may only stand inside quotes"},
        {"always # \xC3\xA4", 9, "\xC3\xA4",
         "a character outside of ASCII may only stand inside quotes"},
        {std::string("always \0", 8), 7, "\\x00", "a NUL byte may not stand in a requirement"},
        {std::string("identifier \"\0\"", 14), 12, "\\x00",
         "a NUL byte may not stand in a requirement"},
        {"identifier \"\xFF\"", 12, "\\xff", "this byte is not valid UTF-8"},
        {"always #\xED\xA0\x80", 8, "\\xed", "this byte is not valid UTF-8"},
    });
}

TEST(RequirementCompile, RefusesBrokenSentences) {
    const std::string condition = "the text ends where a condition should follow";
    expectRefused({
        {"", 0, "", condition},
        {" # only this", 12, "", condition},
        {";", 0, ";", "a condition should stand here"},
        {"always and", 10, "", condition},
        {"always and or never", 11, "or", "a condition should stand here"},
        {"always never", 7, "never", "'and', 'or' or the end of the requirement should stand here"},
        {"always; never", 8, "never", "nothing but ';' should stand here"},
        {"always and (never or legacy", 11, "(", "this parenthesis is not closed"},
        {"(always;)", 0, "(", "this parenthesis is not closed"},
        {"(always))", 8, ")", "no parenthesis is open here"},
        {"()", 1, ")", "a condition should stand here"},
        {"!", 1, "", condition},
        {"not always", 0, "not", "negation is written '!'"},
        {"Always", 0, "Always", "a condition should stand here"},
        {"designated => anchor apple", 0, "designated",
         "one requirement should stand here, not a set of them"},
        {"host => always", 0, "host", "one requirement should stand here, not a set of them"},
        {"always => always", 7, "=>",
         "'and', 'or' or the end of the requirement should stand here"},
        {"(stored)", 1, "stored", "stored requirements, asked for by name, are not supported"},
        {"anchor apple stored", 13, "stored",
         "stored anchor requirements, asked for by name, are not supported"},
    });
}

TEST(RequirementCompile, RefusesBrokenConditions) {
    const std::string certificateWanted = "a key in brackets or a hash constant H\"...\"";
    const std::string files = "certificate files are not read here";
    const std::string hyphen = "a value that holds '-' must be quoted";
    const std::string oid = "an object identifier like 1.2.840 should follow the first dot";
    const std::string instant = "an instant is written YYYYMMDDhhmmssZ";
    expectRefused({
        {"identifier", 10, "", "the text ends where an identifier should follow"},
        {"identifier com.x-y", 11, "com.x-y", hyphen},
        {"identifier com.x_y or always", 11, "com.x_y", "a value that holds '_' must be quoted"},
        {"entitlement[com.get-task-allow]", 12, "com.get-task-allow", hyphen},
        {"identifier leaf", 11, "leaf", "as a value this keyword must be quoted"},
        {"identifier 0x41", 11, "0x41", "an identifier should stand here"},
        {"certificate leaf[subject.OU] = 4AB", 31, "4AB",
         "a value that begins with a digit must be quoted"},
        {"cdhash H\"00\"", 7, "H\"00\"", "a hash here has 40 digits, this one 2"},
        {"cdhash com", 7, "com", "a hash constant H\"...\" should stand here"},
        {"platform = x", 11, "x", "a platform number should stand here"},
        {"anchor", 6, "", "the text ends where " + certificateWanted + " should follow"},
        {"anchor =", 8, "", "the text ends where a hash constant H\"...\" should follow"},
        {"anchor generic", 14, "", "the text ends where 'apple' should follow"},
        {"anchor = H\"00\"", 9, "H\"00\"", "a hash here has 40 digits, this one 2"},
        {"anchor = /a/b", 9, "/a/b", files},
        {"certificate leaf = \"/a b\"", 19, "\"/a b\"", files},
        {"certificate leaf", 16, "", "the text ends where " + certificateWanted + " should follow"},
        {"certificate [subject.OU]", 12, "[",
         "'leaf', 'root' or the number of a certificate should stand here"},
        {"certificate -leaf[subject.OU]", 13, "leaf", "a number should stand here"},
        {"certificate 2147483648 trusted", 12, "2147483648", "no chain has that many certificates"},
        {"certificate leaf[email] exists", 17, "email", "this certificate key is unknown"},
        {"certificate leaf[Subject.OU]", 17, "Subject.OU", "this certificate key is unknown"},
        {"certificate leaf[field.x]", 17, "field.x", oid},
        {"certificate leaf[policy.1]", 17, "policy.1", oid},
        {"certificate leaf[field.1.02]", 17, "field.1.02", oid},
        {"certificate leaf[\"field.1.2.\"]", 17, "\"field.1.2.\"", oid},
        {"certificate leaf[\"timestamp.\"]", 17, "\"timestamp.\"", oid},
        {"info = x", 5, "=", "a key in brackets should stand here"},
        {"info[K = x", 7, "=", "']' should stand here"},
        {"info[K] =", 9, "", "the text ends where a value should follow"},
        {"info[K] = **", 11, "*", "a value should stand here"},
        {"info[K] < *v", 10, "*", "a value should stand here"},
        {"info[K] ~ timestamp \"20190408000000Z\"", 10, "timestamp",
         "as a value this keyword must be quoted"},
        {"info[K] = timestamp x", 20, "x", "an instant in quotes should stand here"},
        {"info[K] = timestamp \"2019-04-08\"", 20, "\"2019-04-08\"", instant},
        {"info[K] = timestamp \"20190229000000Z\"", 20, "\"20190229000000Z\"", instant},
        {"info[K] = timestamp \"20190408240000Z\"", 20, "\"20190408240000Z\"", instant},
        {"info[K] = timestamp \"20190408000000\"", 20, "\"20190408000000\"", instant},
    });
}

TEST(RequirementCompile, TellsLineAndColumnInCharacters) {
    const RequirementError error =
        errorOf("always and\n  identifier \"\xC3\xA4\xC3\xB6\" nor never");
    EXPECT_EQ(error.line, 2U);
    EXPECT_EQ(error.column, 19U);
    EXPECT_EQ(error.offset, 31U);
    EXPECT_EQ(error.description(), "line 2, column 19: 'and', 'or' or the end of the requirement "
                                   "should stand here: \"nor\"");
    EXPECT_EQ(errorOf("always\nand\n").description(),
              "line 3, column 1: the text ends where a condition should follow");
    EXPECT_EQ(errorOf("\"" + repeat("x", 500)).piece, "\"" + repeat("x", 63) + "...");
}

// Deep nesting must end in an error, not on the end of the stack.
TEST(RequirementCompile, BoundsNesting) {
    const std::string deepest = repeat("(", 1000) + "always" + repeat(")", 1000);
    EXPECT_EQ(canonical(deepest), "always");
    EXPECT_EQ(canonical("(always) and " + deepest), "always and always");
    const RequirementError tooDeep = errorOf(repeat("(!", 500) + "( always");
    EXPECT_EQ(tooDeep.offset, 1000U);
    EXPECT_EQ(tooDeep.reason, "more than 1000 parentheses and negations are nested here");
    EXPECT_EQ(errorOf(repeat("!", 60000)).offset, 1000U);
    EXPECT_EQ(errorOf(repeat("(always or ", 5000)).offset, 11000U);
}

TEST(RequirementCompile, EvaluationBoundsTheDepthOfTheTree) {
    const auto row = [](std::size_t count) {
        return *Requirement::compile(repeat("never or ", count - 1) + "always");
    };
    EXPECT_EQ(row(1000).evaluate({}), codesign_status::kSuccess);
    EXPECT_EQ(row(1001).evaluate({}), codesign_status::kReqInvalid);
    const Requirement longest = row(7000);
    EXPECT_EQ(longest.evaluate({}), codesign_status::kReqInvalid);
    EXPECT_EQ(longest.explain({}).size(), 7000U);
    EXPECT_EQ(Requirement::compile(longest.text())->tree(), longest.tree());
    EXPECT_EQ(Requirement::compile(repeat("!", 1000) + "true")->evaluate({}),
              codesign_status::kReqInvalid);
}

TEST(RequirementCompile, BoundsTheText) {
    const std::string head = "identifier ";
    const std::string longest = head + "\"" + repeat("x", 65536 - head.size() - 2) + "\"";
    EXPECT_EQ(canonical(longest), longest);
    EXPECT_EQ(errorOf(longest + " ").reason, "the text is longer than 65536 bytes");
    // What could not be compiled again must not be compiled either.
    EXPECT_EQ(errorOf(repeat("info[a]or ", 6000) + "info[a]").reason,
              "written in full the text is longer than 65536 bytes");
}

TEST(RequirementCompile, AsksTheCallerForCertificateFiles) {
    std::vector<std::string> asked;
    const CertificateHashLoader loader = [&](const std::string& path) {
        asked.push_back(path);
        std::array<std::uint8_t, 20> hash{};
        std::iota(hash.begin(), hash.end(), std::uint8_t{0});
        return path == "/none/here" ? std::nullopt : std::optional(hash);
    };
    const auto compiled = Requirement::compile(
        "anchor = /etc/root or cert leaf \"/a b.pem\" or cert 1 == leaf.pem", loader);
    ASSERT_TRUE(compiled) << compiled.error().description();
    EXPECT_EQ(asked, (std::vector<std::string>{"/etc/root", "/a b.pem", "leaf.pem"}));
    EXPECT_EQ(compiled->text(), std::string("certificate root = ") + kHash +
                                    " or certificate leaf = " + kHash +
                                    " or certificate 1 = " + kHash);
    const auto missing = Requirement::compile("anchor = /none/here", loader);
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().description(),
              "line 1, column 10: this file gives no certificate: \"/none/here\"");
}

TEST(CodeSigningStatus, HasASentenceForEveryNumberThatCanBeReported) {
    EXPECT_EQ(codesign_status::meaning(codesign_status::kReqFailed),
              "The code does not satisfy the requirement.");
    EXPECT_EQ(codesign_status::meaning(100003), "No such process");
    EXPECT_EQ(codesign_status::meaning(codesign_status::kErrnoBase), "");
    EXPECT_EQ(codesign_status::meaning(100256), "");
    EXPECT_EQ(codesign_status::meaning(-1), "");
}

} // namespace
} // namespace qv::test
