#include "PlistTestSupport.h"

#include "support/ErrorMatchers.h"

namespace qv::test {

std::string reasonOf(const Error& error) {
    const Value info = error.userInfo();
    const Value* reason = info.find(error_key::kDebugDescription);
    return reason == nullptr ? "no reason" : std::string(reason->asString());
}

std::string readDump(std::string_view data, const PropertyListLimits& limits) {
    const auto document = PropertyList::propertyListWithData(data, limits);
    if (document) {
        return dump(document->root);
    }
    EXPECT_THAT(document, failsWith(error_domain::kCocoa, 3840));
    return "refused: " + reasonOf(document.error());
}

std::string bytes(std::initializer_list<int> values) {
    std::string text;
    for (const int value : values) {
        text += static_cast<char>(value);
    }
    return text;
}

std::string bigEndian(std::size_t number, std::size_t size) {
    std::string text;
    for (std::size_t i = size; i > 0; --i) {
        text += i > 8 ? '\0' : static_cast<char>(number >> (8 * (i - 1)));
    }
    return text;
}

std::string BinaryParts::list() const {
    std::string text = "bplist00";
    std::string table;
    for (std::size_t i = 0; i < objects.size(); ++i) {
        table += bigEndian(offsets.empty() ? text.size() : offsets[i], offsetSize);
        text += objects[i];
    }
    const std::size_t tableOffset = text.size();
    return text + table + std::string(6, '\0') + bigEndian(offsetSize, 1) +
           bigEndian(referenceSize, 1) + bigEndian(objects.size(), 8) + bigEndian(top, 8) +
           bigEndian(tableOffset, 8);
}

BinaryParts binaryChain(std::size_t depth) {
    BinaryParts parts{{}, 0, 4, 4, {}};
    for (std::size_t i = 1; i < depth; ++i) {
        parts.objects.push_back("\xA1" + bigEndian(i, 4));
    }
    parts.objects.push_back("\xA0");
    return parts;
}

} // namespace qv::test
