#include "platform/archiver/ArchiveParser.h"

#include "platform/foundation/os/FileBytes.h"
#include "platform/foundation/values/Trimmed.h"

#include <algorithm>
#include <archive.h>
#include <archive_entry.h>
#include <cerrno>
#include <clocale>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace qv::archiver {

namespace {

constexpr std::size_t kReadSize = std::size_t{256} << 10U;
constexpr std::string_view kAppleDouble("\x00\x05\x16\x07", 4);
constexpr std::string_view kSideFolder = "__MACOSX/";

/// A file read by positions, so that neither its offset nor the right to move it is needed.
struct Source {
    int file = -1;
    la_int64_t size = 0;
    la_int64_t position = 0;
    std::unique_ptr<char[]> buffer; // NOLINT(*-avoid-c-arrays): not initialised
};

la_ssize_t readSource(archive* reader, void* data, const void** into) {
    auto& source = *static_cast<Source*>(data);
    *into = source.buffer.get();
    const ssize_t count = ::pread(source.file, source.buffer.get(), kReadSize, source.position);
    if (count < 0) {
        archive_set_error(reader, errno, "%s", errnoText(errno).c_str());
        return ARCHIVE_FATAL;
    }
    source.position += count;
    return count;
}

la_int64_t skipSource(archive* /*reader*/, void* data, la_int64_t wanted) {
    auto& source = *static_cast<Source*>(data);
    const la_int64_t skipped = std::clamp<la_int64_t>(source.size - source.position, 0, wanted);
    source.position += skipped;
    return skipped;
}

la_int64_t seekSource(archive* /*reader*/, void* data, la_int64_t offset, int whence) {
    auto& source = *static_cast<Source*>(data);
    la_int64_t base = 0;
    if (whence == SEEK_CUR) {
        base = source.position;
    } else if (whence == SEEK_END) {
        base = source.size;
    }
    la_int64_t wanted = 0;
    if (__builtin_add_overflow(base, offset, &wanted) || wanted < 0) {
        return ARCHIVE_FATAL;
    }
    source.position = wanted;
    return wanted;
}

struct ReaderReleaser {
    void operator()(archive* reader) const noexcept { archive_read_free(reader); }
};
using Reader = std::unique_ptr<archive, ReaderReleaser>;

bool isAppleDoubleName(std::string_view name) {
    return name.substr(name.rfind('/') + 1).starts_with("._");
}

class Parser {
public:
    Parser(archive* reader, EntrySender& sender) : reader_(reader), sender_(sender) {}

    void run() {
        for (;;) {
            archive_entry* found = nullptr;
            current_ = Entry();
            const int outcome = archive_read_next_header(reader_, &found);
            if (outcome == ARCHIVE_EOF) {
                sender_.send(Entry());
                return;
            }
            const char* name = found == nullptr ? nullptr : archive_entry_pathname(found);
            current_.name = name == nullptr ? "" : name;
            // The library's warnings are contradictions in the archive, or a name that it cannot
            // read.
            if (outcome != ARCHIVE_OK) {
                failAsReader();
                return;
            }
            if (current_.name.starts_with(kSideFolder)) {
                continue;
            }
            if (current_.name.empty() || current_.name.size() > kLongestText) {
                fail("its name is empty, too long or not readable");
                return;
            }
            if (archive_entry_is_encrypted(found) != 0) {
                fail("it is encrypted");
                return;
            }
            takeFacts(found);
            if (!takeKind(found)) {
                return;
            }
        }
    }

private:
    void takeFacts(archive_entry* found) {
        constexpr mode_t kPermissions = 0777;
        current_.mode = archive_entry_perm(found) & kPermissions;
        current_.seconds = archive_entry_mtime_is_set(found) != 0 ? archive_entry_mtime(found)
                                                                  : std::time(nullptr);
        current_.nanoseconds = static_cast<std::uint32_t>(archive_entry_mtime_nsec(found));
    }

    bool takeKind(archive_entry* found) {
        switch (archive_entry_filetype(found)) {
        case AE_IFREG:
            current_.kind = EntryKind::file;
            return sendFile();
        case AE_IFDIR:
            current_.kind = EntryKind::folder;
            sender_.send(current_);
            return true;
        case AE_IFLNK: {
            const char* target = archive_entry_symlink(found);
            current_.kind = EntryKind::link;
            current_.text = target == nullptr ? "" : target;
            if (current_.text.empty() || current_.text.size() > kLongestText) {
                fail("the target of the link is empty or too long");
                return false;
            }
            sender_.send(current_);
            return true;
        }
        default:
            fail("it is neither a file, a folder nor a symbolic link");
            return false;
        }
    }

    bool sendFile() {
        std::string head; // as much of the content as it takes to know AppleDouble data
        bool isDecided = !isAppleDoubleName(current_.name);
        if (isDecided) {
            sender_.send(current_);
        }
        for (;;) {
            const void* block = nullptr;
            std::size_t size = 0;
            la_int64_t offset = 0;
            const int outcome = archive_read_data_block(reader_, &block, &size, &offset);
            if (outcome != ARCHIVE_OK && outcome != ARCHIVE_EOF) {
                // The receiver waits for a piece: an empty one ends the file, which the failure
                // that follows then takes back.
                if (isDecided) {
                    sender_.sendContent({});
                }
                failAsReader();
                return false;
            }
            std::string_view piece(static_cast<const char*>(block), size);
            if (!isDecided) {
                head += piece;
                if (head.starts_with(kAppleDouble)) {
                    return true;
                }
                if (head.size() < kAppleDouble.size() && outcome != ARCHIVE_EOF) {
                    continue;
                }
                isDecided = true;
                sender_.send(current_);
                piece = head;
            }
            if (!piece.empty()) {
                sender_.sendContent(piece);
            }
            if (outcome == ARCHIVE_EOF) {
                sender_.sendContent({});
                return true;
            }
        }
    }

    void failAsReader() {
        const char* cause = archive_error_string(reader_);
        fail(cause == nullptr ? "it cannot be read" : trimmed(cause)); // some end in a newline
    }
    void fail(std::string_view cause) { sender_.sendFailure(current_.name, cause); }

    archive* reader_;
    EntrySender& sender_;
    Entry current_;
};

} // namespace

void prepareParser() {
    // The C library would look before each conversion whether the file has changed if TZ did not
    // name it.
    static_cast<void>(::setenv("TZ", ":/etc/localtime", 1)); // NOLINT(concurrency-mt-unsafe)
    ::tzset();
    static_cast<void>(std::setlocale(LC_CTYPE, "C.UTF-8")); // NOLINT(concurrency-mt-unsafe)
}

void parseArchive(int file, EntrySender& sender) {
    struct stat info{};
    static_cast<void>(::fstat(file, &info));
    Source source{.file = file,
                  .size = info.st_size,
                  .position = 0,
                  .buffer = std::make_unique_for_overwrite<char[]>(kReadSize)}; // NOLINT
    const Reader reader(archive_read_new());
    if (reader == nullptr) {
        return; // without memory: the receiver notices that the end is missing
    }
    archive_read_support_format_zip_seekable(reader.get());
    archive_read_set_callback_data(reader.get(), &source);
    archive_read_set_read_callback(reader.get(), readSource);
    archive_read_set_skip_callback(reader.get(), skipSource);
    archive_read_set_seek_callback(reader.get(), seekSource);
    if (archive_read_open1(reader.get()) != ARCHIVE_OK) {
        sender.sendFailure({}, info.st_size == 0
                                   ? "the archive is empty"
                                   : "this is not a ZIP archive, or its end is missing");
    } else {
        Parser(reader.get(), sender).run();
    }
    sender.flush();
}

} // namespace qv::archiver
