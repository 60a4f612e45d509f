#pragma once

#include "platform/applescript/world/context/WorldContext.h"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qv::applescript::world {

/// The question of a dialog.
struct DialogRequest {
    std::string text;
    std::string title;
    std::vector<std::string> buttons; ///< one to three, in the script's order
    std::size_t defaultButton = 0;
    std::optional<std::size_t> cancelButton;
    /// The initial content of its field for a text; none: no field.
    std::optional<std::string> answer;
    bool hidesAnswer = false;
    std::string icon; ///< error, warning or information
};

struct ListRequest {
    std::string text;
    std::string title;
    std::vector<std::string> items;
    std::vector<std::string> chosen;
    bool choosesSeveral = false;
};

struct FileRequest {
    std::string title;
    std::string folder; ///< the folder that it begins with, or empty
    bool choosesFolder = false;
    bool choosesSeveral = false;
};

/// The answer to it.
struct DialogAnswer {
    bool isCanceled = false; ///< a window that was closed, where that is not a button
    bool gaveUp = false;
    std::string button;
    std::string text;
    std::vector<std::string> chosen;
};

/// A program that shows windows in a session, run as its user.
class DialogProgram {
public:
    /// Throws -1713 where there is none.
    explicit DialogProgram(WorldContext& context);

    /// `time`: the time after which it is given up.
    [[nodiscard]] DialogAnswer ask(const DialogRequest& request, std::chrono::milliseconds time);
    [[nodiscard]] DialogAnswer choose(const ListRequest& request, std::chrono::milliseconds time);
    [[nodiscard]] DialogAnswer chooseFiles(const FileRequest& request,
                                           std::chrono::milliseconds time);

private:
    struct Outcome;
    [[nodiscard]] Outcome run(std::vector<std::string> words, std::chrono::milliseconds time);
    [[nodiscard]] DialogAnswer chosenBy(std::vector<std::string> words,
                                        std::chrono::milliseconds time);

    WorldContext* context_;
    std::string program_;
    bool isZenity_ = false;
};

} // namespace qv::applescript::world
