#include "platform/foundation/os/OwnProgram.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <unistd.h>
#include <vector>

namespace qv {

Descriptor openOwnProgram() { return Descriptor(::open("/proc/self/exe", O_RDONLY | O_CLOEXEC)); }

std::string ownProgramPath() {
    std::error_code failure;
    return std::filesystem::read_symlink("/proc/self/exe", failure).native();
}

int executeInstead(const std::string& program) {
    std::ifstream commandLine("/proc/self/cmdline", std::ios::binary);
    std::vector<std::string> words;
    for (std::string word; std::getline(commandLine, word, '\0');) {
        words.push_back(std::move(word));
    }
    if (words.empty()) {
        return EIO; // not ENOENT, which would speak of the program
    }
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    ::execv(program.c_str(), arguments.data());
    return errno;
}

} // namespace qv
