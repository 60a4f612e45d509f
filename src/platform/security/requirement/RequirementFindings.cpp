// Finds the conditions because of which code does not satisfy a requirement, and the remedies.
//
// A node of the tree is wanted true, or false under an odd number of negations. A junction that
// needs both of its operands lacks what both lack; one that needs either lacks what the operand
// lacks that is nearer to what is wanted. So the fewest conditions are counted upward, and then
// followed down from the outermost node.

#include "platform/security/requirement/RequirementTree.h"

#include <fmt/core.h>

#include <algorithm>

namespace qv {

using namespace requirement;

namespace {

struct NodeFinding {
    bool wanted = true;
    std::size_t lacks = 0; // conditions that would have to change
    bool decisive = false;
};

bool needsBoth(const Junction& junction, const NodeFinding& node) {
    return (junction.kind == Junction::Kind::conjunction) == node.wanted;
}

std::vector<NodeFinding> nodeFindings(const RequirementTree& tree,
                                      const std::vector<bool>& results) {
    std::vector<NodeFinding> found(tree.nodes.size());
    for (std::size_t index = tree.nodes.size(); index-- > 0;) {
        if (const auto* negation = std::get_if<Negation>(&tree.nodes[index])) {
            found[negation->operand].wanted = !found[index].wanted;
        } else if (const auto* junction = std::get_if<Junction>(&tree.nodes[index])) {
            found[junction->left].wanted = found[junction->right].wanted = found[index].wanted;
        }
    }
    for (std::size_t index = 0; index < tree.nodes.size(); ++index) {
        NodeFinding& node = found[index];
        if (const auto* negation = std::get_if<Negation>(&tree.nodes[index])) {
            node.lacks = found[negation->operand].lacks;
        } else if (const auto* junction = std::get_if<Junction>(&tree.nodes[index])) {
            const std::size_t left = found[junction->left].lacks;
            const std::size_t right = found[junction->right].lacks;
            node.lacks = needsBoth(*junction, node) ? left + right : std::min(left, right);
        } else {
            node.lacks = results[index] == node.wanted ? 0 : 1;
        }
    }
    found.back().decisive = found.back().lacks != 0;
    for (std::size_t index = tree.nodes.size(); index-- > 0;) {
        const NodeFinding& node = found[index];
        if (!node.decisive) {
            continue;
        }
        const auto decide = [&](std::uint32_t operand) {
            found[operand].decisive = found[operand].lacks != 0;
        };
        if (const auto* negation = std::get_if<Negation>(&tree.nodes[index])) {
            decide(negation->operand);
        } else if (const auto* junction = std::get_if<Junction>(&tree.nodes[index])) {
            const bool leftIsNearer = found[junction->left].lacks < found[junction->right].lacks;
            if (needsBoth(*junction, node) || leftIsNearer) {
                decide(junction->left);
            }
            if (needsBoth(*junction, node) || !leftIsNearer) {
                decide(junction->right);
            }
        }
    }
    return found;
}

constexpr std::string_view kGiveIntermediates =
    "sign it with --intermediate FILE for each certificate between the signer's and the root";

std::string remedyOf(const CertificateEntry& entry, const CodeFacts& facts) {
    // Only certificates that the signature carries, or an anchor, are known above the signer.
    if (entry.slot > 0 && std::cmp_less_equal(facts.chain.size(), entry.slot + 1)) {
        return std::string(kGiveIntermediates);
    }
    if (entry.part == CertificateEntry::Part::subject && entry.slot == 0 && entry.name == "OU" &&
        entry.match.op == Operator::equal) {
        return fmt::format("sign it with --team {0} and a certificate whose organisational unit "
                           "(OU) is {0}",
                           requirementString(std::get<std::string>(entry.match.operand)));
    }
    return entry.slot == 0 ? "sign it with a certificate of which this holds"
                           : "sign it with a certificate whose chain has such a one in this place";
}

// The remedy for a condition that should hold and does not.
std::string remedyOf(const Condition& condition, const CodeFacts& facts) {
    if (const auto* identifier = std::get_if<Identifier>(&condition)) {
        return fmt::format("sign it with --identifier {}", requirementString(identifier->value));
    }
    if (const auto* anchor = std::get_if<Anchor>(&condition)) {
        return *anchor == Anchor::trusted
                   ? "lay a certificate of its chain down in trusted/ of the anchors"
                   : fmt::format("{}, and lay the root down in vendor/ of the anchors",
                                 kGiveIntermediates);
    }
    if (const auto* entry = std::get_if<CertificateEntry>(&condition)) {
        return remedyOf(*entry, facts);
    }
    return "sign it so that this holds";
}

} // namespace

std::vector<RequirementFinding> findings(const RequirementTree& tree, const CodeFacts& facts) {
    const std::vector<bool> results = outcomes(tree, facts);
    const std::vector<NodeFinding> nodes = nodeFindings(tree, results);
    std::vector<RequirementFinding> found;
    for (std::size_t index = 0; index < tree.nodes.size(); ++index) {
        const auto* condition = std::get_if<Condition>(&tree.nodes[index]);
        if (condition == nullptr) {
            continue;
        }
        const NodeFinding& node = nodes[index];
        std::string remedy;
        if (node.decisive) {
            remedy = node.wanted ? remedyOf(*condition, facts) : "sign it so that it does not hold";
        }
        found.push_back({.condition = canonicalText(*condition),
                         .holds = results[index],
                         .negated = !node.wanted,
                         .decisive = node.decisive,
                         .remedy = std::move(remedy)});
    }
    return found;
}

} // namespace qv
