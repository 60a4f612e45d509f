#include "platform/applescript/language/ScriptParser.h"

#include <algorithm>

namespace qv::applescript {

bool Parser::knows(Dictionary dictionary) const noexcept {
    const bool finder = context_.knowsFinder || lineWords_.knowsFinder;
    const bool systemEvents = context_.knowsSystemEvents || lineWords_.knowsSystemEvents;
    switch (dictionary) {
    case Dictionary::finder:
        return finder;
    case Dictionary::systemEvents:
        return systemEvents;
    case Dictionary::both:
        return finder || systemEvents;
    default:
        return true;
    }
}

bool Parser::fits(const Phrase& phrase, std::size_t index) const noexcept {
    for (std::size_t word = 0; word < phrase.length; ++word, ++index) {
        if (index >= line_.size() || line_[index].word != phrase.words[word]) {
            return false;
        }
    }
    return true;
}

// Labels of parameters are looked for where a command may have them, and `is running` stands
// behind its object.
Parser::Match Parser::matchAt(std::size_t index) const {
    Match found;
    const Word first = line_[std::min(index, line_.size() - 1)].word;
    if (first == Word::none) {
        return found;
    }
    for (const Phrase& phrase : Vocabulary::shared().phrasesOf(first)) {
        if (phrase.length < found.length) {
            break;
        }
        const TermInfo& info = *phrase.info;
        const bool isOther = info.kind == TermKind::parameter || info.term == Term::isRunning;
        if (isOther || !knows(info.dictionary) || !fits(phrase, index)) {
            continue;
        }
        found.length = phrase.length;
        switch (info.kind) {
        case TermKind::command:
            found.command = info.term;
            break;
        case TermKind::type:
            found.type = info.term;
            found.isPlural = phrase.isPlural;
            break;
        case TermKind::property:
            found.property = info.term;
            break;
        default:
            found.constant = info.term;
        }
    }
    return found;
}

std::size_t Parser::lengthOf(Term label) const noexcept {
    const Word first = token().word;
    if (first == Word::none) {
        return 0;
    }
    for (const Phrase& phrase : Vocabulary::shared().phrasesOf(first)) {
        if (phrase.info->term == label && fits(phrase, index_)) {
            return phrase.length;
        }
    }
    return 0;
}

// The name of a class, behind `as` and `make new`.
Term Parser::typeName() {
    if (at(Kind::raw)) {
        if (lowered(lexer_.textOf(token())) != "«class utf8»") {
            failExpected("class name");
        }
        advance();
        return Term::text;
    }
    take(Word::the);
    const Match found = match();
    const bool isAny = found.property == Term::class_;
    if (found.type == Term::none && !isAny) {
        failExpected("class name");
    }
    advance(found.length);
    return isAny && found.type == Term::none ? Term::classClass : found.type;
}

void Parser::learn(Context& context, std::string_view application) {
    std::string name = lowered(application);
    if (name.ends_with(".app")) {
        name.resize(name.size() - 4);
    }
    const bool isFinder = name == "finder" || name == "com.apple.finder";
    const bool isSystemEvents = name == "system events" || name == "com.apple.systemevents";
    context.knowsFinder = context.knowsFinder || isFinder;
    context.knowsSystemEvents = context.knowsSystemEvents || isSystemEvents;
    context.tellsOther = !isFinder && !isSystemEvents;
}

// The applications that the line names.
void Parser::learnLine() {
    lineWords_ = {};
    for (std::size_t index = 0; index + 1 < line_.size(); ++index) {
        if (line_[index].word != Word::app && line_[index].word != Word::application) {
            continue;
        }
        const std::size_t name = index + (line_[index + 1].word == Word::id ? 2 : 1);
        if (name < line_.size() && line_[name].kind == Kind::text) {
            const std::string_view text = lexer_.textOf(line_[name]);
            learn(lineWords_, text.substr(1, text.size() - 2));
        }
    }
}

// A name that may be a variable's.
const Token& Parser::variableName() {
    take(Word::the);
    const Match found = match();
    if (!atName() || (at(Kind::word) && found.length == 1)) {
        failExpected("variable name");
    }
    advance();
    return line_[index_ - 1];
}

} // namespace qv::applescript
