#include "platform/foundation/plist/XMLWriter.h"

#include "platform/foundation/plist/Base64.h"
#include "platform/foundation/plist/WriteRefusal.h"
#include "platform/foundation/plist/XMLScalars.h"
#include "platform/foundation/values/Expansion.h"

#include <fmt/core.h>

#include <algorithm>
#include <optional>
#include <string_view>
#include <vector>

namespace qv::plist {

namespace {

using Kind = Value::Kind;

constexpr std::string_view kProlog = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                     "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                                     "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                                     "<plist version=\"1.0\">\n";

// The size in MiB or GiB.
std::string sizeText(std::size_t bytes) {
    const std::size_t mebibytes = bytes >> 20U;
    return mebibytes % 1024 == 0 ? fmt::format("{} GiB", mebibytes / 1024)
                                 : fmt::format("{} MiB", mebibytes);
}

class XMLWriter {
public:
    explicit XMLWriter(std::size_t mostText) : mostText_(mostText) {}

    tl::expected<std::string, Error> write(const Value& root) {
        text_ = kProlog;
        error_ = refusalOfText(root, mostText_);
        if (root.isNull()) {
            refuse("XML cannot hold the null object");
        } else if (!error_) {
            begin(root);
        }
        while (!error_ && !frames_.empty()) {
            continueContainer();
        }
        if (error_) {
            return tl::unexpected(std::move(error_));
        }
        text_ += "</plist>\n";
        return std::move(text_);
    }

private:
    void refuse(std::string_view wording) { error_ = writeRefusal(frames_, wording); }

    void indent() { text_.append(frames_.size(), '\t'); }

    void element(std::string_view name, std::string_view content) {
        indent();
        text_.append("<").append(name).append(">").append(content);
        text_.append("</").append(name).append(">\n");
    }

    void line(std::string_view markup) {
        indent();
        text_ += markup;
        text_ += '\n';
    }

    // The next child of the innermost container, or its end.
    void continueContainer() {
        WriteFrame& frame = frames_.back();
        const bool dictionary = frame.container.is(Kind::dictionary);
        if (frame.next == childCount(frame.container)) {
            frames_.pop_back();
            line(dictionary ? "</dict>" : "</array>");
            return;
        }
        if (text_.size() > mostText_) {
            refuse(fmt::format("The tree written out passes {}", sizeText(mostText_)));
            return;
        }
        const Value child = nextChild(frame);
        const std::size_t index = frame.next++;
        if (dictionary) {
            const std::string key(frame.container.asDictionary().key(index));
            appendText("key", key);
        }
        if (!error_) {
            begin(child);
        }
    }

    // Writes a leaf; opens a container.
    void begin(const Value& value) {
        switch (value.kind()) {
        case Kind::array:
        case Kind::dictionary:
            open(value);
            break;
        case Kind::null: // stands for "no arguments"
            open(Value::array({}));
            break;
        case Kind::string:
            appendText("string", value.asString());
            break;
        case Kind::boolean:
            line(value.asBoolean() ? "<true/>" : "<false/>");
            break;
        case Kind::integer:
            element("integer", std::to_string(value.asInteger()));
            break;
        case Kind::unsignedInteger:
            element("integer", std::to_string(value.asUnsignedInteger()));
            break;
        case Kind::real:
            element("real", realText(value.asReal()));
            break;
        case Kind::date:
            appendDate(value.asDate());
            break;
        case Kind::data:
            element("data", encodeBase64(value.asData()));
            break;
        case Kind::uid:
            appendUID(value.asUID());
            break;
        default:
            refuse(fmt::format("XML cannot hold an object of class {}", className(value.kind())));
        }
    }

    // Whether one more container may stand here.
    bool hasRoom() {
        if (frames_.size() == kDeepestWritten) {
            refuse("Too many nested arrays or dictionaries");
            return false;
        }
        return true;
    }

    void open(const Value& container) {
        const bool dictionary = container.is(Kind::dictionary);
        if (!hasRoom()) {
            return;
        }
        if (childCount(container) == 0) {
            line(dictionary ? "<dict/>" : "<array/>");
        } else {
            line(dictionary ? "<dict>" : "<array>");
            frames_.push_back({.container = container});
        }
    }

    void appendDate(Date date) {
        const std::optional<std::string> text = dateText(date);
        if (text) {
            element("date", *text);
        } else {
            refuse("XML cannot hold a date outside the years 0 to 9999");
        }
    }

    // Reads back as what it is, though it is spelled as a dictionary.
    void appendUID(UID uid) {
        if (!hasRoom()) {
            return;
        }
        line("<dict>");
        text_ += '\t';
        element("key", "CF$UID");
        text_ += '\t';
        element("integer", std::to_string(uid.index));
        line("</dict>");
    }

    void appendText(std::string_view name, std::string_view content) {
        const auto special = [](char c) {
            return static_cast<unsigned char>(c) < 0x20 || c == '<' || c == '>' || c == '&' ||
                   c == '\xEF';
        };
        if (std::ranges::none_of(content, special)) {
            element(name, content);
            return;
        }
        std::string escaped;
        for (std::size_t i = 0; i < content.size(); ++i) {
            if (!appendEscaped(escaped, content.substr(i))) {
                refuse("XML cannot hold a control character or non-character");
                return;
            }
        }
        element(name, escaped);
    }

    // The first byte of `rest`; false when what it begins has no place in XML.
    static bool appendEscaped(std::string& escaped, std::string_view rest) {
        const char c = rest.front();
        switch (c) {
        case '<':
            escaped += "&lt;";
            return true;
        case '>':
            escaped += "&gt;";
            return true;
        case '&':
            escaped += "&amp;";
            return true;
        case '\r': // other readers turn a bare one into a line feed
            escaped += "&#13;";
            return true;
        default:
            escaped += c;
            return (static_cast<unsigned char>(c) >= 0x20 || c == '\t' || c == '\n') &&
                   !rest.starts_with("\xEF\xBF\xBE") && !rest.starts_with("\xEF\xBF\xBF");
        }
    }

    std::size_t mostText_;
    std::string text_;
    std::vector<WriteFrame> frames_;
    Error error_;
};

} // namespace

tl::expected<std::string, Error> writeXML(const Value& root, std::size_t mostText) {
    return XMLWriter(mostText).write(root);
}

} // namespace qv::plist
