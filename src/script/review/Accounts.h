#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace qv {

/// The users and groups of this machine by name and by number, each asked for once.
class Accounts {
public:
    /// Returns none for a name that this machine does not know.
    std::optional<std::uint32_t> user(const std::string& name);
    std::optional<std::uint32_t> group(const std::string& name);
    /// Returns none for a number without a name, and for a name that leads to another number.
    std::optional<std::string> userName(std::uint32_t number);
    std::optional<std::string> groupName(std::uint32_t number);

private:
    template <typename Key, typename Answer> using Asked = std::map<Key, std::optional<Answer>>;
    Asked<std::string, std::uint32_t> users_;
    Asked<std::string, std::uint32_t> groups_;
    Asked<std::uint32_t, std::string> userNames_;
    Asked<std::uint32_t, std::string> groupNames_;
};

} // namespace qv
