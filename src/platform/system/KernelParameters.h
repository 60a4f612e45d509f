#pragma once

#include "platform/system/KernelFiles.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qv {

/// The value of a parameter as bytes: an integer in host order, of 4 or 8 bytes; a text with its
/// NUL, which the size counts; a structure as it lies in memory.
struct KernelParameter {
    enum class Form : std::uint8_t { text, number, structure };

    Form form;          ///< its form for programs
    std::string text;   ///< the result of a question for a text
    std::string number; ///< the result of a question for an integer; empty if there is none
};

/// Reads the kernel's parameters by name. Names that programs know from BSD systems come first,
/// with the widths that they have there: "hw.ncpu", "kern.osrelease". For them both questions read
/// the same bytes, and a number beyond the width is clamped to the largest or smallest that fits.
///
/// Every other name is the kernel's own, below /proc/sys: "kernel.pid_max" is kernel/pid_max, and
/// a "/" in a name stands for a dot in the file's. Its text comes without the one line feed at its
/// end. A text that is exactly one decimal number, between blanks or not, is a number too: of 4
/// bytes if it fits a signed number of that width, else of 8, signed or unsigned.
///
/// Nothing is kept from one reading to the next, and nothing is ever written.
class KernelParameters {
public:
    /// Parameters with longer values are unknown.
    static constexpr std::size_t kLongestParameter = std::size_t{64} << 10U;
    static constexpr std::size_t kLongestName = 255;

    using ComputerModel = std::function<std::optional<std::string>()>;

    /// `root`: as for KernelFiles. A copied root has no system calls to ask: a parameter that only
    /// they know is unknown there. `computerModel` gives the value of "hw.model".
    explicit KernelParameters(std::string root, ComputerModel computerModel)
        : files_(std::move(root)), computerModel_(std::move(computerModel)) {}

    /// Returns none if the parameter is unknown: no such name, one that this machine does not
    /// have, a folder, or one that this process may not read.
    [[nodiscard]] std::optional<KernelParameter> read(std::string_view name) const;

    /// The names of BSD systems, sorted, whether this machine knows their values or not.
    [[nodiscard]] static std::vector<std::string_view> names();
    /// The kernel's own names, sorted: all files below /proc/sys but those that would have a name
    /// of BSD systems.
    [[nodiscard]] std::vector<std::string> nativeNames() const;

private:
    KernelFiles files_;
    ComputerModel computerModel_;
};

} // namespace qv
