// Arbitrary text as a script: it compiles, and its usual form compiles to what prints the same; or
// it is refused with a number, a text and a range inside of it.

#include "platform/applescript/language/Compiler.h"

#include <cstdlib>

namespace {

void require(bool fact) {
    if (!fact) {
        std::abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    using qv::applescript::compile;
    using qv::applescript::print;
    const std::string source(data, data + size);
    std::string usual;
    try {
        usual = print(*compile(source));
    } catch (const qv::applescript::ScriptError& error) {
        require(error.number < 0 && !error.brief.empty() && error.range &&
                error.range->location + error.range->length <= size);
        return 0;
    }
    try {
        require(print(*compile(usual)) == usual);
    } catch (const qv::applescript::ScriptError&) {
        std::abort();
    }
    return 0;
}
