#pragma once

#include "tools/clients/ProgramJudge.h"

#include <string>
#include <vector>

namespace qv::tools {

/// A program that carries the launch mark.
struct InstalledProgram {
    std::string path;
    bool accepted = false;
    std::string client; ///< as which it is accepted, or why it is not
};

/// The installed programs that carry the mark.
struct ClientSurvey {
    std::vector<std::string> folders;
    std::vector<InstalledProgram> programs;
    std::vector<ReportFact> faults; ///< not of one program
};

/// Looks through folders; through /usr, /usr/local, /opt and /srv if none are given.
[[nodiscard]] ClientSurvey surveyOf(const ProgramJudge& judge,
                                    const std::vector<std::string>& folders);

} // namespace qv::tools
