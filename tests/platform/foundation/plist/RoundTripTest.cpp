#include <gmock/gmock.h>

#include "PlistTestSupport.h"
#include <algorithm>
#include <array>
#include <functional>
#include <random>

namespace qv::test {
namespace {

constexpr std::array kFormats{PropertyListFormat::xml, PropertyListFormat::binary};

// Values of every kind that both encodings hold, the same ones in each run.
class Generator {
public:
    explicit Generator(unsigned seed) : random_(seed) {}

    Value value(int depth) {
        switch (below(depth > 0 ? 10 : 8)) {
        case 0:
            return Value::string(text());
        case 1:
            return Value::integer(static_cast<std::int64_t>(bits()));
        case 2:
            return Value::unsignedInteger(bits() | (std::uint64_t{1} << 63U));
        case 3:
            return Value::integer(static_cast<std::int64_t>(below(300)));
        case 4:
            return Value::real(static_cast<double>(bits()) / 3 - 1e18);
        case 5:
            return Value::date({static_cast<double>(bits() % 4'000'000'000U)});
        case 6:
            return Value::data(text());
        case 7:
            return below(2) == 0 ? Value::boolean(below(2) == 0)
                                 : Value::uid({static_cast<std::uint32_t>(bits())});
        case 8:
            return array(depth);
        default:
            return dictionary(depth);
        }
    }

private:
    std::size_t below(std::size_t bound) { return random_() % bound; }
    std::uint64_t bits() {
        return (std::uint64_t{random_()} << 32U | random_()) >> below(64); // of every length
    }

    std::string text() {
        static constexpr std::array<std::string_view, 12> kPieces{
            "a", "URL", " ", "<", "&amp;", "]]>", "é", "€", "😀", "\n", "file:///opt/x", "\r"};
        std::string result;
        for (std::size_t i = below(8); i > 0; --i) {
            result += kPieces.at(below(kPieces.size()));
        }
        return result;
    }

    Value array(int depth) {
        std::vector<Value> elements(below(20));
        for (Value& element : elements) {
            const bool again = !made_.empty() && below(4) == 0;
            element = again ? made_[below(made_.size())] : value(depth - 1);
        }
        return keep(Value::array(std::move(elements)));
    }

    Value dictionary(int depth) {
        std::vector<std::pair<Value, Value>> pairs;
        for (std::size_t i = below(20); i > 0; --i) {
            pairs.emplace_back(Value::string("k" + std::to_string(below(30)) + text()),
                               value(depth - 1));
        }
        return keep(Value::dictionary(std::move(pairs)));
    }

    Value keep(Value container) {
        if (made_.size() < 5) { // these are met again, of lesser depth than any limit
            made_.push_back(container);
        }
        return container;
    }

    std::mt19937 random_;
    std::vector<Value> made_;
};

std::string written(const Value& root, PropertyListFormat format) {
    auto data = PropertyList::dataWithPropertyList(root, format);
    EXPECT_TRUE(data) << (data ? "" : reasonOf(data.error()));
    return data ? *data : "";
}

TEST(RoundTrip, ReadsBackWhatIsWritten) {
    for (unsigned seed = 0; seed < 400; ++seed) {
        const Value root = Generator(seed).value(4);
        for (const PropertyListFormat format : kFormats) {
            const std::string data = written(root, format);
            const auto read = PropertyList::propertyListWithData(data);
            ASSERT_TRUE(read) << reasonOf(read.error());
            EXPECT_EQ(read->format, format);
            EXPECT_EQ(dump(read->root), dump(root)) << seed;
            EXPECT_EQ(written(read->root, format), data) << seed;
        }
    }
}

TEST(RoundTrip, RefusesTruncatedLists) {
    for (unsigned seed = 0; seed < 8; ++seed) {
        const Value root = Value::array({Generator(seed).value(3), Value::boolean(true)});
        const std::string binary = written(root, PropertyListFormat::binary);
        for (std::size_t size = 7; size < binary.size(); ++size) {
            EXPECT_THAT(readDump(binary.substr(0, size)), testing::HasSubstr("at byte offset"));
        }
        std::string xml = written(root, PropertyListFormat::xml);
        xml.resize(xml.rfind('>')); // the text behind the root does not count
        for (std::size_t size = 1; size <= xml.size(); ++size) {
            EXPECT_THAT(readDump(xml.substr(0, size)), testing::HasSubstr("column")) << size;
        }
    }
}

TEST(RoundTrip, BoundsTheDepthInEveryEncoding) {
    const auto nested = [](std::string_view open, std::string_view close) {
        return [=](std::size_t depth) { return repeated(open, depth) + repeated(close, depth); };
    };
    const std::string_view pairs = "<dict><key>a</key>";
    const std::vector<std::function<std::string(std::size_t)>> encodings{
        nested("<array>", "</array>"),
        [&](std::size_t depth) { // not for the scanner of plain markup
            return "<plist a=''>" + repeated(pairs, depth - 1) + "<dict/>" +
                   repeated("</dict>", depth - 1) + "</plist>";
        },
        [](std::size_t depth) { return binaryChain(depth).list(); },
        nested("(", ")"),
        [](std::size_t depth) {
            return repeated("{a=", depth - 1) + "{}" + repeated(";}", depth - 1);
        },
    };
    for (const auto& encoded : encodings) {
        EXPECT_TRUE(PropertyList::propertyListWithData(encoded(512)));
        for (const std::size_t depth : {513U, 100'000U}) {
            const auto list = PropertyList::propertyListWithData(encoded(depth));
            ASSERT_FALSE(list) << depth;
            EXPECT_THAT(list.error().description(), testing::HasSubstr("Too many nested arrays"));
        }
    }
}

TEST(RoundTrip, RefusesRepeatedKeysOnRequest) {
    const BinaryParts binary{{bytes({0xD3, 1, 2, 3, 4, 5, 6}), bytes({0x51, 'a'}),
                              bytes({0x51, 'b'}), bytes({0x51, 'a'}), bytes({0x10, 1}),
                              bytes({0xA1, 4}), bytes({0x10, 3})}};
    EXPECT_EQ(readDump(binary.list()), "{a: 1, b: [1]}") << "the first of equal keys counts";
    for (const auto& [data, reason] : std::initializer_list<std::pair<std::string, const char*>>{
             {binary.list(), "Duplicate key in dictionary at byte offset 8"},
             {"<dict><key>a</key><true/>\n<key>a</key><true/></dict>",
              "Duplicate key \"a\" in <dict> on line 1, column 1"},
             {"{a=1;\na=2;}", "Duplicate key \"a\" in dictionary on line 1, column 1"}}) {
        const auto list = PropertyList::propertyListWithData(data, {.refuseDuplicateKeys = true});
        ASSERT_FALSE(list) << data;
        EXPECT_THAT(list.error().description(), testing::HasSubstr(reason));
    }
}

} // namespace
} // namespace qv::test
