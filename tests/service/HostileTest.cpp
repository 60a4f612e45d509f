// An accepted client that means harm: whatever it sends, it gets its answer or is closed, and
// others are served.

#include "platform/foundation/plist/PropertyList.h"
#include "service/RawList.h"
#include "service/ServiceTest.h"

#include <gmock/gmock.h>

namespace qv::test {
namespace {

using testing::HasSubstr;

constexpr int kDepth = 100'000;
constexpr std::size_t kMebibyte = std::size_t{1} << 20U;

class Hostile : public ServiceTest {
protected:
    void SetUp() override {
        ServiceTest::SetUp();
        if (!IsSkipped()) {
            keepServing();
        }
    }
    // A client that sends these bytes, and the nonce where `bytes` wants one, must be closed.
    void expectClosedFor(const std::string& bytes) {
        const auto client = connected();
        ASSERT_NE(client, nullptr);
        static_cast<void>(client->send(bytes)); // it may be closed before all is out
        EXPECT_NE(client->order("end"), "nothing") << "kept open";
        EXPECT_TRUE(servesOthers());
    }
    // The text of the error that a script is answered with.
    std::string refusalOf(const std::string& script) {
        const auto outcome = client_->executeData(script);
        if (!outcome) {
            return "closed instead of answered";
        }
        EXPECT_FALSE(outcome->success);
        EXPECT_EQ(outcome->errorScriptStepIndex, -1);
        EXPECT_TRUE(servesOthers());
        return outcome->error ? outcome->error.description() : "";
    }
};

std::string repeated(std::string_view text, int times) {
    std::string all;
    for (int i = 0; i < times; ++i) {
        all += text;
    }
    return all;
}

TEST_F(Hostile, BytesThatAreNoRequestCloseTheConnection) {
    expectClosedFor("GET / HTTP/1.1\r\nHost: localhost\r\n\r\n");
    const xpc::FrameHeaderBytes lie =
        xpc::encodeFrameHeader({xpc::FrameKind::request, true, 1, 0xFFFFFFFF});
    expectClosedFor(std::string(lie.data(), lie.size()));
    expectClosedFor(requestFrame("no property list"));
    expectClosedFor(requestFrame("{ type = executeQVCatalogScript; data = <28>; }"));
    RawList array;
    array.add(RawList::array({}));
    expectClosedFor(requestFrame(array.bytes()));
    expectClosedFor(requestFrame(xpc::bodyOfDictionary(Value::dictionary({})).value()));
    EXPECT_TRUE(service_->waitForLog("XPC Error", 6));
}

TEST_F(Hostile, ARequestOfAnotherProcessIsNotObeyed) {
    const auto file = folder_ / "file";
    const Value script = Value::array({noteStep(file, "done")});
    const std::string request = client_->scriptRequest(binary(script));
    std::string hex;
    for (const char byte : request) {
        hex += fmt::format("{:02x}", static_cast<unsigned char>(byte));
    }
    EXPECT_EQ(client_->order("childsend " + hex), "sent");
    EXPECT_NE(client_->order("end"), "nothing");
    EXPECT_TRUE(servesOthers());
    EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(Hostile, AFrameThatNeverEndsKeepsNobodyWaiting) {
    const std::string request = client_->scriptRequest(std::string(4 * kMebibyte, ' '));
    ASSERT_TRUE(client_->send(request.substr(0, request.size() - 1)));
    EXPECT_TRUE(servesOthers());
    EXPECT_EQ(client_->order("shutdown"), "done");
    EXPECT_NE(client_->order("end"), "nothing") << "kept, although the rest will never come";
    EXPECT_TRUE(servesOthers());
}

TEST_F(Hostile, ListsOfEndlessDepthAreRefusedInEachEncoding) {
    RawList deep;
    for (std::uint32_t i = 0; i < kDepth; ++i) {
        deep.add(RawList::array({i + 1}));
    }
    deep.add(RawList::array({}));
    EXPECT_THAT(refusalOf(deep.bytes()), HasSubstr("offset"));
    const std::string xml =
        "<plist>" + repeated("<array>", kDepth) + repeated("</array>", kDepth) + "</plist>";
    EXPECT_THAT(refusalOf(xml), HasSubstr("line 1"));
    EXPECT_THAT(refusalOf(repeated("(", kDepth) + repeated(")", kDepth)), HasSubstr("line 1"));
    EXPECT_THAT(refusalOf(repeated("{a=", kDepth)), HasSubstr("line 1"));
}

TEST_F(Hostile, ListsThatContainThemselvesAreRefused) {
    RawList cycle;
    cycle.add(RawList::array({1}));
    cycle.add(RawList::dictionary({2}, {0}));
    cycle.add(RawList::text("operation"));
    EXPECT_THAT(refusalOf(cycle.bytes()), HasSubstr("offset"));
    EXPECT_THAT(refusalOf(R"(<!DOCTYPE plist [ <!ENTITY a "aaaaaaaaaa"> <!ENTITY b "&a;&a;&a;"> ]>
<plist><string>&b;</string></plist>)"),
                HasSubstr("line 1"));
}

// A hundred bytes that would be 10^30 steps if what is shared were copied; one step, walked so
// often, would take for ever too.
TEST_F(Hostile, WhatIsSharedIsNotMultiplied) {
    RawList bomb;
    constexpr std::uint32_t kLevels = 30;
    for (std::uint32_t i = 0; i < kLevels; ++i) {
        bomb.add(RawList::array(RawList::References(10, i + 1)));
    }
    bomb.add(RawList::array({}));
    const std::size_t before = service_->residentKilobytes();
    const auto outcome = client_->executeData(bomb.bytes());
    ASSERT_TRUE(outcome && !outcome->success);
    EXPECT_EQ(outcome->errorScriptStepIndex, 0) << "its first step is an array";

    RawList argument; // 100 GB for the tool
    argument.add(RawList::array({1}));
    argument.add(RawList::dictionary({2, 3, 4}, {5, 6, 7}));
    for (const char* key : {"operation", "arg1", "arg2"}) {
        argument.add(RawList::text(key));
    }
    argument.add(RawList::number(8));
    argument.add(RawList::text("/bin/false"));
    argument.add(RawList::array(RawList::References(100'000, 8)));
    argument.add(RawList::text(std::string(1 << 20, 'x')));
    const auto refused = client_->executeData(argument.bytes());
    ASSERT_TRUE(refused && refused->error);
    EXPECT_THAT(refused->error.localizedDescription(), HasSubstr("Argument list too long"));
    EXPECT_LT(service_->residentKilobytes(), before + 20'000);
    EXPECT_TRUE(servesOthers());
}

TEST_F(Hostile, TruncatedListsAreRefusedWithTheirPlace) {
    const Value script = Value::array({toolStep("/bin/true", {"argument"})});
    const std::string list = binary(script);
    EXPECT_THAT(refusalOf(list.substr(0, list.size() / 2)), HasSubstr("offset"));
    const std::string xml =
        PropertyList::dataWithPropertyList(script, PropertyListFormat::xml).value();
    EXPECT_THAT(refusalOf(xml.substr(0, xml.size() / 2)), HasSubstr("line"));
    EXPECT_THAT(refusalOf("( { operation = 8; arg1 ="), HasSubstr("line 1"));
}

TEST_F(Hostile, TheLongestRequestIsAnsweredAndALongerOneIsNotRead) {
    constexpr std::size_t kOverhead = 1024;
    EXPECT_NE(refusalOf(std::string(64 * kMebibyte - kOverhead, '\0')), "");
    expectClosedFor(client_->scriptRequest(std::string(64 * kMebibyte, '\0')));
}

// Nothing of it may pile up in the service, whose outputs the tool has inherited.
TEST_F(Hostile, AToolMayPrintWithoutEnd) {
    constexpr std::uint64_t kBytes = 100'000'000;
    const std::size_t before = service_->residentKilobytes();
    const auto outcome = client_->execute(
        Value::array({toolStep("/usr/bin/head", {"-c", "100000000", "/dev/zero"})}));
    EXPECT_TRUE(outcome && outcome->success);
    EXPECT_TRUE(service_->waitForPrinted(kBytes));
    EXPECT_LT(service_->residentKilobytes(), before + 4000);
    EXPECT_TRUE(servesOthers());
}

} // namespace
} // namespace qv::test
