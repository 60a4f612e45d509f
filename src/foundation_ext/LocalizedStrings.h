#pragma once

#include "platform/foundation/values/Value.h"

#include <string>
#include <string_view>

namespace qv {

/// The table "Localizable" of a folder of resources, in the language that suits a locale best: the
/// first that there is of `de_DE.lproj/Localizable.strings`, `de.lproj/...`, `Base.lproj/...` and
/// `Localizable.strings`. It is a property list, mostly old-style text: "year" = "Jahr";
class LocalizedStrings {
public:
    /// A table that is missing, longer than 1 MiB or no dictionary is an empty one. The folder is
    /// trusted.
    LocalizedStrings(const std::string& folder, std::string_view localeIdentifier);
    /// The resources of this installation, for the user's locale.
    static LocalizedStrings ofMainBundle();

    /// The string under a key; the key itself where there is none.
    [[nodiscard]] std::string localizedString(std::string_view key) const;

private:
    Value table_;
};

} // namespace qv
