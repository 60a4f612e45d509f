#include "platform/applescript/running/Interpreter.h"

#include "platform/applescript/running/Failure.h"
#include "platform/applescript/running/ScriptRun.h"

#include <algorithm>
#include <new>
#include <stdexcept>

namespace qv::applescript {

namespace {

constexpr std::uint32_t kStepsBetweenChecks = 4096;
/// The share of the stack for the calls of a script. The stack that one handler nests comes on top
/// of it.
constexpr std::uintptr_t kMostStack = std::uintptr_t{3} << 20U;

std::uintptr_t stackPlace() noexcept {
    return reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0)); // NOLINT
}

[[noreturn]] void failAtBound(std::int64_t number, const char* text) {
    ScriptError error;
    error.number = number;
    error.brief = text;
    error.endsScript = true;
    throwError(std::move(error));
}

/// Sets the bound of the values' bytes for a run, on top of those that are there.
class BoundedMemory {
public:
    explicit BoundedMemory(std::size_t most) { ScriptValue::limitBytes(boundOf(most)); }
    BoundedMemory(const BoundedMemory&) = delete;
    BoundedMemory(BoundedMemory&&) = delete;
    BoundedMemory& operator=(const BoundedMemory&) = delete;
    BoundedMemory& operator=(BoundedMemory&&) = delete;
    ~BoundedMemory() {
        ScriptValue::limitBytes(SIZE_MAX);
        ScriptValue::freeCycles();
    }

private:
    static std::size_t boundOf(std::size_t most) noexcept {
        const std::size_t held = ScriptValue::bytesHeld();
        return most > SIZE_MAX - held ? SIZE_MAX : held + most;
    }
};

ScriptValue runBounded(const Tree& tree, OutsideWorld& world, const Limits& limits) {
    try {
        return ScriptRun(tree, world, limits).run();
    } catch (const std::bad_alloc&) {
        failAtBound(error_number::kOutOfMemory, "Out of memory.");
    } catch (const std::length_error&) {
        failAtBound(error_number::kOutOfMemory, "Out of memory.");
    }
}

} // namespace

ScriptValue execute(const Tree& tree, OutsideWorld& world, const Limits& limits) {
    const BoundedMemory bound(limits.memory);
    return runBounded(tree, world, limits);
}

ScriptRun::ScriptRun(const Tree& tree, OutsideWorld& world, const Limits& limits)
    : tree_(tree), bounds_(limits), context_{.world = world, .bounds = bounds_}, parts_(context_),
      globals_(tree.globals.size(), ScriptValue::undefined()), mostDepth_(limits.depth),
      stack_(stackPlace()) {
    slots_[static_cast<std::size_t>(Scope::script)] = globals_.data();
    for (const Handler& handler : tree.handlers) {
        handlers_.emplace(handler.name, &handler);
    }
}

ScriptValue ScriptRun::run() {
    step();
    for (const Tree::Property& property : tree_.properties) {
        slotOf(*property.variable) = evaluate(*property.value);
    }
    std::vector<ScriptValue> arguments;
    if (!tree_.run.parameters.empty()) {
        arguments.push_back(ScriptValue::list({}));
    }
    const ScriptValue result = call(tree_.run, std::move(arguments));
    return result.isUndefined() ? ScriptValue() : resolved(result);
}

void Bounds::check() {
    if (stepsLeft_ == 0 || std::chrono::steady_clock::now() > end_) {
        untilCheck_ = 1;
        failAtBound(error_number::kTimedOut, "AppleEvent timed out.");
    }
    ScriptValue::expectBytes(0);
    untilCheck_ =
        static_cast<std::uint32_t>(std::min<std::uint64_t>(stepsLeft_, kStepsBetweenChecks));
    stepsLeft_ -= untilCheck_;
}

void ScriptRun::requireStack() const {
    const std::uintptr_t place = stackPlace();
    const std::uintptr_t used = stack_ > place ? stack_ - place : place - stack_;
    if (used > kMostStack || depth_ >= mostDepth_) {
        failTooDeep();
    }
}

} // namespace qv::applescript
