#include "rules/CallScanner.h"

#include <utility>
#include <vector>

namespace qv {

namespace {

// Scans a call character by character.
class CallScanner {
public:
    std::optional<std::size_t> scan(std::string_view text) {
        for (std::size_t i = 0; i < text.size(); ++i) {
            if (text[i] == '}' && !escaped_ && quote_ == kNoQuote) {
                return i + 1;
            }
            take(text[i]);
        }
        return std::nullopt;
    }

    RuleCall takeCall() {
        if (!name_ && !token_.empty()) {
            name_ = std::move(token_);
        }
        RuleCall call{std::move(name_), std::nullopt};
        if (hasArguments_) {
            call.arguments = Value::dictionary(std::move(arguments_));
        }
        return call;
    }

private:
    static constexpr char kNoQuote = '\0';

    void take(char c) {
        if (escaped_) {
            token_ += c;
            escaped_ = false;
        } else if (quote_ != kNoQuote) {
            takeQuoted(c);
        } else if (c == '\\') {
            escaped_ = true;
        } else if (c == '"' || c == '\'') {
            quote_ = c;
        } else if (inArguments_) {
            takeInArguments(c);
        } else if (c == '(') {
            inArguments_ = true;
            if (!name_ && !token_.empty()) {
                name_ = std::exchange(token_, {});
            }
        } else {
            token_ += c; // of the name, or of what stands behind ")"
        }
    }

    void takeQuoted(char c) {
        if (c == quote_) {
            quote_ = kNoQuote;
        } else {
            token_ += c;
        }
    }

    void takeInArguments(char c) {
        if (c == '=' && !key_) {
            key_ = std::exchange(token_, {});
        } else if (c == ';' || c == ')') {
            commit();
            inArguments_ = c == ';';
        } else {
            token_ += c;
        }
    }

    void commit() {
        hasArguments_ = true;
        const std::string token = std::exchange(token_, {});
        const std::optional<std::string> key = std::exchange(key_, std::nullopt);
        if (key) {
            arguments_.emplace_back(Value::string(*key),
                                    token.empty() ? Value() : Value::string(token));
        } else if (!token.empty()) {
            arguments_.emplace_back(Value::string(token), Value());
        }
    }

    std::string token_;
    bool escaped_ = false;
    char quote_ = kNoQuote; // the quote character that is open
    bool inArguments_ = false;
    std::optional<std::string> key_;
    std::optional<std::string> name_;
    bool hasArguments_ = false;
    std::vector<std::pair<Value, Value>> arguments_;
};

} // namespace

std::optional<Value> RuleCall::parameter() const {
    if (!arguments || arguments->asDictionary().size() != 1) {
        return arguments;
    }
    const DictionaryView only = arguments->asDictionary();
    return only.value(0).isNull() ? std::optional(only.keys()[0]) : std::nullopt;
}

std::optional<std::size_t> scanCall(std::string_view text, RuleCall& call) {
    CallScanner scanner;
    const std::optional<std::size_t> length = scanner.scan(text);
    if (length) {
        call = scanner.takeCall();
    }
    return length;
}

} // namespace qv
