#include "platform/workspace/applications/Metainfo.h"

#include "platform/foundation/os/CopiedPath.h"
#include "platform/foundation/os/RegularFile.h"
#include "platform/foundation/text/VersionOrder.h"
#include "platform/foundation/values/Trimmed.h"

#include <expat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <new>
#include <system_error>
#include <type_traits>
#include <unistd.h>
#include <utility>
#include <vector>

namespace qv {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kDesktopSuffix = ".desktop";
constexpr std::size_t kPieceLength = std::size_t{256} << 10U;

std::string_view attributeNamed(std::string_view name, const char** attributes) {
    for (; *attributes != nullptr; attributes += 2) {
        if (name == attributes[0]) {
            return attributes[1];
        }
    }
    return {};
}

} // namespace

struct MetainfoReader::State {
    explicit State(std::string_view id) : desktopID(id), parser(XML_ParserCreate(nullptr)) {
        if (!parser) {
            throw std::bad_alloc();
        }
    }

    void startElement(std::string_view name, const char** attributes) {
        constexpr unsigned kDeepest = 64;
        ++depth;
        if (depth > kDeepest) {
            refuse();
        } else if (depth == 1) {
            isComponent = name == "component" || name == "application"; // the latter until 2014
        } else if (depth == 2 && isComponent) {
            const bool isLaunchable =
                name == "launchable" && attributeNamed("type", attributes) == "desktop-id";
            part = name == "releases"             ? Part::releases
                   : name == "id" || isLaunchable ? Part::identifier
                                                  : Part::other;
            text.clear();
        } else if (depth == 3 && part == Part::releases && name == "release") {
            noteRelease(trimmed(attributeNamed("version", attributes)));
        }
    }

    void endElement() {
        if (depth == 2 && part == Part::identifier) {
            const std::string_view id = trimmed(text);
            isOurs = isOurs || id == desktopID ||
                     (desktopID.size() == id.size() + kDesktopSuffix.size() &&
                      desktopID.starts_with(id));
        }
        part = depth == 2 ? Part::other : part;
        --depth;
    }

    void characters(std::string_view bytes) {
        if (depth == 2 && part == Part::identifier && text.size() <= desktopID.size() + kPadding) {
            text += bytes;
        }
    }

    void noteRelease(std::string_view version) {
        constexpr std::size_t kLongest = 256;
        if (!version.empty() && version.size() <= kLongest &&
            (!greatest || compareVersions(*greatest, version) == ComparisonResult::ascending)) {
            greatest = version;
        }
    }

    void refuse() {
        isRefused = true;
        XML_StopParser(parser.get(), XML_FALSE);
    }

    // No exception may cross expat's frames.
    template <typename Handler> static void guarded(void* self, const Handler& handler) noexcept {
        auto& state = *static_cast<State*>(self);
        try {
            if (!state.isRefused) {
                handler(state);
            }
        } catch (...) {
            state.refuse();
        }
    }

    void installHandlers() {
        XML_SetUserData(parser.get(), this);
        XML_SetElementHandler(
            parser.get(),
            [](void* self, const char* name, const char** attributes) {
                guarded(self, [&](State& state) { state.startElement(name, attributes); });
            },
            [](void* self, const char* /*name*/) {
                guarded(self, [](State& state) { state.endElement(); });
            });
        XML_SetCharacterDataHandler(parser.get(), [](void* self, const char* bytes, int size) {
            guarded(self, [&](State& state) {
                state.characters({bytes, static_cast<std::size_t>(size)});
            });
        });
        XML_SetStartDoctypeDeclHandler(parser.get(),
                                       [](void* self, const char* /*name*/, const char* /*system*/,
                                          const char* /*public*/, int internalSubset) {
                                           guarded(self, [&](State& state) {
                                               if (internalSubset != 0) {
                                                   state.refuse();
                                               }
                                           });
                                       });
    }

    // Whether expat waits for the end of something too long.
    [[nodiscard]] bool isBehind() const {
        const auto begun = XML_GetCurrentByteIndex(parser.get());
        return fed - begun > static_cast<std::int64_t>(kPieceLength);
    }

    struct Deleter {
        void operator()(XML_Parser owned) const noexcept { XML_ParserFree(owned); }
    };
    enum class Part : std::uint8_t { other, identifier, releases };
    static constexpr std::size_t kPadding = 1024; // blanks around an identifier

    std::string desktopID;
    std::unique_ptr<std::remove_pointer_t<XML_Parser>, Deleter> parser;
    std::int64_t fed = 0; // bytes
    bool isRefused = false;
    unsigned depth = 0;
    bool isComponent = false;
    Part part = Part::other; // of the component, which is being read
    std::string text;
    bool isOurs = false;
    std::optional<std::string> greatest;
};

MetainfoReader::MetainfoReader(std::string_view desktopID)
    : state_(std::make_unique<State>(desktopID)) {
    state_->installHandlers();
}

MetainfoReader::~MetainfoReader() = default;

bool MetainfoReader::read(std::string_view piece) {
    State& state = *state_;
    while (!state.isRefused && !piece.empty()) {
        const std::string_view part = piece.substr(0, kPieceLength);
        piece.remove_prefix(part.size());
        state.fed += static_cast<std::int64_t>(part.size());
        const XML_Status status =
            XML_Parse(state.parser.get(), part.data(), static_cast<int>(part.size()), XML_FALSE);
        state.isRefused = state.isRefused || status != XML_STATUS_OK || state.isBehind();
    }
    return !state.isRefused;
}

std::optional<std::string> MetainfoReader::finish() {
    State& state = *state_;
    state.isRefused =
        state.isRefused || XML_Parse(state.parser.get(), "", 0, XML_TRUE) != XML_STATUS_OK;
    return state.isRefused || !state.isOurs ? std::nullopt : std::move(state.greatest);
}

namespace {

// The metainfo files of a folder, those that begin with a name first.
std::vector<std::string> metainfoFiles(const std::string& folder, std::string_view name) {
    constexpr std::size_t kMostFiles = 10'000;
    std::vector<std::string> files;
    std::error_code error;
    fs::directory_iterator each(folder, error);
    for (; !error && each != fs::directory_iterator() && files.size() < kMostFiles;
         each.increment(error)) {
        const std::string file = each->path().filename();
        if (file.ends_with(".metainfo.xml") || file.ends_with(".appdata.xml")) {
            files.push_back(file);
        }
    }
    std::ranges::sort(files, {}, [&](const std::string& file) {
        return std::pair(!file.starts_with(name), std::string_view(file));
    });
    return files;
}

// Takes what it reads from `left`.
std::optional<std::string> versionIn(const std::string& path, std::string_view desktopID,
                                     std::size_t& left) {
    const Descriptor file = openRegularFile(path);
    MetainfoReader reader(desktopID);
    std::vector<char> piece(kPieceLength);
    while (file && left > 0) {
        const ssize_t got = ::read(file.get(), piece.data(), std::min(piece.size(), left));
        if (got == 0) {
            return reader.finish();
        }
        if (got > 0) {
            left -= static_cast<std::size_t>(got);
            if (!reader.read({piece.data(), static_cast<std::size_t>(got)})) {
                return std::nullopt;
            }
        } else if (errno != EINTR) {
            return std::nullopt;
        }
    }
    return std::nullopt;
}

} // namespace

std::optional<std::string> versionFromMetainfo(const std::string& entryPath,
                                               const std::string& root) {
    constexpr std::string_view kEntryFolder = "/applications/";
    const std::size_t end = entryPath.rfind(kEntryFolder);
    if (end == std::string::npos || !entryPath.ends_with(kDesktopSuffix)) {
        return std::nullopt;
    }
    std::string desktopID = entryPath.substr(end + kEntryFolder.size());
    std::ranges::replace(desktopID, '/', '-');
    const std::string name = desktopID.substr(0, desktopID.size() - kDesktopSuffix.size());
    std::size_t left = std::size_t{64} << 20U;
    for (const char* kind : {"/metainfo", "/appdata"}) {
        const std::string folder = entryPath.substr(0, end) + kind;
        for (const std::string& file : metainfoFiles(copiedPath(root, folder).value_or(""), name)) {
            const std::string below = std::string(folder).append("/").append(file);
            const std::string path = copiedPath(root, below).value_or("");
            if (auto version = versionIn(path, desktopID, left)) {
                return version;
            }
        }
    }
    return std::nullopt;
}

} // namespace qv
