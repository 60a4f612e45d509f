#pragma once

#include "support/LedProgram.h"
#include "support/StartedProgram.h"
#include "support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

namespace qv::test {

// Users of the machine; their groups have the same numbers.
inline constexpr uid_t kRoot = 0;
inline constexpr uid_t kVictim = 1001;
inline constexpr uid_t kAttacker = 1002;

/// A genuine client (tests/machine/Client.cpp), signed and installed as docs/security.md says.
inline const std::string kClient = "/usr/local/bin/client";
inline const std::string kUnit = "com.larkwen.qvcatalog.helper.service";

/// Runs a shell's command as root, or as a user without any other group.
ProgramRun shell(const std::string& command, uid_t user = kRoot);

/// A genuine client of a user.
[[nodiscard]] std::unique_ptr<LedProgram> clientOf(uid_t user);
/// A program of the attacker, once it is under way.
[[nodiscard]] std::unique_ptr<LedProgram> intruder(std::vector<std::string> arguments);

/// Writes a script, in old-style text and without the outer brackets, and gives its path.
std::string scriptFile(const std::string& steps);
/// A step that runs a shell's command, and one that runs a program in AppleScript.
[[nodiscard]] std::string shellStep(const std::string& command);
[[nodiscard]] std::string appleScriptStep(const std::string& source);

/// The answer of one session: a fresh client sends a script and ends.
std::string session(const std::string& script, uid_t user = kVictim);
/// The time of a session of the victim's that succeeds, in milliseconds.
double timeOfSession(const std::string& script);
[[nodiscard]] double medianOf(std::vector<double> times);

/// Waits until there is such a file.
void awaitFile(const std::string& path);

/// Prints a measured value with its name.
void printFigure(std::string_view what, double value, std::string_view unit);

/// A property of the service's unit.
[[nodiscard]] std::string unitProperty(const std::string& name);

} // namespace qv::test
