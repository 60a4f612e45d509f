#pragma once

#include "platform/workspace/applications/DesktopEntry.h"

#include <tl/expected.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qv {

/// The folders in which programs are looked for; the environment is not asked.
inline constexpr std::string_view kProgramPath =
    "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin:/usr/games:/usr/local/games";

/// The program (not looked for as yet, see `findProgram`) and the arguments of an entry's `Exec`,
/// for a start without files. No shell has a part in it.
///
/// Blanks separate arguments. Double quotes may hold anything, with `\` before `"`, `` ` ``, `$`
/// and
/// `\`. Field codes: %f %F %u %U and the deprecated %d %D %n %N %v %m vanish, and an argument that
/// was nothing else with them; %i, alone, becomes `--icon` and the icon, or vanishes without one;
/// %c becomes the name (not localized), %k the path of the file, %% a percent sign.
///
/// The error: "column N: REASON", counting the characters of `exec` from 1. Refused are an empty
/// command; characters outside quotes that a shell would act upon; `` ` `` and `$` in quotes
/// without their `\`, and a `\` before anything else; a missing quote; unknown codes, codes in
/// quotes (but
/// %%) or in the first word; a program that is empty or has `=` in its name; more than 1024
/// arguments or 128 KiB.
[[nodiscard]] tl::expected<std::vector<std::string>, std::string>
commandOf(const DesktopEntry& entry);

/// The absolute path of a program: a regular file, links followed, that somebody may execute. A
/// name with a slash must be an absolute path; another is searched in the absolute folders of
/// `pathList`, which colons separate.
[[nodiscard]] std::optional<std::string> findProgram(std::string_view name,
                                                     std::string_view pathList = kProgramPath);

} // namespace qv
