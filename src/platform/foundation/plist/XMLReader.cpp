#include "platform/foundation/plist/XMLReader.h"

#include "platform/foundation/plist/Refusal.h"
#include "platform/foundation/plist/XMLBuilder.h"
#include "platform/foundation/plist/XMLMarkup.h"

#include <expat.h>
#include <fmt/core.h>

#include <exception>
#include <memory>
#include <new>
#include <string>

namespace qv::plist {

namespace {

constexpr std::string_view kEndOfText = "Encountered unexpected EOF";
constexpr std::string_view kBadReference =
    "Encountered unknown ampersand-escape sequence at line {line}";
constexpr std::size_t kLargestText = std::size_t{1} << 30U; // expat counts in int

struct ParserDeleter {
    void operator()(XML_Parser parser) const noexcept { XML_ParserFree(parser); }
};
using UniqueParser = std::unique_ptr<std::remove_pointer_t<XML_Parser>, ParserDeleter>;

// A name for a message, without braces that the message would take for its own.
std::string shownName(std::string_view name) {
    constexpr std::size_t kMost = 64;
    return name.size() <= kMost ? std::string(name) : std::string("(a long name)");
}

// Feeds the builder with expat's events. Parsing stops at the first refusal and at the end of the
// outermost element, so that what follows it does not matter.
class ExpatReader {
public:
    ExpatReader(std::string_view text, const PropertyListLimits& limits)
        : text_(text), markup_(text), builder_(text, limits), parser_(XML_ParserCreate("UTF-8")) {
        if (!parser_) {
            throw std::bad_alloc();
        }
    }

    tl::expected<Value, Error> read() {
        start_ = text_.find_first_not_of(kXMLSpace);
        if (start_ == std::string_view::npos) {
            return refuse(text_.size(), kEndOfText);
        }
        if (text_[start_] != '<') {
            return refuse(start_, fmt::format("Unexpected character {} at line {{line}}",
                                              shownCharacter(text_, start_)));
        }
        if (text_.size() > kLargestText) {
            return refuse(0, "Encountered more than 1 GiB of text");
        }
        installHandlers();
        const std::string_view markup = markup_.wellFormed().substr(start_);
        const XML_Status status =
            XML_Parse(parser_.get(), markup.data(), static_cast<int>(markup.size()), XML_TRUE);
        if (thrown_) {
            std::rethrow_exception(thrown_);
        }
        if (status != XML_STATUS_OK && !builder_.error() && !builder_.finished()) {
            reportExpatError();
        }
        return builder_.takeResult();
    }

private:
    struct OpenLeaf {
        XMLTag tag;
        std::size_t offset;
        std::size_t contentOffset;
    };

    tl::unexpected<Error> refuse(std::size_t offset, std::string_view wording) {
        return tl::unexpected(textRefusal(text_, offset, wording));
    }

    [[nodiscard]] std::size_t eventOffset() const {
        return start_ + static_cast<std::size_t>(XML_GetCurrentByteIndex(parser_.get()));
    }
    [[nodiscard]] std::size_t eventSize() const {
        return static_cast<std::size_t>(XML_GetCurrentByteCount(parser_.get()));
    }

    // No exception may cross expat's frames.
    template <typename Handler> static void guarded(void* self, Handler&& handler) noexcept {
        auto& reader = *static_cast<ExpatReader*>(self);
        bool goOn = false;
        try {
            goOn = !reader.builder_.error() && std::forward<Handler>(handler)(reader);
        } catch (...) {
            reader.thrown_ = std::current_exception();
        }
        if (!goOn) {
            XML_StopParser(reader.parser_.get(), XML_FALSE);
        }
    }

    void installHandlers() {
        XML_Parser parser = parser_.get();
        XML_SetUserData(parser, this);
        XML_SetElementHandler(
            parser,
            [](void* self, const char* name, const char** /*attributes*/) {
                guarded(self, [&](ExpatReader& reader) { return reader.startElement(name); });
            },
            [](void* self, const char* /*name*/) {
                guarded(self, [](ExpatReader& reader) { return reader.endElement(); });
            });
        XML_SetCharacterDataHandler(parser, [](void* self, const char* bytes, int size) {
            guarded(self, [&](ExpatReader& reader) {
                return reader.characters({bytes, static_cast<std::size_t>(size)});
            });
        });
        XML_SetCommentHandler(parser, [](void* self, const char* /*comment*/) {
            guarded(self, [](ExpatReader& reader) { return reader.interruption("a comment"); });
        });
        XML_SetProcessingInstructionHandler(
            parser, [](void* self, const char* /*target*/, const char* /*data*/) {
                guarded(self, [](ExpatReader& reader) {
                    return reader.interruption("a processing instruction");
                });
            });
        XML_SetStartDoctypeDeclHandler(parser, [](void* self, const char* /*name*/,
                                                  const char* /*system*/, const char* /*public*/,
                                                  int internalSubset) {
            guarded(self, [&](ExpatReader& reader) {
                return internalSubset == 0 ||
                       reader.fail("Encountered a DOCTYPE with an internal subset on line {line}");
            });
        });
        // Expat takes unknown entities for declared in the external subset that a DOCTYPE names,
        // and only mentions them.
        XML_SetSkippedEntityHandler(
            parser, [](void* self, const char* /*name*/, int /*parameter*/) {
                guarded(self, [](ExpatReader& reader) { return reader.fail(kBadReference); });
            });
    }

    bool fail(std::string_view wording) { return builder_.fail(eventOffset(), wording); }

    bool startElement(std::string_view name) {
        if (leaf_) {
            return fail(fmt::format("Encountered <{}> inside <{}> on line {{line}}",
                                    shownName(name), nameOf(leaf_->tag)));
        }
        const std::optional<XMLTag> tag = tagNamed(name);
        if (!tag) {
            return fail(
                fmt::format("Encountered unknown tag {} on line {{line}}", shownName(name)));
        }
        if (isContainer(*tag)) {
            return builder_.open(*tag, eventOffset());
        }
        leaf_ = {*tag, eventOffset(), eventOffset() + eventSize()};
        content_.clear();
        return true;
    }

    bool endElement() {
        if (!leaf_) {
            return builder_.close(eventOffset()) && !builder_.finished();
        }
        const bool selfClosing = eventSize() == 0; // the tag's bytes belong to its start
        const XMLLeaf leaf{leaf_->tag, selfClosing, content_, leaf_->offset, leaf_->contentOffset};
        leaf_.reset();
        return builder_.leaf(leaf) && !builder_.finished();
    }

    bool characters(std::string_view bytes) {
        if (leaf_) {
            // The markup of a reference is longer than its text.
            const std::size_t size = eventSize();
            if (text_[eventOffset()] == '&' && size != bytes.size()) {
                content_ += bytes;
            } else { // not `bytes`: expat turns CR and CR LF into LF, lists keep them
                markup_.appendContent(content_, eventOffset(), size);
            }
            return true;
        }
        const std::size_t place = bytes.find_first_not_of(kXMLSpace);
        if (place == std::string_view::npos) {
            return true;
        }
        return builder_.fail(
            eventOffset() + place,
            fmt::format(
                "Encountered unexpected character {} on line {{line}} while looking for open tag",
                shownCharacter(text_, eventOffset() + place)));
    }

    bool interruption(std::string_view what) {
        return !leaf_ || fail(fmt::format("Encountered {} inside <{}> on line {{line}}", what,
                                          nameOf(leaf_->tag)));
    }

    // Whether a fault is in a reference, which an ampersand begins.
    [[nodiscard]] bool followsAmpersand(std::size_t offset) const {
        const std::size_t place = text_.rfind('&', offset);
        if (place == std::string_view::npos) {
            return false;
        }
        const std::string_view between = text_.substr(place, offset - place);
        return between.find_first_of("; \t\r\n<>") == std::string_view::npos;
    }

    bool reportExpatError() {
        const XML_Error code = XML_GetErrorCode(parser_.get());
        const std::size_t offset = eventOffset();
        switch (code) {
        case XML_ERROR_NO_MEMORY:
            throw std::bad_alloc();
        case XML_ERROR_NO_ELEMENTS:
        case XML_ERROR_UNCLOSED_TOKEN:
        case XML_ERROR_PARTIAL_CHAR:
        case XML_ERROR_UNCLOSED_CDATA_SECTION:
        case XML_ERROR_ASYNC_ENTITY:
            if (text_.substr(offset).starts_with("<!--")) {
                return fail("Unterminated comment started on line {line}");
            }
            return builder_.fail(text_.size(), kEndOfText);
        case XML_ERROR_TAG_MISMATCH: {
            const XMLTag open = leaf_ ? leaf_->tag : builder_.innermost().value_or(XMLTag::plist);
            return fail(
                fmt::format("Close tag on line {{line}} does not match open tag {}", nameOf(open)));
        }
        case XML_ERROR_SYNTAX:
            return fail(fmt::format(
                "Encountered unexpected character {} on line {{line}} while looking for open tag",
                shownCharacter(text_, offset)));
        case XML_ERROR_UNDEFINED_ENTITY:
        case XML_ERROR_BAD_CHAR_REF:
            return fail(kBadReference);
        default:
            return fail(followsAmpersand(offset)
                            ? std::string(kBadReference)
                            : fmt::format("Encountered malformed XML ({}) on line {{line}}",
                                          XML_ErrorString(code)));
        }
    }

    std::string_view text_;
    XMLMarkup markup_;
    std::size_t start_ = 0; // expat counts from here
    XMLBuilder builder_;
    UniqueParser parser_;
    std::optional<OpenLeaf> leaf_;
    std::string content_; // of leaf_
    std::exception_ptr thrown_;
};

} // namespace

tl::expected<Value, Error> readAnyXML(std::string_view text, const PropertyListLimits& limits) {
    return ExpatReader(text, limits).read();
}

tl::expected<Value, Error> readXML(std::string_view text, const PropertyListLimits& limits) {
    if (std::optional<Value> plain = readPlainXML(text, limits)) {
        return std::move(*plain);
    }
    return readAnyXML(text, limits);
}

} // namespace qv::plist
