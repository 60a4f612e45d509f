// Holds docs/protocol.md to what the code does, byte for byte.

#include "platform/foundation/archive/KeyedArchiver.h"
#include "platform/xpc/wire/Frame.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include "RawClient.h"
#include "RunProgram.h"
#include <sstream>

namespace qv::xpc {
namespace {

using test::frameBytes;

// The bytes of a block "```hex NAME"; what follows a semicolon is a remark.
std::string documented(const std::string& name) {
    std::istringstream document(qv::test::contentOf(QV_PROTOCOL_DOCUMENT));
    std::string line;
    std::string bytes;
    while (std::getline(document, line) && line != "```hex " + name) {
    }
    while (std::getline(document, line) && line != "```") {
        std::istringstream digits(line.substr(0, line.find(';')));
        unsigned value = 0;
        while (digits >> std::hex >> value) {
            bytes += static_cast<char>(value);
        }
    }
    return bytes;
}

std::string hex(std::string_view bytes) {
    std::ostringstream text;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        text << (i % 16 == 0 ? "\n" : " ") << std::hex << (bytes[i] >> 4 & 15) << (bytes[i] & 15);
    }
    return text.str();
}

Value nonce() {
    std::string bytes;
    for (char value = 0; value < 32; ++value) {
        bytes += value;
    }
    return Value::data(bytes);
}

std::string frame(FrameKind kind, const Value& dictionary, std::uint64_t sequence, bool reply) {
    return frameBytes(kind, bodyOfDictionary(dictionary).value(), sequence, reply);
}

Value documentedResult() {
    return Value::dictionary(
        {{"success", Value::boolean(false)},
         {"errorScriptStepIndex", Value::integer(2)},
         {"error", Value::error(Error::withDescription("QVCatalogScriptErrorDomain", 0, "text"))}});
}

TEST(ProtocolDocument, ShowsTheBytesThatTheCodeSends) {
    EXPECT_EQ(hex(documented("greeting")),
              hex(frame(FrameKind::greeting, Value::dictionary({{"nonce", nonce()}}), 0, false)));
    EXPECT_EQ(hex(documented("request")),
              hex(frame(FrameKind::request,
                        Value::dictionary({{"type", Value::string("executeQVCatalogScript")},
                                           {"data", Value::data("({operation=2;})")},
                                           {"nonce", nonce()}}),
                        1, true)));
    EXPECT_EQ(hex(documented("farewell")), hex(frameBytes(FrameKind::farewell, "", 0, false)));
    const auto archive = KeyedArchiver::archivedDataWithRootObject(documentedResult());
    ASSERT_TRUE(archive);
    EXPECT_EQ(hex(documented("archive")), hex(*archive));
    const Value reply = Value::dictionary({{"replyData", Value::data(*archive)}});
    EXPECT_EQ(hex(documented("reply") + documented("archive") + documented("reply-end")),
              hex(frame(FrameKind::reply, reply, 1, false)));
}

// A reader that shares no code with us gets the same result out of the documented reply.
TEST(ProtocolDocument, IsReadByAnotherImplementation) {
    const qv::test::TemporaryDirectory directory;
    const auto file = directory.write("reply", documented("reply") + documented("archive") +
                                                   documented("reply-end"));
    const auto run = test::runProgram({QV_PYTHON, QV_DECODE_SCRIPT, file});
    EXPECT_EQ(run.status, 0) << run.output;
    EXPECT_EQ(run.output, "kind 3 sequence 1\n"
                          "{'success': False, 'errorScriptStepIndex': 2, 'error': "
                          "{'NSDomain': 'QVCatalogScriptErrorDomain', 'NSCode': 0, 'NSUserInfo': "
                          "{'NSLocalizedDescription': 'text'}}}\n");
}

} // namespace
} // namespace qv::xpc
