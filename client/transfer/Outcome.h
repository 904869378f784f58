// How the transfer of a file can end.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace qz::client::transfer {

enum class Outcome {
    Done,          // the whole file has arrived and is safe
    Cancelled,     // a user's wish
    Forbidden,     // the administrator's policy
    PeerOffLine,   // the other user is not on line
    PeerRefused,   // the other user does not want the file
    NoAnswer,      // the other user, or the other program, did not answer in time
    ServerLost,    // the connection to the server ended before the two agreed
    Unreachable,   // neither of the two clients can connect to the other
    Broken,        // the connection between the two broke and did not come back; sending again resumes
    DiskFull,      // no room for the file
    CannotWrite,   // the receiver's folder
    CannotRead,    // the sender's file
    FileChanged,   // while it was sent
    WrongChecksum, // what arrived is not what was sent
    Misbehaved,    // the other side does not keep to the protocol
    NameUnusable,  // nothing of the offered name can name a file
    OfferedAnew,   // by the same user, after a break: that offer goes on with it
    Oneself,       // there is nobody else
    Busy,          // too many transfers at once, or an offer to that user is not answered yet
};

/// The number of an outcome between two clients; 0 for those that one does not tell the other.
std::uint8_t code_of(Outcome outcome);
/// Cancelled for a number that means nothing.
Outcome outcome_of(std::uint64_t code);

struct Ending {
    Outcome outcome = Outcome::Done;
    bool at_peer = false; // the other side found it and said so
    std::string detail{}; // a sentence of the system or of the server; may be empty
};

/// One English sentence for the user, without the detail.
std::string describe(const Ending& ending);

} // namespace qz::client::transfer
