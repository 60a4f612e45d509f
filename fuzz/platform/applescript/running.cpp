// Arbitrary text as a script, run within small bounds in a world where nothing happens: it ends
// with a value or an error that says where it is in the text, and leaves no value behind.

#include "platform/applescript/language/Compiler.h"
#include "platform/applescript/running/Interpreter.h"

#include <cstdlib>

namespace {

using namespace qv::applescript;

void require(bool fact) {
    if (!fact) {
        std::abort();
    }
}

/// Answers a command with what it was asked about.
class IdleWorld final : public OutsideWorld {
public:
    ScriptValue perform(const Command& command) override { return command.direct; }
    ScriptValue send(const Specifier& target, const Command& command) override {
        return command.hasDirect ? command.direct : ScriptValue::specifier(target);
    }
    void set(const Specifier& /*object*/, const ScriptValue& /*value*/) override {}
    [[noreturn]] void refuse(const Specifier& target, std::string_view words) override {
        ScriptError error;
        error.number = error_number::kNotUnderstood;
        error.brief = words;
        error.application = target.application;
        throw error;
    }
    std::string colonPath(std::string_view path) override { return "Disk:" + std::string(path); }
    std::string posixPath(std::string_view path) override { return "/" + std::string(path); }
    bool fileExists(const std::string& path) override { return path.size() % 2 == 0; }
    double now() override { return 1.8e9; }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    constexpr Limits kSmall{
        .steps = 20'000, .time = std::chrono::seconds(5), .memory = 4U << 20U, .depth = 60};
    const std::string source(data, data + size);
    IdleWorld world;
    const std::size_t held = ScriptValue::bytesHeld();
    try {
        const std::unique_ptr<Tree> tree = compile(source);
        (void)sourceText(execute(*tree, world, kSmall), world);
    } catch (const ScriptError& error) {
        require(error.number != 0 && error.range);
        require(error.range->location + error.range->length <= size);
    }
    ScriptValue::freeCycles();
    require(ScriptValue::bytesHeld() == held);
    return 0;
}
