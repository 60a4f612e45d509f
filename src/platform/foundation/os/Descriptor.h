#pragma once

#include <utility>

namespace qv {

/// Owns a file descriptor from the moment it exists.
class Descriptor {
public:
    Descriptor() noexcept = default;
    explicit Descriptor(int fd) noexcept : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        const Descriptor old(std::exchange(fd_, std::exchange(other.fd_, -1)));
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor(); ///< leaves errno as it was

    [[nodiscard]] int get() const noexcept { return fd_; }
    explicit operator bool() const noexcept { return fd_ >= 0; }
    [[nodiscard]] int release() noexcept { return std::exchange(fd_, -1); }
    void reset() noexcept { *this = Descriptor(); }

private:
    int fd_ = -1;
};

} // namespace qv
