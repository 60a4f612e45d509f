// Two arbitrary versions, a line each, and a third line for a separator: they compare as the rules
// say when these are followed word by word, with lists of components and one method for all levels.

#include "foundation_ext/QVStringTools.h"
#include "platform/foundation/values/Conversions.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <string>
#include <vector>

namespace {

std::vector<std::string> components(std::string_view text, std::string_view separator) {
    std::vector<std::string> parts(1);
    for (std::size_t at = 0; at < text.size();) {
        if (!separator.empty() && text.substr(at).starts_with(separator)) {
            parts.emplace_back();
            at += separator.size();
        } else {
            parts.back() += text[at++];
        }
    }
    return parts;
}

std::int64_t intValue(const std::string& text) {
    return qv::integerValue(text, std::numeric_limits<std::int32_t>::min(),
                            std::numeric_limits<std::int32_t>::max());
}

// Judges the longer list from the first component that the other one lacks.
bool surplusCounts(const std::vector<std::string>& list, std::size_t first) {
    return list[first] != "0" || (first + 1 < list.size() && !list[first + 1].empty());
}

int compared(std::string_view left, std::string_view right, std::string_view separator) {
    const std::vector<std::string> a = components(left, separator);
    const std::vector<std::string> b = components(right, separator);
    const std::size_t common = std::min(a.size(), b.size());
    for (std::size_t i = 0; i < common; ++i) {
        if (a[i] == b[i]) {
            continue;
        }
        if (separator == " ") {
            return intValue(a[i]) > intValue(b[i]) ? 1 : -1;
        }
        if (const int result = compared(a[i], b[i], " "); result != 0) {
            return result;
        }
    }
    if (a.size() > common) {
        return surplusCounts(a, common) ? 1 : 0;
    }
    if (b.size() > common) {
        return surplusCounts(b, common) ? -1 : 0;
    }
    return 0;
}

std::string_view takeLine(std::string_view& text) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return line;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size) {
    const std::string input(data, data + size);
    std::string_view rest = input;
    const std::string_view left = takeLine(rest);
    const std::string_view right = takeLine(rest);
    const bool usual = rest.empty();
    const qv::ComparisonResult result =
        usual ? qv::QVStringTools::compareVersionTo(left, right)
              : qv::QVStringTools::compareVersionTo(left, right, rest);
    if (static_cast<int>(result) != compared(left, right, usual ? "." : rest)) {
        std::abort();
    }
    return 0;
}
