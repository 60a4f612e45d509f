#pragma once

#include "platform/security/requirement/CodeFacts.h"
#include "platform/security/requirement/Requirement.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace qv {

/// The parts of a compiled requirement. Two requirements mean the same when these are equal.
namespace requirement {

enum class Operator : std::uint8_t {
    exists,
    absent,
    equal,
    contains,
    beginsWith,
    endsWith,
    less,
    greater,
    lessOrEqual,
    greaterOrEqual,
};

/// The condition on a value: `exists` and `absent` have no operand, the comparisons a string or an
/// instant, the rest a string.
struct Match {
    Operator op = Operator::exists;
    std::variant<std::monostate, std::string, Date> operand;
    friend bool operator==(const Match&, const Match&) = default;
};

using Hash = std::array<std::uint8_t, 20>;

struct Constant {
    bool value;
    friend bool operator==(const Constant&, const Constant&) = default;
};
struct Identifier {
    std::string value;
    friend bool operator==(const Identifier&, const Identifier&) = default;
};
struct CodeHash {
    Hash hash;
    friend bool operator==(const CodeHash&, const CodeHash&) = default;
};
struct Platform {
    std::uint32_t number;
    friend bool operator==(const Platform&, const Platform&) = default;
};
enum class VendorPolicy : std::uint8_t { notarized, legacy };
enum class Anchor : std::uint8_t { apple, appleGeneric, trusted };
struct DictionaryEntry {
    enum class Source : std::uint8_t { info, entitlement };
    Source source;
    std::string key;
    Match match;
    friend bool operator==(const DictionaryEntry&, const DictionaryEntry&) = default;
};

// Slots count from the leaf, 0, upward and from the root, -1, downward.
struct CertificateHash {
    std::int32_t slot;
    Hash hash;
    friend bool operator==(const CertificateHash&, const CertificateHash&) = default;
};
struct CertificateTrusted {
    std::int32_t slot;
    friend bool operator==(const CertificateTrusted&, const CertificateTrusted&) = default;
};
struct CertificateEntry {
    enum class Part : std::uint8_t { subject, field, policy, timestamp };
    std::int32_t slot;
    Part part;
    std::string name; ///< subject component or dotted OID
    Match match;
    friend bool operator==(const CertificateEntry&, const CertificateEntry&) = default;
};

using Condition =
    std::variant<Constant, Identifier, CodeHash, Platform, VendorPolicy, Anchor, DictionaryEntry,
                 CertificateHash, CertificateTrusted, CertificateEntry>;

// Operands are indexes into the list of nodes.
struct Negation {
    std::uint32_t operand;
    friend bool operator==(const Negation&, const Negation&) = default;
};
struct Junction {
    enum class Kind : std::uint8_t { conjunction, disjunction };
    Kind kind;
    std::uint32_t left;
    std::uint32_t right;
    friend bool operator==(const Junction&, const Junction&) = default;
};

using TreeNode = std::variant<Condition, Negation, Junction>;

/// Helper of std::visit: one function for each alternative.
template <typename... Functions> struct Visitor : Functions... {
    using Functions::operator()...;
};

} // namespace requirement

/// A compiled requirement as a flat list, so that nothing that is done with it needs recursion.
struct RequirementTree {
    std::vector<requirement::TreeNode>
        nodes;             ///< never empty; operands first, the outermost node last
    std::size_t depth = 0; ///< levels; 1 for a single condition
};

// Defined in RequirementPrinter.cpp:
[[nodiscard]] std::string canonicalText(const requirement::Condition& condition);
[[nodiscard]] std::string canonicalText(const RequirementTree& tree);
/// A string as it may stand in a requirement: in quotes where that is needed.
[[nodiscard]] std::string requirementString(std::string_view text);
[[nodiscard]] std::string indentedDump(const RequirementTree& tree);

// Defined in RequirementEvaluator.cpp:
[[nodiscard]] bool holds(const requirement::Condition& condition, const CodeFacts& facts);
[[nodiscard]] bool holds(const RequirementTree& tree, const CodeFacts& facts);
/// Whether each node holds, in the order of the list.
[[nodiscard]] std::vector<bool> outcomes(const RequirementTree& tree, const CodeFacts& facts);

// Defined in RequirementFindings.cpp:
[[nodiscard]] std::vector<RequirementFinding> findings(const RequirementTree& tree,
                                                       const CodeFacts& facts);

} // namespace qv
