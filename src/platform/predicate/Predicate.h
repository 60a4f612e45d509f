#pragma once

#include "platform/foundation/values/Exception.h"
#include "platform/predicate/evaluation/KeyValueCoding.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qv {

/// A text that is not a predicate. The reason says why and where, and quotes what stands there.
class PredicateSyntaxError : public Exception {
public:
    PredicateSyntaxError(std::string reason, std::size_t offset, std::string cause)
        : Exception(std::string(exception_name::kInvalidArgument), std::move(reason)),
          offset_(offset), cause_(std::move(cause)) {}
    [[nodiscard]] std::size_t offset() const noexcept { return offset_; } ///< in bytes
    [[nodiscard]] const std::string& cause() const noexcept { return cause_; }

private:
    std::size_t offset_;
    std::string cause_;
};

/// A comparison, a junction of such, or an operand, and what became of it in an evaluation.
struct PredicatePart {
    std::size_t level;         ///< 0 for the whole predicate, more for its operands
    std::string title;         ///< the part without its operands
    bool isCondition;          ///< true or false, not a value
    std::size_t evaluations;   ///< a part of a SUBQUERY can have many; 0: was left out
    std::optional<Value> last; ///< the result of the last one; none when it did not come to an end
};

/// The indentation has two blanks a level. Deep down the level stands as a number, so that a
/// printed tree stays linear in its predicate.
[[nodiscard]] std::string indentation(std::size_t level);

/// A condition in the platform's predicate language, parsed. Immutable; copies share the tree, and
/// threads may evaluate one predicate at the same time.
///
/// Beyond the published guides: NOT binds tighter than AND, AND tighter than OR; inside quotes `%%`
/// is one percent sign, and outside of them a percent sign is refused, for there are no arguments;
/// `[l]` orders by the root collation and changes nothing else; `/` of integers truncates, and an
/// integer result beyond 64 bits raises; FUNCTION always raises when it is evaluated.
///
/// Bounds: a text of 1 MiB, 1000 levels, and per evaluation a second and some 4 million elements
/// (or 32 MiB of texts) made. Beyond them an Exception is thrown.
class Predicate {
public:
    /// Throws a PredicateSyntaxError.
    static Predicate predicateWithFormat(std::string_view text);
    /// Throws a PredicateSyntaxError for a text that is too long.
    static void requireLength(std::string_view text);

    /// `variables`: a dictionary of the `$name`s, or the null object for none. Throws an Exception
    /// where the predicate asks for what does not exist or compares what cannot be compared; the
    /// object's own exceptions pass through.
    /// `budget`: what is left, where more than the evaluation counts. `parts`, when given, receives
    /// what became of each part, even when an exception is thrown.
    [[nodiscard]] bool evaluateWithObject(KeyValueCoding& object,
                                          const Value& substitutionVariables = {},
                                          const predicate::Budget& budget = {},
                                          std::vector<PredicatePart>* parts = nullptr) const;
    [[nodiscard]] bool evaluateWithObject(const Value& object,
                                          const Value& substitutionVariables = {}) const;

    /// The predicate in its language; that text parses to the same tree.
    [[nodiscard]] std::string predicateFormat() const;
    /// A text for people: one node a line, operands indented by two below.
    [[nodiscard]] std::string tree() const;

private:
    struct Parsed;
    explicit Predicate(std::shared_ptr<const Parsed> parsed) : parsed_(std::move(parsed)) {}
    std::shared_ptr<const Parsed> parsed_;
};

} // namespace qv
