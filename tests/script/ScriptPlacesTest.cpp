// Tests the places of scripts' parts in their texts, and the findings that comments in them allow.

#include "script/review/places/Allowances.h"
#include "script/review/places/LineIndex.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

namespace qv {
namespace {

constexpr std::string_view kJson = R"(// "steps": [
{"x": {"steps": [0]}, /* { */ "steps": [ {"operation": "if", "rule": ["a\u00e9\n", "b == \"c\""]},
  7, {"mode": {"a": [1, 2]}, "arguments": ["/*", {"k": 1}, -5]}] })";
constexpr std::string_view kOldStyle = R"(x = (1); /* = */ steps = ({ operation = 17;
  arg1 = "a\351 \U00e9'b"; }, // {
  ("2"), { arg2 = (/a//b, <00 0f>, 'c;'); k; URL = file:///x; });)";
constexpr std::string_view kXML = R"(<?xml version="1.0"?><!-- <array> --><plist><array>
<dict><key>arg1</key><string>a &lt;&#xe9;b</string><key>d</key><array/><key>URL</key><true/></dict>
<integer>1</integer><dict/><dict><key>arg2</key><array><!-- - --><dict/><string>z</string></array></dict>
</array></plist>)";

struct PlaceCase {
    std::string_view text;
    TextNotation notation;
    std::optional<std::size_t> step;
    std::string_view key;
    std::optional<std::size_t> element;
    std::optional<std::size_t> offset;
    std::string_view expected; ///< the beginning of the text there
};

TEST(ScriptPlaces, FindsPartsOfSteps) {
    using enum TextNotation;
    const PlaceCase cases[] = {
        {kJson, json, {}, "steps", {}, {}, "[ {\"operation"},
        {kJson, json, 0, "", {}, {}, "{\"operation\": \"if\""},
        {kJson, json, 0, "rule", {}, {}, "[\"a"},
        {kJson, json, 0, "rule", {}, 1, "\\u00e9"},
        {kJson, json, 0, "rule", {}, 3, "\\n\","},
        {kJson, json, 0, "rule", {}, 11, "c\\\""},
        {kJson, json, 0, "missing", {}, {}, "{\"operation\": \"if\""},
        {kJson, json, 1, "rule", {}, {}, "7,"},
        {kJson, json, 2, "arguments", 1, {}, "{\"k\""},
        {kJson, json, 2, "arguments", 2, {}, "-5"},
        {kJson, json, 2, "arguments", 9, {}, "[\"/*"},
        {kJson, json, 3, "", {}, {}, ""},
        {kOldStyle, oldStyle, 0, "arg1", {}, 3, " \\U00"},
        {kOldStyle, oldStyle, 0, "arg1", {}, 6, "'b"},
        {kOldStyle, oldStyle, 1, "", {}, {}, "(\"2"},
        {kOldStyle, oldStyle, 2, "arg2", 0, {}, "/a//b"},
        {kOldStyle, oldStyle, 2, "arg2", 2, 1, ";')"},
        {kOldStyle, oldStyle, 2, "URL", {}, {}, "file"},
        {kXML, xml, 0, "arg1", {}, 2, "&lt;"},
        {kXML, xml, 0, "arg1", {}, 5, "b</"},
        {kXML, xml, 0, "URL", {}, {}, "<true"},
        {kXML, xml, 1, "", {}, {}, "<integer"},
        {kXML, xml, 2, "", {}, {}, "<dict/><dict><key>arg2"},
        {kXML, xml, 3, "arg2", 1, 0, "z<"},
    };
    for (const PlaceCase& each : cases) {
        const ScriptPlaces places(each.text, each.notation);
        const std::string_view keys[] = {"nothing", each.key};
        const std::size_t offset =
            places.find({.step = each.step,
                         .keys = each.key.empty() ? std::span<const std::string_view>() : keys,
                         .element = each.element,
                         .offset = each.offset});
        EXPECT_EQ(each.text.substr(offset, each.expected.size()), each.expected)
            << each.text.substr(offset) << " for " << each.key;
        EXPECT_TRUE(!each.expected.empty() || offset == each.text.size());
    }
}

TEST(LineIndex, CountsCharactersOfEveryLineEnd) {
    const std::string text = "a\r\nbé\rc\n" + std::string(5000, 'x') + "é!";
    const LineIndex lines(text);
    for (const auto& [offset, expected] :
         std::initializer_list<std::pair<std::size_t, std::string>>{{0, "1:1"},
                                                                    {3, "2:1"},
                                                                    {6, "2:3"},
                                                                    {7, "3:1"},
                                                                    {9, "4:1"},
                                                                    {5011, "4:5002"},
                                                                    {text.size() + 9, "4:5003"}}) {
        const LineIndex::Place place = lines.of(offset);
        EXPECT_EQ(fmt::format("{}:{}", place.line, place.column), expected);
    }
}

TEST(Allowances, AreForTheStepNearby) {
    constexpr std::string_view kText = R"(// lint: allow all: everywhere
[ /* lint: allow early: still the script */
  { // lint: allow inside: first
  }, // lint: allow behind : first, too
  // lint: allow next: second
  // lint:allow bare
  {}, { /*lint: allow x:*/ }, {}
  // lint: allow last: at the end
])";
    std::string found;
    for (const Allowance& each : allowancesIn(kText, ScriptPlaces(kText, TextNotation::json))) {
        found += fmt::format("{} {}={}\n", each.step ? std::to_string(*each.step) : "-", each.rule,
                             each.reason);
    }
    EXPECT_EQ(found, "- all=everywhere\n- early=still the script\n0 inside=first\n"
                     "0 behind=first, too\n1 next=second\n1 bare=\n2 x=\n3 last=at the end\n");
}

} // namespace
} // namespace qv
