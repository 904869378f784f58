// What a running engine tells of itself to its host: for `velto-server status`, service managers, consoles.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace qz::server {

struct Figures {
    std::int64_t users_on_line = 0; // a user with several sessions counts with each
    std::int64_t connections = 0;   // also those that have not logged on
    std::int64_t queued_messages = 0;
    // Of all messages that were ever kept, where DurableQueue is on: accepted are confirmed, expired, or
    // wait.
    std::int64_t messages_accepted = 0;
    std::int64_t messages_confirmed = 0;
    std::int64_t messages_expired = 0;
    std::int64_t accounts = 0;
    std::string database;          // what is connected, for people; empty while nothing is
    bool settings_in_force = true; // the settings file as it is now
    std::string settings_trouble;  // why it is not, for people

    bool operator==(const Figures&) const = default;
};

/// A number of the above under the name that programs read, and with words for people.
struct FigureRow {
    std::string_view name;
    std::string_view words;
    std::int64_t Figures::*value;
};

/// In the order in which they are shown. A new number is a member above and a row here; whatever shows
/// figures goes by this table.
inline constexpr std::array kFigureRows{
    FigureRow{"users_on_line", "users on line", &Figures::users_on_line},
    FigureRow{"connections", "connections", &Figures::connections},
    FigureRow{"queued_messages", "messages waiting", &Figures::queued_messages},
    FigureRow{"messages_accepted", "messages accepted", &Figures::messages_accepted},
    FigureRow{"messages_confirmed", "messages confirmed", &Figures::messages_confirmed},
    FigureRow{"messages_expired", "messages expired", &Figures::messages_expired},
    FigureRow{"accounts", "accounts", &Figures::accounts},
};

} // namespace qz::server
