#pragma once

#include "platform/foundation/values/Value.h"

#include <chrono>
#include <cstddef>
#include <string_view>

namespace qv::predicate {

/// The time and memory of one evaluation: a second, and so much memory for values that it makes.
/// Beyond either, an Exception ends it.
class Budget {
public:
    /// Charges for work of so many steps, of some ten nanoseconds each, that is about to be done.
    /// The clock is read once in kStepsBetweenLooks, and before all work that is longer.
    void charge(std::size_t steps) {
        if (steps < unlooked_) {
            unlooked_ -= steps;
        } else {
            requireTime();
        }
    }
    /// Charges for a text, or a value, that is about to be gone through.
    void charge(std::string_view text) { charge(text.size() / kBytesAStep + 1); }
    void charge(const Value& value);
    /// Charges for so many elements, or eight times as many bytes, that are about to be made.
    void make(std::size_t elements);
    /// The same of a value that has just been made.
    Value made(Value value);

    /// Looks at the clock.
    void requireTime();
    /// Returns true when the time is used up, for code that an exception must not leave; such code
    /// ends, and its caller then calls requireTime.
    [[nodiscard]] bool isOver() const;

    /// Stops the clock as long as it lives.
    class Pause {
    public:
        explicit Pause(Budget& budget) noexcept : budget_(budget) {}
        ~Pause() { budget_.begin_ += std::chrono::steady_clock::now() - begin_; }
        Pause(const Pause&) = delete;
        Pause& operator=(const Pause&) = delete;
        Pause(Pause&&) = delete;
        Pause& operator=(Pause&&) = delete;

    private:
        Budget& budget_;
        std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
    };

private:
    static constexpr std::size_t kStepsBetweenLooks = 4096;
    static constexpr std::size_t kBytesAStep = 16;

    std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
    std::size_t unlooked_ = kStepsBetweenLooks;
    std::size_t makeable_ = std::size_t{1} << 22U;
};

} // namespace qv::predicate
