// One line of what a user sees, and how it looks on a terminal.
#pragma once

#include "base/DateTime.h"
#include "client/Incoming.h"

#include <optional>
#include <string>

namespace velto {

struct Line {
    enum class Kind {
        Message, // from somebody, to this user or to a room
        Own,     // what this user has written
        Receipt, // somebody has a message of this user
        News,    // presence, rooms, answers to a command
        Notice,  // a sentence of the server
        Trouble, // something was not done, or the connection ended
    };
    Kind kind = Kind::News;
    std::string who; // of messages: who wrote it, and where
    std::string text;
    qz::DateTime time;
};

enum class Colour { Off, On };

/// The line as it is printed, without an end of line. Whatever its texts hold, nothing in it steers the
/// terminal but the colours.
std::string render(const Line& line, Colour colour);

/// What came from the server by itself as one line; nothing for what is only of use to a program. The time is
/// left empty.
std::optional<Line> line_of(const qz::client::Incoming& incoming);

/// How a room is shown.
std::string room_name(const std::string& room);

} // namespace velto
