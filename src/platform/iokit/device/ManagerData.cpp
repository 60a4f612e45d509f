#include "platform/iokit/device/ManagerData.h"

#include "platform/foundation/os/Descriptor.h"
#include "platform/foundation/os/RegularFile.h"

#include <fmt/core.h>

#include <algorithm>
#include <fcntl.h>

namespace qv {

namespace {

constexpr std::size_t kLongestFile = std::size_t{64} << 10U;

std::string firstWord(std::optional<std::string> text) {
    std::string word = std::move(text).value_or("");
    word.resize(std::min(word.find_first_of(" \n/"), word.size()));
    return word;
}

std::string fileName(std::string_view subsystem, std::string_view name,
                     const std::function<std::optional<std::string>(std::string_view)>& attribute) {
    if (const std::string number = firstWord(attribute("dev")); !number.empty()) {
        return (subsystem == "block" ? "b" : "c") + number;
    }
    if (const std::string index =
            firstWord(subsystem == "net" ? attribute("ifindex") : std::nullopt);
        !index.empty()) {
        return "n" + index;
    }
    return fmt::format("+{}:{}", subsystem, name);
}

} // namespace

KeyValues
managerDataOf(const std::string& folder, std::string_view subsystem, std::string_view name,
              const std::function<std::optional<std::string>(std::string_view)>& attribute) {
    const Descriptor data(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!data || subsystem.empty()) {
        return {};
    }
    const Descriptor file(::openat(data.get(), fileName(subsystem, name, attribute).c_str(),
                                   O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
    return file ? parseUdevData(contentOfRegularFile(file.get(), kLongestFile).value_or(""))
                : KeyValues();
}

} // namespace qv
