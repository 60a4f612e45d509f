#include "platform/system/KernelParameters.h"

#include "platform/foundation/values/Trimmed.h"
#include "platform/system/ParameterTable.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <limits>

namespace qv {

namespace {

template <typename Integer> std::string bytesOf(Integer integer) {
    return {reinterpret_cast<const char*>(&integer), sizeof integer};
}

template <typename Integer> Integer clamped(const ParameterNumber& number) {
    using Limits = std::numeric_limits<Integer>;
    if (number.isNegative) {
        const auto smallest = static_cast<std::uint64_t>(Limits::max()) + 1;
        return number.magnitude >= smallest ? Limits::min()
                                            : -static_cast<Integer>(number.magnitude);
    }
    return static_cast<Integer>(std::min<std::uint64_t>(number.magnitude, Limits::max()));
}

// The number as bytes of a width: an unsigned number of 64 bits fits eight bytes too.
std::string bytesOf(const ParameterNumber& number, ParameterWidth width) {
    if (width == ParameterWidth::four) {
        return bytesOf(clamped<std::int32_t>(number));
    }
    return number.isNegative ? bytesOf(clamped<std::int64_t>(number)) : bytesOf(number.magnitude);
}

std::optional<KernelParameter> parameterOf(const ParameterRow& row,
                                           const ParameterFinding& finding) {
    std::string bytes;
    auto form = KernelParameter::Form::structure;
    if (const auto* number = std::get_if<ParameterNumber>(&finding)) {
        bytes = bytesOf(*number, row.width);
        form = KernelParameter::Form::number;
    } else if (const auto* text = std::get_if<std::string>(&finding)) {
        bytes = *text;
        if (row.width == ParameterWidth::text) {
            form = KernelParameter::Form::text;
            bytes.push_back('\0');
        }
    } else {
        return std::nullopt;
    }
    if (bytes.size() > KernelParameters::kLongestParameter) {
        return std::nullopt;
    }
    return KernelParameter{.form = form, .text = bytes, .number = bytes};
}

// The path of a name of the kernel's own; empty if it cannot be one.
std::string pathOf(std::string_view name) {
    if (name.size() > KernelParameters::kLongestName || name.find('\0') != std::string_view::npos) {
        return {};
    }
    std::string path("proc/sys");
    for (;;) {
        const std::size_t end = std::min(name.find('.'), name.size());
        std::string part(name.substr(0, end));
        std::ranges::replace(part, '/', '.');
        if (part.empty() || part == "." || part == "..") {
            return {};
        }
        path.append("/").append(part);
        if (end == name.size()) {
            return path;
        }
        name.remove_prefix(end + 1);
    }
}

bool fits(const ParameterNumber& number, std::uint64_t largest) {
    return number.magnitude <= (number.isNegative ? largest + 1 : largest);
}

std::string numberOf(std::string_view text) {
    const auto number = parameterNumber(text);
    if (!number) {
        return {};
    }
    if (fits(*number, std::numeric_limits<std::int32_t>::max())) {
        return bytesOf(*number, ParameterWidth::four);
    }
    return !number->isNegative || fits(*number, std::numeric_limits<std::int64_t>::max())
               ? bytesOf(*number, ParameterWidth::eight)
               : std::string();
}

} // namespace

std::optional<ParameterNumber> parameterNumber(std::string_view text) noexcept {
    text = trimmed(text);
    ParameterNumber number{.isNegative = text.starts_with('-')};
    text.remove_prefix(number.isNegative ? 1 : 0);
    const char* const end = text.data() + text.size();
    const auto [next, fault] = std::from_chars(text.data(), end, number.magnitude);
    return fault == std::errc() && next == end ? std::optional(number) : std::nullopt;
}

std::optional<KernelParameter> KernelParameters::read(std::string_view name) const {
    if (const ParameterRow* row = parameterRow(name)) {
        return parameterOf(*row, row->find({files_, computerModel_}, *row));
    }
    const std::string path = pathOf(name);
    auto text = path.empty() ? std::nullopt : files_.read(path, kLongestParameter + 1);
    if (!text || text->size() > kLongestParameter) {
        return std::nullopt;
    }
    std::string number = numberOf(*text);
    KernelParameter parameter{.form = number.empty() ? KernelParameter::Form::text
                                                     : KernelParameter::Form::number,
                              .text = std::move(*text),
                              .number = std::move(number)};
    if (parameter.text.ends_with('\n')) {
        parameter.text.pop_back();
    }
    parameter.text.push_back('\0');
    return parameter;
}

std::vector<std::string_view> KernelParameters::names() {
    std::vector<std::string_view> names;
    for (const ParameterRow& row : parameterTable()) {
        names.push_back(row.name);
    }
    return names;
}

std::vector<std::string> KernelParameters::nativeNames() const {
    struct Place {
        std::string path;
        std::string name;
    };
    std::vector<std::string> names;
    std::vector<Place> folders{{"proc/sys", ""}};
    while (!folders.empty()) {
        const Place folder = std::move(folders.back());
        folders.pop_back();
        for (const std::string& file : files_.namesIn(folder.path)) {
            if (file == "." || file == "..") {
                continue;
            }
            std::string part = file;
            std::ranges::replace(part, '.', '/');
            Place place{folder.path + "/" + file,
                        folder.name.empty() ? part : folder.name + "." + part};
            if (!files_.namesIn(place.path).empty()) {
                folders.push_back(std::move(place));
            } else if (parameterRow(place.name) == nullptr) {
                names.push_back(std::move(place.name));
            }
        }
    }
    std::ranges::sort(names);
    return names;
}

} // namespace qv
