#pragma once

#include "platform/foundation/values/Value.h"
#include "script/review/Finding.h"
#include "tools/terminal/Result.h"

#include <tl/expected.hpp>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace qv::tools {

/// A place in a text file, both from 1; the column counts characters.
struct TextPosition {
    std::size_t line;
    std::size_t column;
    std::size_t offset; ///< in bytes, from 0
};

struct ScriptText;

/// A script as a file holds it: exact steps or the form that people write, as JSON with comments or
/// as a property list. Copies share what is known of the text.
struct ScriptSource {
    std::string file; ///< as messages name it
    std::string content;
    /// The exact steps, one for each that the file holds, so that indexes agree; a part of a step
    /// that could not be built is missing in it, and is among the faults.
    Value steps;
    /// Mistakes that keep steps from being built: the script must not be sent. Those of severity
    /// warning, comments that allow a finding without a reason, do not keep it.
    std::vector<Finding> faults;
    /// `content` is a property list of the steps as they stand, or of something else than a script.
    bool isExact = false;
    bool isOldStyle = false;                ///< an old-style list, which has texts for numbers
    std::shared_ptr<const ScriptText> text; ///< null: a binary list, or not in UTF-8

    [[nodiscard]] bool canBeSent() const;
    /// The place of a finding, under its key as written or as the exact step names it; none in a
    /// binary list and in text of another encoding than UTF-8.
    [[nodiscard]] std::optional<TextPosition> positionOf(const Finding& finding) const;
    /// The reason for which a comment of the file allows a finding; none if it does not.
    [[nodiscard]] std::optional<std::string> allowance(const Finding& finding) const;
};

/// Reads "-" from standard input. ExitStatus::usage for a file that cannot be read, or is none of
/// the encodings, with the place.
[[nodiscard]] tl::expected<ScriptSource, Failure> readScript(const std::string& file);

} // namespace qv::tools
