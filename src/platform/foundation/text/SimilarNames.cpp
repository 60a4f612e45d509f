#include "platform/foundation/text/SimilarNames.h"

#include <algorithm>

namespace qv {

namespace {

// The optimal string alignment distance.
std::size_t distance(std::string_view left, std::string_view right) {
    std::vector<std::vector<std::size_t>> table(left.size() + 1,
                                                std::vector<std::size_t>(right.size() + 1));
    for (std::size_t i = 0; i <= left.size(); ++i) {
        for (std::size_t j = 0; j <= right.size(); ++j) {
            if (i == 0 || j == 0) {
                table[i][j] = i + j;
                continue;
            }
            const std::size_t exchanged = left[i - 1] == right[j - 1] ? 0 : 1;
            table[i][j] = std::min(
                {table[i - 1][j] + 1, table[i][j - 1] + 1, table[i - 1][j - 1] + exchanged});
            if (i > 1 && j > 1 && left[i - 1] == right[j - 2] && left[i - 2] == right[j - 1]) {
                table[i][j] = std::min(table[i][j], table[i - 2][j - 2] + 1);
            }
        }
    }
    return table[left.size()][right.size()];
}

} // namespace

std::vector<std::string> similarNames(std::string_view word,
                                      const std::vector<std::string>& known) {
    std::size_t nearest = 2;
    std::vector<std::string> names;
    for (const std::string& name : known) {
        const bool isFar = word.size() > name.size() + nearest;
        const std::size_t apart = isFar ? nearest + 1 : distance(word, name);
        if (apart > nearest || 2 * apart >= word.size()) {
            continue;
        }
        if (apart < nearest) {
            names.clear();
        }
        nearest = apart;
        names.push_back(name);
    }
    return names;
}

} // namespace qv
