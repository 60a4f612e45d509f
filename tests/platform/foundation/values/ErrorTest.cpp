#include "platform/foundation/values/Error.h"

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

TEST(Error, IsDescribedLetterForLetter) {
    const std::vector<std::pair<Error, std::string_view>> rows = {
        {Error::posix(2), R"(Error Domain=NSPOSIXErrorDomain Code=2 "No such file or directory")"},
        {Error("NSPOSIXErrorDomain", 4294967298),
         R"(Error Domain=NSPOSIXErrorDomain Code=4294967298 "Unknown error: 4294967298")"},
        {Error("MyDomain", -5), R"x(Error Domain=MyDomain Code=-5 "(null)")x"},
        {Error::withDescription("QVCatalogScriptErrorDomain", 0, "TEXT"),
         R"(Error Domain=QVCatalogScriptErrorDomain Code=0 "TEXT" )"
         "UserInfo={NSLocalizedDescription=TEXT}"},
        {Error("D", 1, info({{"NSLocalizedFailureReason", "why"}, {"NSDebugDescription", "dbg"}})),
         R"(Error Domain=D Code=1 "why" )"
         "UserInfo={NSLocalizedFailureReason=why, NSDebugDescription=dbg}"},
        {Error("D", 1,
               info({{"NSLocalizedFailureReason", "why"}, {"NSLocalizedDescription", "x"}})),
         R"(Error Domain=D Code=1 "x" UserInfo={NSLocalizedFailureReason=why, )"
         "NSLocalizedDescription=x}"},
        {Error("NSPOSIXErrorDomain", 13, info({{"NSDebugDescription", "dbg"}})),
         R"(Error Domain=NSPOSIXErrorDomain Code=13 "Permission denied" )"
         "UserInfo={NSDebugDescription=dbg}"},
        {Error(
             "NSCocoaErrorDomain", 3840,
             Value::dictionary(
                 {{"NSDebugDescription", Value::string("Unexpected character { at line 1")},
                  {"kCFPropertyListOldStyleParsingError",
                   Value::error(Error("NSCocoaErrorDomain", 3840,
                                      info({{"NSDebugDescription", "Missing ';' on line 1"}})))}})),
         R"(Error Domain=NSCocoaErrorDomain Code=3840 "Unexpected character { at line 1" )"
         "UserInfo={NSDebugDescription=Unexpected character { at line 1, "
         R"(kCFPropertyListOldStyleParsingError=Error Domain=NSCocoaErrorDomain Code=3840 )"
         R"("Missing ';' on line 1" UserInfo={NSDebugDescription=Missing ';' on line 1}})"},
    };
    for (const auto& [error, expected] : rows) {
        EXPECT_EQ(error.description(), expected);
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

TEST(Error, IsToldInSentences) {
    const std::vector<std::pair<Error, std::string_view>> rows = {
        {Error::withDescription("D", 1, "Own words"), "Own words"},
        {Error("D", 1, info({{"NSLocalizedFailureReason", "No room."}})),
         "The operation couldn’t be completed. No room."},
        {Error::posix(2), "The operation couldn’t be completed. No such file or directory"},
        {Error("MyDomain", -5), "The operation couldn’t be completed. (MyDomain error -5.)"},
        {Error("D", 1, info({{"NSDebugDescription", "at byte 9"}})),
         "The operation couldn’t be completed. at byte 9"},
        {Error("NSCocoaErrorDomain", 3840, info({{"NSDebugDescription", "Junk at line 1"}})),
         "The data couldn’t be read because it isn’t in the correct format. Junk at line 1"},
    };
    for (const auto& [error, expected] : rows) {
        EXPECT_EQ(error.localizedDescription(), expected);
    }
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
    EXPECT_EQ(Error("NSCocoaErrorDomain", 4).localizedDescription(),
              "The operation couldn’t be completed. (NSCocoaErrorDomain error 4.)");
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
