// Holds docs/protocol.md to what the code does, byte for byte.

#include "platform/foundation/archive/KeyedArchiver.h"
#include "platform/xpc/wire/Frame.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include "RawClient.h"
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

TEST(ProtocolDocument, ShowsTheBytesThatTheCodeSends) {
    EXPECT_EQ(documented("greeting"),
              frame(FrameKind::greeting, Value::dictionary({{"nonce", nonce()}}), 0, false));
    EXPECT_EQ(documented("request"),
              frame(FrameKind::request,
                    Value::dictionary({{"type", Value::string("executeQVCatalogScript")},
                                       {"data", Value::data("({operation=2;})")},
                                       {"nonce", nonce()}}),
                    1, true));
    EXPECT_EQ(documented("farewell"), frameBytes(FrameKind::farewell, "", 0, false));
    const auto archive = KeyedArchiver::archivedDataWithRootObject(Value::dictionary(
        {{"success", Value::boolean(false)},
         {"errorScriptStepIndex", Value::integer(2)},
         {"error",
          Value::error(Error::withDescription("QVCatalogScriptErrorDomain", 0, "text"))}}));
    ASSERT_TRUE(archive);
    EXPECT_EQ(documented("archive"), *archive);
    const Value reply = Value::dictionary({{"replyData", Value::data(*archive)}});
    EXPECT_EQ(documented("reply") + documented("archive") + documented("reply-end"),
              frame(FrameKind::reply, reply, 1, false));
}

} // namespace
} // namespace qv::xpc
