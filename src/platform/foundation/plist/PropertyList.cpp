#include "platform/foundation/plist/PropertyList.h"

#include "platform/foundation/plist/BinaryFormat.h"
#include "platform/foundation/plist/BinaryReader.h"
#include "platform/foundation/plist/BinaryWriter.h"
#include "platform/foundation/plist/OldStyleReader.h"
#include "platform/foundation/plist/Refusal.h"
#include "platform/foundation/plist/TextEncoding.h"
#include "platform/foundation/plist/WriteRefusal.h"
#include "platform/foundation/plist/XMLReader.h"
#include "platform/foundation/plist/XMLWriter.h"

#include <utility>

namespace qv {

namespace {

using Result = tl::expected<PropertyListDocument, Error>;

Result documentOf(tl::expected<Value, Error> root, PropertyListFormat format) {
    if (!root) {
        return tl::unexpected(std::move(root.error()));
    }
    return PropertyListDocument{std::move(*root), format};
}

} // namespace

Result PropertyList::propertyListWithData(std::string_view data, const PropertyListLimits& limits) {
    if (data.empty()) {
        return tl::unexpected(
            plist::textRefusal(data, 0, "Cannot parse a NULL or zero-length data"));
    }
    if (data.starts_with(plist::kBinaryMagic)) {
        return documentOf(plist::readBinary(data, limits), PropertyListFormat::binary);
    }
    const tl::expected<plist::DecodedText, Error> text = plist::decodeText(data);
    if (!text) {
        return tl::unexpected(text.error());
    }
    tl::expected<Value, Error> xml = plist::readXML(text->view(), limits);
    if (xml) {
        return documentOf(std::move(xml), PropertyListFormat::xml);
    }
    tl::expected<Value, Error> oldStyle = plist::readOldStyle(text->view(), limits);
    if (oldStyle) {
        return documentOf(std::move(oldStyle), PropertyListFormat::oldStyle);
    }
    return tl::unexpected(plist::withOldStyleError(xml.error(), oldStyle.error()));
}

tl::expected<std::string, Error> PropertyList::dataWithPropertyList(const Value& root,
                                                                    PropertyListFormat format,
                                                                    std::size_t mostText) {
    switch (format) {
    case PropertyListFormat::xml:
        return plist::writeXML(root, mostText);
    case PropertyListFormat::binary:
        return plist::writeBinary(root);
    case PropertyListFormat::oldStyle:
        break;
    }
    return tl::unexpected(plist::writeRefusal({}, "Old-style text is not written"));
}

} // namespace qv
