// Arbitrary text as a code requirement: it compiles to what its canonical text compiles to, or is
// refused with a reason and a place inside of it.

#include "platform/security/requirement/Requirement.h"

#include "platform/security/requirement/CodeSigningStatus.h"

#include <cstdlib>

namespace {

void require(bool fact) {
    if (!fact) {
        std::abort();
    }
}

qv::CodeFacts someCode() {
    qv::CodeFacts facts;
    facts.identifier = "com.example";
    facts.info = qv::Value::dictionary(
        {{"K", qv::Value::array({qv::Value::string("v1.10"), qv::Value::date({0})})}});
    facts.chain.resize(3);
    facts.chain[0].subject = {{"OU", "TEAM"}};
    facts.chain[0].timestamps = {{"1.2.3", qv::Date{0}}};
    facts.chain[2].vendorRoot = true;
    return facts;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    static const qv::CodeFacts kCode = someCode();
    const std::string text(data, data + size);
    const auto compiled = qv::Requirement::compile(text);
    if (!compiled) {
        require(compiled.error().offset <= size && !compiled.error().reason.empty());
        return 0;
    }
    const auto again = qv::Requirement::compile(compiled->text());
    require(again && *again == *compiled && again->text() == compiled->text());
    const std::int32_t status = compiled->evaluate(kCode);
    require(status == qv::codesign_status::kSuccess || status == qv::codesign_status::kReqFailed ||
            status == qv::codesign_status::kReqInvalid);
    require(!compiled->explain(kCode).empty() && compiled->tree().ends_with('\n'));
    return 0;
}
