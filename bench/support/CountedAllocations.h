#pragma once

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

/// Counts the allocations of a program; to be included by one of its sources.
namespace qv::bench {

// NOLINTNEXTLINE(cppcoreguidelines-avoid-non-const-global-variables): operator new has no state
inline std::atomic<std::uint64_t> allocations = 0;

} // namespace qv::bench

// NOLINTBEGIN(cppcoreguidelines-no-malloc,cppcoreguidelines-owning-memory,misc-new-delete-overloads,misc-definitions-in-headers)
void* operator new(std::size_t size) {
    ++qv::bench::allocations;
    if (void* memory = std::malloc(size)) {
        return memory;
    }
    throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }
// NOLINTEND(cppcoreguidelines-no-malloc,cppcoreguidelines-owning-memory,misc-new-delete-overloads,misc-definitions-in-headers)
