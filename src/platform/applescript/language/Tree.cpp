#include "platform/applescript/language/Tree.h"

#include <algorithm>
#include <memory>

namespace qv::applescript {

Tree::~Tree() {
    for (Literal* literal : literals_) {
        std::destroy_at(literal);
    }
}

std::string_view Tree::keep(std::string_view text) {
    if (text.empty()) {
        return {};
    }
    char* copy = static_cast<char*>(memory_.allocate(text.size(), 1));
    std::ranges::copy(text, copy);
    return {copy, text.size()};
}

} // namespace qv::applescript
