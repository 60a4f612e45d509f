#pragma once

#include "platform/foundation/values/Error.h"

#include <tl/expected.hpp>

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

struct sd_journal;

namespace qv {

/// One record of the journal.
struct JournalEntry {
    std::uint64_t microseconds = 0; ///< when it was received, since 1970
    std::vector<std::pair<std::string, std::string>> fields;

    /// The first value under a name; empty if there is none.
    [[nodiscard]] std::string_view operator[](std::string_view name) const noexcept;
};

/// Reads the system's journal as far as this process may. Errors: NSPOSIXErrorDomain.
class JournalReader {
public:
    /// `folder` holds journal files; empty for this machine's.
    [[nodiscard]] static tl::expected<JournalReader, Error> open(const std::string& folder = {});

    /// Leaves out entries without one of the values given for each name.
    [[nodiscard]] Error match(std::string_view name, std::string_view value);
    /// The next entry will be the first at or after a moment, since 1970.
    [[nodiscard]] Error seek(std::uint64_t microseconds);
    /// Returns false if there is none now.
    [[nodiscard]] tl::expected<bool, Error> next();
    /// The one that `next` came to; fields of more than 64 KiB are cut.
    [[nodiscard]] tl::expected<JournalEntry, Error> entry();
    /// Waits until there may be more, at most so long.
    void wait(std::chrono::microseconds time);

private:
    struct Closer {
        void operator()(sd_journal* journal) const noexcept;
    };
    explicit JournalReader(sd_journal* journal) noexcept : journal_(journal) {}
    std::unique_ptr<sd_journal, Closer> journal_;
};

} // namespace qv
