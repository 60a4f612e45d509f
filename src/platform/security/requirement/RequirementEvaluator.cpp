#include "platform/foundation/values/ASCII.h"
#include "platform/foundation/values/UTF8.h"
#include "platform/security/requirement/RequirementTree.h"

#include <algorithm>
#include <array>
#include <compare>
#include <cstdint>
#include <string_view>
#include <unordered_set>
#include <utility>

namespace qv {

using namespace requirement;

namespace {

// Cuts the digits off the front of a text; without leading zeros, so that the longer run is the
// larger number.
std::string_view takeNumber(std::string_view& text) {
    const auto digits =
        static_cast<std::size_t>(std::ranges::find_if_not(text, isDigit) - text.begin());
    std::string_view number = text.substr(0, digits);
    text.remove_prefix(digits);
    number.remove_prefix(std::min(number.find_first_not_of('0'), number.size()));
    return number;
}

// Runs of digits compare as numbers, the rest by code points.
std::strong_ordering compareNaturally(std::string_view left, std::string_view right) {
    while (!left.empty() && !right.empty()) {
        if (isDigit(left.front()) && isDigit(right.front())) {
            const std::string_view leftNumber = takeNumber(left);
            const std::string_view rightNumber = takeNumber(right);
            if (const auto order = leftNumber.size() <=> rightNumber.size(); order != 0) {
                return order;
            }
            if (const auto order = leftNumber <=> rightNumber; order != 0) {
                return order;
            }
            continue;
        }
        const auto order =
            static_cast<unsigned char>(left.front()) <=> static_cast<unsigned char>(right.front());
        if (order != 0) {
            return order;
        }
        left.remove_prefix(1);
        right.remove_prefix(1);
    }
    return left.size() <=> right.size();
}

bool fits(std::partial_ordering order, Operator op) {
    switch (op) {
    case Operator::less:
        return order < 0;
    case Operator::greater:
        return order > 0;
    case Operator::lessOrEqual:
        return order <= 0;
    case Operator::greaterOrEqual:
        return order >= 0;
    default:
        return order == 0;
    }
}

// An empty operand is found nowhere, as the platform's string search has it.
bool textFits(std::string_view candidate, Operator op, std::string_view operand) {
    switch (op) {
    case Operator::equal:
        return candidate == operand;
    case Operator::contains:
        return !operand.empty() && candidate.find(operand) != std::string_view::npos;
    case Operator::beginsWith:
        return !operand.empty() && candidate.starts_with(operand);
    case Operator::endsWith:
        return !operand.empty() && candidate.ends_with(operand);
    default:
        return fits(compareNaturally(candidate, operand), op);
    }
}

bool matchesText(std::string_view candidate, const Match& match) {
    const auto* operand = std::get_if<std::string>(&match.operand);
    if (operand == nullptr) {
        return match.op == Operator::exists;
    }
    // Bytes that are not text could otherwise be found inside of a character.
    return isUTF8(*operand) && textFits(candidate, match.op, *operand);
}

bool matchesDate(Date candidate, const Match& match) {
    const auto* operand = std::get_if<Date>(&match.operand);
    if (operand == nullptr) {
        return match.op == Operator::exists;
    }
    return fits(candidate.secondsSinceReference <=> operand->secondsSinceReference, match.op);
}

bool matchesScalar(const Value& candidate, const Match& match) {
    if (candidate.is(Value::Kind::string)) {
        return matchesText(candidate.asString(), match);
    }
    return candidate.is(Value::Kind::date) && matchesDate(candidate.asDate(), match);
}

// An array stands for its elements, at every depth. A shared sub-array is looked at once, because
// a small list can hold one astronomically often.
bool matchesAnyElement(const Value& array, const Match& match) {
    std::vector<const Value*> pending{&array};
    std::unordered_set<std::uintptr_t> seen;
    while (!pending.empty()) {
        const Value& candidate = *pending.back();
        pending.pop_back();
        if (!candidate.is(Value::Kind::array)) {
            if (matchesScalar(candidate, match)) {
                return true;
            }
            continue;
        }
        if (seen.insert(candidate.identity()).second) {
            for (const Value& element : candidate.asArray()) {
                pending.push_back(&element);
            }
        }
    }
    return false;
}

bool matchesValue(const Value* candidate, const Match& match) {
    if (candidate == nullptr) {
        return match.op == Operator::absent;
    }
    switch (match.op) {
    case Operator::absent:
        return false;
    case Operator::exists:
        return !candidate->is(Value::Kind::boolean) || candidate->asBoolean();
    default:
        return matchesAnyElement(*candidate, match);
    }
}

const CertificateFacts* certificateAt(const CodeFacts& facts, std::int32_t slot) {
    const auto count = static_cast<std::int64_t>(facts.chain.size());
    const std::int64_t index = slot < 0 ? count + slot : std::int64_t{slot};
    return index >= 0 && index < count ? &facts.chain[static_cast<std::size_t>(index)] : nullptr;
}

struct SubjectComponent {
    std::string_view name; // in a requirement
    std::string_view key;  // in CertificateFacts: attributes without a short name go by their OID
};
constexpr auto kSubjectComponents = std::to_array<SubjectComponent>({
    {"C", "C"},
    {"CN", "CN"},
    {"D", "D"},
    {"L", "L"},
    {"O", "O"},
    {"C-O", "2.5.4.10.1"},
    {"OU", "OU"},
    {"C-OU", "2.5.4.11.1"},
    {"ST", "ST"},
    {"C-ST", "2.5.4.8.1"},
    {"STREET", "STREET"},
    {"C-STREET", "2.5.4.9.1"},
    {"UID", "UID"},
});

bool subjectHolds(const CertificateFacts& certificate, const CertificateEntry& entry) {
    const auto* known = std::ranges::find(kSubjectComponents, entry.name, &SubjectComponent::name);
    if (known == kSubjectComponents.end()) {
        return false;
    }
    return std::ranges::any_of(certificate.subject, [&](const auto& component) {
        return component.first == known->key && matchesText(component.second, entry.match);
    });
}

// The value of an extension or policy is a mere "yes", which no operand equals.
bool markerHolds(const std::vector<std::string>& present, const CertificateEntry& entry) {
    const Operator wanted = std::ranges::find(present, entry.name) == present.end()
                                ? Operator::absent
                                : Operator::exists;
    return entry.match.op == wanted;
}

bool timestampHolds(const CertificateFacts* certificate, const CertificateEntry& entry) {
    if (certificate != nullptr) {
        const auto found = std::ranges::find(certificate->timestamps, entry.name,
                                             &std::pair<std::string, Date>::first);
        if (found != certificate->timestamps.end()) {
            return matchesDate(found->second, entry.match);
        }
    }
    return entry.match.op == Operator::absent;
}

bool entryHolds(const CodeFacts& facts, const CertificateEntry& entry) {
    const CertificateFacts* certificate = certificateAt(facts, entry.slot);
    if (entry.part == CertificateEntry::Part::timestamp) {
        return timestampHolds(certificate, entry);
    }
    if (certificate == nullptr) {
        return false;
    }
    switch (entry.part) {
    case CertificateEntry::Part::subject:
        return subjectHolds(*certificate, entry);
    case CertificateEntry::Part::field:
        return markerHolds(certificate->extensionOIDs, entry);
    default:
        return markerHolds(certificate->policyOIDs, entry);
    }
}

// Trust is looked for from the leaf upward, and ends at a certificate that is denied.
bool chainTrusted(const CodeFacts& facts) {
    const auto decided = std::ranges::find_if(facts.chain, [](const CertificateFacts& certificate) {
        return certificate.trusted || certificate.revoked;
    });
    return decided != facts.chain.end() && !decided->revoked;
}

bool anchorHolds(const CodeFacts& facts, Anchor anchor) {
    if (anchor == Anchor::trusted) {
        return chainTrusted(facts);
    }
    const CertificateFacts* root = certificateAt(facts, -1);
    return root != nullptr &&
           (root->platformRoot || (anchor == Anchor::appleGeneric && root->vendorRoot));
}

} // namespace

bool holds(const Condition& condition, const CodeFacts& facts) {
    return std::visit(
        Visitor{
            [](const Constant& node) { return node.value; },
            [&](const Identifier& node) { return facts.identifier == node.value; },
            [&](const CodeHash& node) { return facts.cdhash == node.hash; },
            [&](const Platform& node) { return facts.platform == node.number; },
            [](VendorPolicy) { return false; }, // the vendor's records are not at hand
            [&](Anchor node) { return anchorHolds(facts, node); },
            [&](const DictionaryEntry& node) {
                const Value& dictionary =
                    node.source == DictionaryEntry::Source::info ? facts.info : facts.entitlements;
                return matchesValue(dictionary.find(node.key), node.match);
            },
            [&](const CertificateHash& node) {
                const CertificateFacts* certificate = certificateAt(facts, node.slot);
                return certificate != nullptr && certificate->sha1 == node.hash;
            },
            [&](const CertificateTrusted& node) {
                const CertificateFacts* certificate = certificateAt(facts, node.slot);
                return certificate != nullptr && certificate->trusted && !certificate->revoked;
            },
            [&](const CertificateEntry& node) { return entryHolds(facts, node); },
        },
        condition);
}

std::vector<bool> outcomes(const RequirementTree& tree, const CodeFacts& facts) {
    std::vector<bool> results;
    results.reserve(tree.nodes.size());
    for (const TreeNode& node : tree.nodes) {
        results.push_back(
            std::visit(Visitor{
                           [&](const Condition& condition) { return holds(condition, facts); },
                           [&](const Negation& negation) { return !results[negation.operand]; },
                           [&](const Junction& junction) {
                               const bool left = results[junction.left];
                               const bool right = results[junction.right];
                               return junction.kind == Junction::Kind::conjunction ? left && right
                                                                                   : left || right;
                           },
                       },
                       node));
    }
    return results;
}

bool holds(const RequirementTree& tree, const CodeFacts& facts) {
    return outcomes(tree, facts).back();
}

} // namespace qv
