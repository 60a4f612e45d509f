#include "platform/journal/JournalReader.h"

#include <systemd/sd-journal.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <unistd.h>
#include <utility>

namespace qv {

namespace {

// Whether there is a journal of the system that this user may not read; the library would show one
// without entries.
bool isRefused() {
    for (const char* folder : {"/run/log/journal", "/var/log/journal"}) {
        std::error_code failure;
        for (const auto& machine : std::filesystem::directory_iterator(folder, failure)) {
            const std::filesystem::path file = machine.path() / "system.journal";
            if (::access(file.c_str(), R_OK) != 0 && errno == EACCES) {
                return true;
            }
        }
    }
    return false;
}

// The library answers with negative errno numbers.
Error errorOf(int result) { return result < 0 ? Error::posix(-result) : Error(); }

} // namespace

void JournalReader::Closer::operator()(sd_journal* journal) const noexcept {
    ::sd_journal_close(journal);
}

std::string_view JournalEntry::operator[](std::string_view name) const noexcept {
    const auto field = std::ranges::find(fields, name, &std::pair<std::string, std::string>::first);
    return field == fields.end() ? std::string_view() : std::string_view(field->second);
}

tl::expected<JournalReader, Error> JournalReader::open(const std::string& folder) {
    sd_journal* journal = nullptr;
    const int result = folder.empty()
                           ? ::sd_journal_open(&journal, SD_JOURNAL_LOCAL_ONLY | SD_JOURNAL_SYSTEM)
                           : ::sd_journal_open_directory(&journal, folder.c_str(), 0);
    if (Error error = errorOf(result)) {
        return tl::unexpected(std::move(error));
    }
    JournalReader reader(journal);
    return folder.empty() && isRefused() ? tl::unexpected(Error::posix(EACCES))
                                         : tl::expected<JournalReader, Error>(std::move(reader));
}

Error JournalReader::match(std::string_view name, std::string_view value) {
    const std::string match = std::string(name) + "=" + std::string(value);
    return errorOf(::sd_journal_add_match(journal_.get(), match.data(), match.size()));
}

Error JournalReader::seek(std::uint64_t microseconds) {
    return errorOf(::sd_journal_seek_realtime_usec(journal_.get(), microseconds));
}

tl::expected<bool, Error> JournalReader::next() {
    const int result = ::sd_journal_next(journal_.get());
    if (Error error = errorOf(result)) {
        return tl::unexpected(std::move(error));
    }
    return result > 0;
}

tl::expected<JournalEntry, Error> JournalReader::entry() {
    JournalEntry entry;
    if (Error error =
            errorOf(::sd_journal_get_realtime_usec(journal_.get(), &entry.microseconds))) {
        return tl::unexpected(std::move(error));
    }
    const void* data = nullptr;
    std::size_t size = 0;
    ::sd_journal_restart_data(journal_.get());
    while (::sd_journal_enumerate_available_data(journal_.get(), &data, &size) > 0) {
        const std::string_view field(static_cast<const char*>(data), size);
        const std::size_t equals = std::min(field.find('='), size);
        entry.fields.emplace_back(field.substr(0, equals),
                                  field.substr(std::min(equals + 1, size)));
    }
    return entry;
}

void JournalReader::wait(std::chrono::microseconds time) {
    static_cast<void>(::sd_journal_wait(journal_.get(), static_cast<std::uint64_t>(time.count())));
}

} // namespace qv
