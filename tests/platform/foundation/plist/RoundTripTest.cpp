#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>

#include "PlistTestSupport.h"
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>

namespace qv::test {
namespace {

constexpr std::array kFormats{PropertyListFormat::xml, PropertyListFormat::binary};

// Values of every kind that both encodings hold, the same ones in each run.
class Generator {
public:
    enum class Values : std::uint8_t { all, portable }; // to other programs, in XML too
    explicit Generator(unsigned seed, Values values = Values::all)
        : random_(seed), portable_(values == Values::portable) {}

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
            return portable_ || below(2) == 0 ? Value::boolean(below(2) == 0)
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
            result += kPieces.at(below(kPieces.size() - (portable_ ? 1 : 0)));
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
    bool portable_;
    std::vector<Value> made_;
};

std::string written(const Value& root, PropertyListFormat format) {
    auto data = PropertyList::dataWithPropertyList(root, format);
    EXPECT_TRUE(data) << (data ? "" : reasonOf(data.error()));
    return data ? *data : "";
}

TEST(RoundTrip, WhatIsWrittenReadsBack) {
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

TEST(RoundTrip, SharesAsMuchAfterReadingAsBefore) {
    const Value shared = Value::dictionary({{"a", Value::array({})}});
    const Value root =
        Value::array({shared, Value::array({shared}), shared.asDictionary().value(0)});
    const auto read = PropertyList::propertyListWithData(written(root, PropertyListFormat::binary));
    ASSERT_TRUE(read);
    const std::span<const Value> elements = read->root.asArray();
    EXPECT_TRUE(elements[0].sameAs(elements[1].asArray()[0]));
    EXPECT_TRUE(elements[0].asDictionary().value(0).sameAs(elements[2]));
}

TEST(RoundTrip, TruncatedListsAreRefused) {
    for (unsigned seed = 0; seed < 20; ++seed) {
        const Value root = Value::array({Generator(seed).value(3), Value::boolean(true)});
        const std::string binary = written(root, PropertyListFormat::binary);
        for (std::size_t size = 7; size < binary.size(); ++size) {
            EXPECT_THAT(readDump(binary.substr(0, size)), testing::HasSubstr("at byte offset"));
        }
        std::string xml = written(root, PropertyListFormat::xml);
        xml.resize(xml.rfind('>')); // what follows the root does not count
        for (std::size_t size = 1; size <= xml.size(); ++size) {
            EXPECT_THAT(readDump(xml.substr(0, size)), testing::HasSubstr("column")) << size;
        }
    }
}

TEST(RoundTrip, DepthIsBoundedInEveryEncoding) {
    constexpr std::size_t kDeep = 100'000;
    EXPECT_THAT(readDump("<plist>" + repeated("<array>", kDeep)), testing::HasSubstr("Too many"));
    EXPECT_THAT(readDump("<plist a=''>" + repeated("<dict><key>a</key>", kDeep)),
                testing::HasSubstr("Too many"));
    BinaryParts parts{{}, 0, 4, 4, {}};
    for (std::size_t i = 1; i <= kDeep; ++i) {
        parts.objects.push_back("\xA1" + bigEndian(i, 4));
    }
    parts.objects.push_back("\xA0");
    EXPECT_THAT(readDump(parts.list()), testing::HasSubstr("Too many"));
    for (const std::string& text : {repeated("(", kDeep), repeated("{a=", kDeep)}) {
        const auto list = PropertyList::propertyListWithData(text);
        ASSERT_FALSE(list);
        const Value info = list.error().userInfo();
        EXPECT_THAT(reasonOf(info.find("kCFPropertyListOldStyleParsingError")->asError()),
                    testing::HasSubstr("Too many"));
    }
}

// Another reader and writer of the format, for what both of ours might get wrong alike.
class OtherProgram : public testing::Test {
protected:
    void SetUp() override {
        if (std::system("python3 -c 'import plistlib' 2>/dev/null") !=
            0) { // NOLINT(cert-env33-c): fixed text
            GTEST_SKIP() << "python3 with plistlib is missing";
        }
    }

    // What the other program makes of a list: its own list in either encoding.
    std::string converted(const std::string& data, std::string_view format) {
        const auto input = folder_.write("in.plist", data);
        const std::string output = folder_ / "out.plist";
        const std::string command =
            "python3 -c 'import plistlib, sys\n"
            "with open(sys.argv[1], \"rb\") as f: v = plistlib.load(f)\n"
            "with open(sys.argv[2], \"wb\") as f: plistlib.dump(v, f, fmt=plistlib.FMT_" +
            std::string(format) + ", sort_keys=False)' " + input.string() + " " + output;
        EXPECT_EQ(std::system(command.c_str()), 0); // NOLINT(cert-env33-c): fixed text
        return contentOf(output);
    }

private:
    TemporaryDirectory folder_;
};

TEST_F(OtherProgram, ReadsWhatWeWriteAndWritesWhatWeRead) {
    std::vector<Value> all;
    for (unsigned seed = 0; seed < 100; ++seed) { // it has no UIDs in XML, nor keeps CR
        all.push_back(Generator(seed, Generator::Values::portable).value(3));
    }
    const Value root = Value::array(std::move(all));
    for (const PropertyListFormat format : kFormats) {
        for (const std::string_view other : {"XML", "BINARY"}) {
            const auto read =
                PropertyList::propertyListWithData(converted(written(root, format), other));
            ASSERT_TRUE(read) << reasonOf(read.error());
            EXPECT_TRUE(read->root == root) << other;
        }
    }
}

} // namespace
} // namespace qv::test
