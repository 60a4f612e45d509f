// Prints what this process inherited, one fact a line.

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

void showSignals() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("SigBlk:") || line.starts_with("SigIgn:")) {
            std::ranges::replace(line, '\t', ' ');
            fmt::print("{}\n", line);
        }
    }
}

void showDescriptors() {
    std::vector<int> open;
    for (int fd = 0; fd < 1024; ++fd) {
        struct stat info{};
        if (::fstat(fd, &info) == 0) {
            open.push_back(fd);
        }
    }
    fmt::print("descriptors {}\n", fmt::join(open, " "));
}

} // namespace

int main(int count, char** words) {
    for (int i = 0; i < count; ++i) {
        fmt::print("argument {}\n", words[i]);
    }
    for (char** variable = environ; *variable != nullptr; ++variable) {
        fmt::print("variable {}\n", *variable);
    }
    fmt::print("folder {}\n", std::filesystem::current_path().string());
    fmt::print("mask {:03o}\n", ::umask(0));
    showSignals();
    showDescriptors();
    fmt::print("own group {}\n", ::getpgrp() == ::getpid());
    return 0;
}
