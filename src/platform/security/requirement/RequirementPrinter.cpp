#include "platform/foundation/log/Log.h"
#include "platform/foundation/values/CalendarTime.h"
#include "platform/foundation/values/Hexadecimal.h"
#include "platform/foundation/values/UTF8.h"
#include "platform/security/requirement/RequirementLexer.h"
#include "platform/security/requirement/RequirementTree.h"

#include <fmt/core.h>

#include <array>
#include <limits>
#include <utility>

namespace qv {

using namespace requirement;

namespace {

std::string quoted(std::string_view text) {
    std::string result = "\"";
    for (const char c : text) {
        if (c == '"') {
            result += '\\';
        }
        result += c;
    }
    return result + '"';
}

// Bytes that have no form in quotes are written as hexadecimal data.
std::string dataText(std::string_view bytes) {
    const bool quotable = isUTF8(bytes) && bytes.find('\\') == std::string_view::npos &&
                          bytes.find('\0') == std::string_view::npos;
    return quotable ? requirementString(bytes) : "0x" + hexadecimal(bytes);
}

std::string instantText(Date date) {
    const CalendarTime time = calendarTime(date).value_or(CalendarTime());
    return fmt::format("timestamp \"{:04}{:02}{:02}{:02}{:02}{:02}Z\"", time.year, time.month,
                       time.day, time.hour, time.minute, time.second);
}

std::string operandText(const Match& match) {
    if (const Date* date = std::get_if<Date>(&match.operand)) {
        return instantText(*date);
    }
    if (const std::string* data = std::get_if<std::string>(&match.operand)) {
        return dataText(*data);
    }
    return {};
}

struct MatchForm {
    std::string_view before; // the text before the operand
    std::string_view after;
};
// The forms in the order of the operators.
constexpr auto kMatchForms = std::to_array<MatchForm>({
    {" exists", ""},
    {" absent", ""},
    {" = ", ""},
    {" = *", "*"},
    {" = ", "*"},
    {" = *", ""},
    {" < ", ""},
    {" > ", ""},
    {" <= ", ""},
    {" >= ", ""},
});

std::string matchText(const Match& match) {
    const MatchForm& form = kMatchForms.at(static_cast<std::size_t>(match.op));
    return fmt::format("{}{}{}", form.before, operandText(match), form.after);
}

std::string slotText(std::int32_t slot) {
    if (slot == 0) {
        return "certificate leaf";
    }
    return slot == -1 ? "certificate root" : fmt::format("certificate {}", slot);
}

// The names in the order of the enumerations.
constexpr auto kEntryPartNames =
    std::to_array<std::string_view>({"subject.", "field.", "policy.", "timestamp."});
constexpr auto kAnchorNames =
    std::to_array<std::string_view>({"anchor apple", "anchor apple generic", "anchor trusted"});
constexpr auto kPolicyNames = std::to_array<std::string_view>({"notarized", "legacy"});
constexpr auto kSourceNames = std::to_array<std::string_view>({"info", "entitlement"});
constexpr auto kJunctionNames = std::to_array<std::string_view>({"and", "or"});

template <typename Names> std::string_view nameOf(const Names& names, auto enumerator) {
    return names.at(static_cast<std::size_t>(enumerator));
}

// Rows of one operator associate to the left, so only a row on the right side needs parentheses.
bool needsParentheses(const TreeNode& operand, Junction::Kind outer, bool onRightSide) {
    const auto* inner = std::get_if<Junction>(&operand);
    if (inner == nullptr) {
        return false;
    }
    return inner->kind == outer ? onRightSide : outer == Junction::Kind::conjunction;
}

// The pieces that the printer still has to write, last one first.
struct Piece {
    std::string_view literal;
    const TreeNode* node = nullptr; ///< instead of the literal
};

void pushOperand(std::vector<Piece>& pieces, const TreeNode& operand, bool parentheses) {
    if (parentheses) {
        pieces.push_back({")"});
    }
    pieces.push_back({{}, &operand});
    if (parentheses) {
        pieces.push_back({"("});
    }
}

} // namespace

std::string requirementString(std::string_view text) {
    return isBareRequirementWord(text) ? std::string(text) : quoted(text);
}

std::string canonicalText(const Condition& condition) {
    return std::visit(
        Visitor{
            [](const Constant& node) -> std::string { return node.value ? "always" : "never"; },
            [](const Identifier& node) { return "identifier " + quoted(node.value); },
            [](const CodeHash& node) {
                return fmt::format("cdhash H\"{}\"", hexadecimal(node.hash));
            },
            [](const Platform& node) { return fmt::format("platform = {}", node.number); },
            [](VendorPolicy node) { return std::string(nameOf(kPolicyNames, node)); },
            [](Anchor node) { return std::string(nameOf(kAnchorNames, node)); },
            [](const DictionaryEntry& node) {
                return fmt::format("{}[{}]{}", nameOf(kSourceNames, node.source),
                                   requirementString(node.key), matchText(node.match));
            },
            [](const CertificateHash& node) {
                return fmt::format("{} = H\"{}\"", slotText(node.slot), hexadecimal(node.hash));
            },
            [](const CertificateTrusted& node) { return slotText(node.slot) + " trusted"; },
            [](const CertificateEntry& node) {
                const std::string key =
                    fmt::format("{}{}", nameOf(kEntryPartNames, node.part), node.name);
                return fmt::format("{}[{}]{}", slotText(node.slot), requirementString(key),
                                   matchText(node.match));
            },
        },
        condition);
}

std::string canonicalText(const RequirementTree& tree) {
    std::string text;
    std::vector<Piece> pieces{{{}, &tree.nodes.back()}};
    while (!pieces.empty()) {
        const Piece piece = pieces.back();
        pieces.pop_back();
        if (piece.node == nullptr) {
            text += piece.literal;
            continue;
        }
        std::visit(Visitor{
                       [&](const Condition& node) { text += canonicalText(node); },
                       [&](const Negation& node) {
                           const TreeNode& operand = tree.nodes[node.operand];
                           pushOperand(pieces, operand, std::holds_alternative<Junction>(operand));
                           pieces.push_back({"!"});
                       },
                       [&](const Junction& node) {
                           const TreeNode& left = tree.nodes[node.left];
                           const TreeNode& right = tree.nodes[node.right];
                           pushOperand(pieces, right, needsParentheses(right, node.kind, true));
                           pieces.push_back({" "});
                           pieces.push_back({nameOf(kJunctionNames, node.kind)});
                           pieces.push_back({" "});
                           pushOperand(pieces, left, needsParentheses(left, node.kind, false));
                       },
                   },
                   *piece.node);
    }
    return text;
}

std::string indentedDump(const RequirementTree& tree) {
    struct Line {
        std::uint32_t node;
        std::size_t indent;
    };
    std::string dump;
    std::vector<Line> lines{{static_cast<std::uint32_t>(tree.nodes.size() - 1), 0}};
    while (!lines.empty()) {
        const auto [index, indent] = lines.back();
        lines.pop_back();
        dump.append(indent, ' ');
        std::visit(Visitor{
                       [&](const Condition& node) {
                           dump += log::foreign(canonicalText(node),
                                                std::numeric_limits<std::size_t>::max());
                       },
                       [&](const Negation& node) {
                           dump += "not";
                           lines.push_back({node.operand, indent + 2});
                       },
                       [&](const Junction& node) {
                           dump += nameOf(kJunctionNames, node.kind);
                           // The row `a and b and c` is three operands, however it is held.
                           const Junction* row = &node;
                           while (true) {
                               lines.push_back({row->right, indent + 2});
                               const auto* next = std::get_if<Junction>(&tree.nodes[row->left]);
                               if (next == nullptr || next->kind != node.kind) {
                                   break;
                               }
                               row = next;
                           }
                           lines.push_back({row->left, indent + 2});
                       },
                   },
                   tree.nodes[index]);
        dump += '\n';
    }
    return dump;
}

} // namespace qv
