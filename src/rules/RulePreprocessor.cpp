#include "rules/RulePreprocessor.h"

#include "platform/foundation/log/Log.h"
#include "platform/foundation/values/Exception.h"

#include <fmt/core.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace qv {

namespace {

// The working text is `done_` followed by `rest_`, so that nothing behind a call is moved when the
// call is replaced.
class Preprocessor {
public:
    Preprocessor(std::string_view rule, const CallEvaluator& evaluate, bool withVariables)
        : rest_(rule), evaluate_(evaluate), withVariables_(withVariables) {}

    std::string run() {
        while (findCall()) {
            RuleCall call;
            const auto length = scanCall(rest_.substr(kCallBegin.size()), call);
            if (!length) {
                log::NSLog(fmt::format("Unterminated function: {}", rest_));
                break;
            }
            rest_.remove_prefix(kCallBegin.size() + *length);
            replaceWith(evaluate_(call));
        }
        return std::move(done_.append(rest_));
    }

    Value variables() { return Value::dictionary(std::move(variables_)); }

private:
    // Brings the next call to the front of `rest_`. It is searched for from the sum of the lengths
    // of all replacements on, which may stand before the end of the last one: a result that holds a
    // call, or completes one, counts as text.
    bool findCall() {
        const std::size_t from = std::max(searchFrom_, clean_);
        if (!withVariables_ && from < done_.size() && callInDone(from)) {
            return true;
        }
        const std::size_t place = rest_.find(kCallBegin);
        if (place == std::string_view::npos) {
            return false;
        }
        done_.append(rest_.substr(0, place));
        clean_ = done_.size();
        rest_.remove_prefix(place);
        return true;
    }

    bool callInDone(std::size_t from) {
        std::string seam = done_.substr(from);
        seam.append(rest_.substr(0, 1));
        const std::size_t place = seam.find(kCallBegin);
        if (place == std::string::npos) {
            return false;
        }
        takeBack(std::string_view(done_).substr(from + place));
        done_.resize(from + place);
        clean_ = done_.size();
        return true;
    }

    // Puts a text in front of `rest_`, where as much room as `rest_` takes is made at a time.
    void takeBack(std::string_view text) {
        const std::size_t room = owned_.size() - std::min(owned_.size(), rest_.size());
        if (text.size() > room) {
            std::string larger(text.size() + rest_.size(), '\0');
            larger.append(rest_);
            owned_ = std::move(larger);
            rest_ = std::string_view(owned_).substr(owned_.size() - rest_.size());
        }
        const std::size_t begin = owned_.size() - rest_.size() - text.size();
        owned_.replace(begin, text.size(), text);
        rest_ = std::string_view(owned_).substr(begin);
    }

    void replaceWith(const std::optional<Value>& result) {
        std::string replacement = "NULL";
        if (result && withVariables_) {
            const std::string name = fmt::format("fnc{}", count_);
            replacement = "$" + name;
            variables_.emplace_back(Value::string(name), *result);
        } else if (result) {
            if (!result->is(Value::Kind::string)) {
                throw Exception(std::string(exception_name::kInvalidArgument),
                                fmt::format("a call's result is of class {}, not a string",
                                            className(result->kind())));
            }
            replacement = result->asString();
        }
        // The text before may begin a call together with the text that comes now.
        clean_ = done_.empty() ? 0 : done_.size() - 1;
        done_ += replacement;
        searchFrom_ += replacement.size();
        ++count_;
    }

    std::string done_;
    std::string_view rest_;
    std::string owned_; // ends with rest_ as soon as a result was taken back into it
    const CallEvaluator& evaluate_;
    bool withVariables_;
    std::vector<std::pair<Value, Value>> variables_;
    std::size_t searchFrom_ = 0;
    std::size_t clean_ = 0; // no call begins before this
    std::size_t count_ = 0;
};

} // namespace

std::string replaceCalls(std::string_view rule, const CallEvaluator& evaluate, Value* variables) {
    Preprocessor preprocessor(rule, evaluate, variables != nullptr);
    std::string text = preprocessor.run();
    if (variables != nullptr) {
        *variables = preprocessor.variables();
    }
    return text;
}

} // namespace qv
