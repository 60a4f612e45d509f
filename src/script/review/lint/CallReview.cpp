#include "platform/foundation/values/Trimmed.h"
#include "rules/QVRuleChecker.h"
#include "script/review/lint/RuleReview.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <span>

namespace qv::review {

namespace {

using Names = std::span<const std::string_view>;

/// The words that a function understands.
struct FunctionWords {
    std::string_view function;
    std::string_view questionKey; ///< of the argument that holds the question; empty: only words
    Names questions;              ///< under that key
    Names arguments;              ///< the other keys
    Names prefixes;               ///< of keys that go on with a name
    bool takesWord;               ///< a question without arguments
};

constexpr std::array kVersionQuestions = std::to_array<std::string_view>(
    {"os", "application", "hostApplication", "hostApplicationShort", "computerIdentifier",
     "computerModel", "computerVersion", "computerVersionMajor", "computerVersionMinor"});
constexpr std::array kVersionArguments = std::to_array<std::string_view>(
    {"bundleID", "useShortVersion", "greaterThan", "equalTo", "lessThan"});
constexpr std::array kFileQuestions = std::to_array<std::string_view>(
    {"exists", "size", "date", "sha1sum", "md5sum", "prefsValue", "prefsExists"});
constexpr std::array kFileArguments =
    std::to_array<std::string_view>({"absPath", "bundlePath", "bundleID", "key"});
constexpr std::array kClassQuestions =
    std::to_array<std::string_view>({"classExists", "hasClassSelector", "hasInstanceSelector"});
constexpr std::array kClassArguments = std::to_array<std::string_view>({"class", "selector"});
constexpr std::array kDeviceQuestions =
    std::to_array<std::string_view>({"exists", "propertyValue"});
constexpr std::array kDeviceArguments = std::to_array<std::string_view>({"propertyName"});
constexpr std::array kDevicePrefixes =
    std::to_array<std::string_view>({"matchStr", "matchInt", "meetStr", "meetInt"});
constexpr std::array kApplicationActions = std::to_array<std::string_view>(
    {"installed", "path", "isBundledInPackage", "hostApplicationPath"});

constexpr std::array kFunctionWords = std::to_array<FunctionWords>({
    {"version", "of", kVersionQuestions, kVersionArguments, {}, true},
    {"sysctl", "", {}, {}, {}, true},
    {"application", "", {}, {}, {}, true},
    {"objc", "do", kClassQuestions, kClassArguments, {}, false},
    {"filesystem", "do", kFileQuestions, kFileArguments, {}, false},
    {"iokit", "do", kDeviceQuestions, kDeviceArguments, kDevicePrefixes, false},
});

const FunctionWords* wordsOf(std::string_view function) {
    const auto* found = std::ranges::find(kFunctionWords, function, &FunctionWords::function);
    return found == kFunctionWords.end() ? nullptr : found;
}

bool contains(Names names, std::string_view name) {
    return std::ranges::find(names, name) != names.end();
}

std::vector<std::string> listOf(Names names) { return {names.begin(), names.end()}; }

std::string oneOf(Names names) { return fmt::format("write one of: {}", fmt::join(names, ", ")); }

std::string meantBy(std::string_view word, Names names) {
    const std::string_view bare = trimmed(word);
    return bare != word && contains(names, bare) ? "; blanks count"
                                                 : suggestion(bare, listOf(names));
}

/// Looks at one call of a function that there is.
class KnownCall {
public:
    KnownCall(const PlacedCall& placed, const FunctionWords& words, std::vector<RuleFault>& faults)
        : placed_(placed), words_(words), faults_(faults) {}

    void review() {
        const std::optional<Value>& arguments = placed_.call.arguments;
        const std::optional<Value> parameter = placed_.call.parameter();
        if (arguments && arguments->asDictionary().size() == 1 && !parameter) {
            add(Check::loneArgument,
                {fmt::format("the function {} gets nothing of the argument {}: a single argument "
                             "with a value is lost",
                             words_.function, inQuotes(arguments->asDictionary().key(0))),
                 "give it a second argument, such as the word x"});
            return;
        }
        if (parameter && parameter->is(Value::Kind::string)) {
            reviewWord(parameter->asString());
        } else if (!parameter || words_.questionKey.empty()) {
            add(Check::unknownQuestion,
                {fmt::format("the function {} has no value for {}", words_.function,
                             parameter ? "more than one argument" : "no question"),
                 words_.questionKey.empty()
                     ? "give it one word"
                     : fmt::format("give it the argument {} and what the question needs",
                                   words_.questionKey)});
        } else {
            reviewArguments(parameter->asDictionary());
        }
    }

private:
    void add(Check check, Explanation explanation) {
        faults_.push_back({check, placed_.offset, std::move(explanation)});
    }

    void reviewWord(std::string_view word) {
        if (!words_.takesWord) {
            add(Check::unknownQuestion,
                {fmt::format("the function {} has no value for the word {} alone", words_.function,
                             inQuotes(word)),
                 fmt::format("give it the argument {} and what the question needs",
                             words_.questionKey)});
        } else if (auto fault = faultOfQuestion(words_.function, word)) {
            add(Check::unknownQuestion, *std::move(fault));
        }
    }

    void reviewArguments(const DictionaryView& arguments) {
        const Value* question = arguments.find(words_.questionKey);
        if (question != nullptr) {
            const std::string_view text =
                question->is(Value::Kind::string) ? question->asString() : std::string_view();
            if (!contains(words_.questions, text)) {
                add(Check::unknownQuestion,
                    {fmt::format("the function {} does not understand {} = {}{}", words_.function,
                                 words_.questionKey, inQuotes(text),
                                 meantBy(text, words_.questions)),
                     oneOf(words_.questions)});
            }
        }
        const std::size_t before = faults_.size();
        for (std::size_t i = 0; i < arguments.size(); ++i) {
            reviewArgument(arguments.key(i), arguments.value(i));
        }
        if (question == nullptr && faults_.size() == before) {
            add(Check::unknownQuestion,
                {fmt::format("the function {} has no value without the argument {}",
                             words_.function, words_.questionKey),
                 fmt::format("write {}= and one of: {}", words_.questionKey,
                             fmt::join(words_.questions, ", "))});
        }
    }

    // A word that means nothing to the function may be there as the second argument.
    void reviewArgument(std::string_view key, const Value& value) {
        if (key == words_.questionKey || key == "fallbackValue" ||
            contains(words_.arguments, key) ||
            std::ranges::any_of(words_.prefixes, [&](std::string_view prefix) {
                return key.starts_with(prefix) && key.size() > prefix.size();
            })) {
            return;
        }
        std::vector<std::string_view> known(words_.arguments.begin(), words_.arguments.end());
        known.push_back(words_.questionKey);
        const std::string meant = meantBy(key, known);
        if (!value.isNull() || !meant.empty()) {
            known.insert(known.end(), words_.prefixes.begin(), words_.prefixes.end());
            add(Check::unknownArgument,
                {fmt::format("the function {} does not know the argument {}{}", words_.function,
                             inQuotes(key), meant),
                 oneOf(known)});
        }
    }

    const PlacedCall& placed_;
    const FunctionWords& words_;
    std::vector<RuleFault>& faults_;
};

} // namespace

std::optional<Explanation> faultOfQuestion(std::string_view function, std::string_view question) {
    const auto fault = [&](std::string_view why, std::string mend) {
        return Explanation{
            fmt::format("the function {} has no value for {}{}", function, inQuotes(question), why),
            std::move(mend)};
    };
    const std::string_view action = question.substr(0, question.find('.'));
    const bool hasDot = action.size() < question.size();
    if (function == "sysctl" && !hasDot) {
        return fault("", "write the whole name of the parameter, such as kern.osrelease");
    }
    if (function == "application") {
        const bool isKnown =
            hasDot ? contains(kApplicationActions, action) : question == "hostApplicationBundleID";
        return isKnown ? std::nullopt
                       : std::optional(
                             fault(contains(kApplicationActions, action)
                                       ? ", because the application is missing"
                                       : suggestion(action, listOf(kApplicationActions)),
                                   "write installed, path or isBundledInPackage, a dot and the "
                                   "application, or hostApplicationBundleID"));
    }
    // Any other word may be the identifier of an application.
    if (function == "version" && !contains(kVersionQuestions, question)) {
        const std::string meant = hasDot ? "" : meantBy(question, kVersionQuestions);
        if (question == "kernel" || question == "OS" || !meant.empty()) {
            return fault(meant, oneOf(kVersionQuestions));
        }
    }
    return std::nullopt;
}

void reviewCall(const PlacedCall& placed, std::string_view rule, const QVRuleChecker& checker,
                std::vector<RuleFault>& faults) {
    const RuleCall& call = placed.call;
    const std::string_view text = rule.substr(placed.offset, placed.length);
    if (text.find('(') != std::string_view::npos && !text.ends_with(")}")) {
        faults.push_back({Check::unknownArgument,
                          placed.offset,
                          {fmt::format("the arguments of the call {} do not end with \")\" before "
                                       "its \"}}\"",
                                       inQuotes(text)),
                           "close them"}});
        return;
    }
    if (call.name && checker.functionForIdentifier(*call.name) != nullptr) {
        if (const FunctionWords* words = wordsOf(*call.name)) {
            KnownCall(placed, *words, faults).review();
        }
        return;
    }
    if (call.arguments && call.arguments->find("fallbackValue") != nullptr) {
        return;
    }
    std::vector<std::string_view> names;
    for (const auto& function : checker.functions()) {
        names.push_back(function->functionID());
    }
    faults.push_back(
        {Check::unknownFunction,
         placed.offset,
         {fmt::format("there is no function {}, so the call has no value{}",
                      inQuotes(call.name.value_or("")), meantBy(call.name.value_or(""), names)),
          "correct the name, or give the call a second argument and a fallbackValue for services "
          "that do not have the function"}});
}

} // namespace qv::review
