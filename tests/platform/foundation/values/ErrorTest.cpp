#include "platform/foundation/values/Error.h"

#include "platform/foundation/plist/PropertyList.h"
#include "platform/foundation/values/Exception.h"
#include "platform/foundation/values/URL.h"
#include "support/CaseFile.h"

#include <vector>

namespace qv {
namespace {

Value info(std::initializer_list<std::pair<std::string_view, std::string_view>> pairs) {
    std::vector<std::pair<Value, Value>> list;
    for (const auto& [key, text] : pairs) {
        list.emplace_back(Value::string(key), Value::string(text));
    }
    return Value::dictionary(list);
}

Error fileError(std::int64_t code, std::string_view operation, const Error& underlying = {}) {
    return {"NSCocoaErrorDomain", code,
            Value::dictionary(
                {{"NSUserStringVariant", Value::array({Value::string(operation)})},
                 {"NSFilePath", Value::string("/opt/Demo.app/")},
                 {"NSDestinationFilePath", Value::string("/srv/apps/Demo.app")},
                 {"NSUnderlyingError", underlying ? Value::error(underlying) : Value()}})};
}

TEST(Error, IsDescribedAndToldInSentences) {
    for (const auto& [place, fields] : test::casesOf(QV_VALUE_CASES "/errors.txt", 5)) {
        const auto userInfo = PropertyList::propertyListWithData(fields[3]);
        ASSERT_TRUE(userInfo) << place;
        const Error error(fields[1], std::stoll(fields[2]), userInfo->root);
        EXPECT_EQ(fields[0] == "sentence" ? error.localizedDescription() : error.description(),
                  fields[4])
            << place;
    }
}

// Values of the user information begin at the margin, wherever the error stands itself; strings
// among them are not quoted. No address betrays the memory of a root service.
TEST(Error, DescribesArraysAndUnderlyingErrors) {
    const Error error(
        "NSCocoaErrorDomain", 512,
        Value::dictionary({{"NSUserStringVariant", Value::array({Value::string("Remove")})},
                           {"NSFilePath", Value::string("/a b")},
                           {"NSUnderlyingError", Value::error(Error::posix(20))}}));
    const std::string expected =
        "Error Domain=NSCocoaErrorDomain Code=512 \"“a b” couldn’t be removed: Not a directory.\" "
        "UserInfo={NSUserStringVariant=(\n"
        "    Remove\n"
        "), NSFilePath=/a b, NSUnderlyingError={Error Domain=NSPOSIXErrorDomain Code=20 "
        "\"Not a directory\"}}";
    EXPECT_EQ(error.description(), expected);
    const Error outer("D", 1, Value::dictionary({{"list", Value::array({Value::error(error)})}}));
    EXPECT_EQ(outer.description(),
              "Error Domain=D Code=1 \"(null)\" UserInfo={list=(\n    " + expected + "\n)}");
}

void expectSentence(const Error& error, std::string_view sentence) {
    EXPECT_EQ(error.localizedDescription(), sentence);
    EXPECT_NE(error.description().find("\"" + std::string(sentence) + "\""), std::string::npos);
    EXPECT_EQ(error.userInfo().find("NSLocalizedDescription"), nullptr);
}

TEST(Error, NamesTheItemAndItsDestination) {
    for (const auto& [place, fields] : test::casesOf(QV_VALUE_CASES "/file-errors.txt", 4)) {
        SCOPED_TRACE(place);
        const Error cause = fields[2] == "-" ? Error() : Error::posix(std::stoi(fields[2]));
        expectSentence(fileError(std::stoi(fields[0]), fields[1], cause), fields[3]);
    }
    expectSentence(fileError(642, "Move", fileError(642, "Copy", Error::posix(30))),
                   "“Demo.app” couldn’t be moved to “apps”: “Demo.app” couldn’t be copied to "
                   "“apps”: Read-only file system.");
    expectSentence(fileError(512, "", Error::withDescription("D", 1, "Own words.")),
                   "“Demo.app” couldn’t be saved: Own words.");
    expectSentence(
        Error("NSCocoaErrorDomain", 258,
              Value::dictionary({{"NSURL", Value::url(*URL::URLWithString("file:///a%00"))},
                                 {"NSDebugDescription", Value::string("it holds a NUL")}})),
        "“file:///a%00” couldn’t be opened: it holds a NUL.");
    expectSentence(
        Error("NSCocoaErrorDomain", 260,
              Value::dictionary({{"NSURL", Value::url(URL::fileURLWithPath("/a/{0}"))}})),
        "The file “{0}” couldn’t be opened because there is no such file.");
    expectSentence(Error("NSCocoaErrorDomain", 262),
                   "The file couldn’t be opened because the specified URL type isn’t supported.");
}

TEST(Error, IsSuccessWhenEmpty) {
    EXPECT_FALSE(Error());
    EXPECT_TRUE(Error::posix(0));
    EXPECT_TRUE(Error::posix(1).userInfo().asDictionary().empty());
    EXPECT_EQ(Error("D", 1), Error("D", 1, Value::dictionary({})));
    EXPECT_FALSE(Error("D", 1) == Error("D", 2));
    EXPECT_FALSE(Error("D", 1) == Error("E", 1));
    EXPECT_FALSE(Error("D", 1) == Error("D", 1, info({{"a", "b"}})));
    EXPECT_FALSE(Error("D", 0) == Error());
    EXPECT_THROW(static_cast<void>(Error("D", 1, Value::array({}))), Exception);
}

} // namespace
} // namespace qv
