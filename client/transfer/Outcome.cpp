#include "client/transfer/Outcome.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace qz::client::transfer {

namespace {

struct Row {
    Outcome outcome;
    std::uint8_t code;
    std::string_view here;
    std::string_view at_peer; // only for those with a code
};

constexpr std::array<Row, 19> kRows{{
    {Outcome::Done, 0, "Done.", {}},
    {Outcome::Cancelled, 1, "Cancelled.", "Cancelled by the other side."},
    {Outcome::DiskFull, 2, "There is no room for the file.",
        "There is no room for the file at the other side."},
    {Outcome::CannotWrite, 3, "The file cannot be written.", "The other side cannot write the file."},
    {Outcome::CannotRead, 4, "The file cannot be read.", "The other side cannot read the file."},
    {Outcome::FileChanged, 5, "The file changed while it was sent.", "The file changed while it was sent."},
    {Outcome::WrongChecksum, 6, "What arrived is not what was sent: the checksum is wrong.",
        "What arrived is not what was sent: the checksum is wrong."},
    {Outcome::Misbehaved, 7, "The other program does not keep to the protocol.",
        "The other program says that this one does not keep to the protocol."},
    {Outcome::Unreachable, 8, "Neither side can connect to the other.",
        "Neither side can connect to the other."},
    {Outcome::NoAnswer, 9, "No answer came in time.", "The offer was not taken in time."},
    {Outcome::Forbidden, 0, "The administrator's policy forbids file transfer.", {}},
    {Outcome::PeerOffLine, 0, "The other user is not on line.", {}},
    {Outcome::PeerRefused, 0, "The other user refused the file.", {}},
    {Outcome::ServerLost, 0, "The connection to the server ended before both sides had agreed.", {}},
    {Outcome::Broken, 0, "The connection to the other side broke. Sending the file again goes on from there.",
        {}},
    {Outcome::NameUnusable, 10, "The file's name cannot be used.",
        "The other side cannot use the file's name."},
    {Outcome::OfferedAnew, 0, "The connection broke, and the other side offers the file anew.", {}},
    {Outcome::Oneself, 0, "A file cannot be sent to oneself.", {}},
    {Outcome::Busy, 0, "Too many files are on their way, or that user has not answered an earlier offer yet.",
        {}},
}};

const Row& row_of(Outcome outcome)
{
    return *std::find_if(
        kRows.begin(), kRows.end(), [outcome](const Row& row) { return row.outcome == outcome; });
}

} // namespace

std::uint8_t code_of(Outcome outcome)
{
    return row_of(outcome).code;
}

Outcome outcome_of(std::uint64_t code)
{
    const auto* const row = std::find_if(
        kRows.begin(), kRows.end(), [code](const Row& each) { return each.code != 0 && each.code == code; });
    return row == kRows.end() ? Outcome::Cancelled : row->outcome;
}

std::string describe(const Ending& ending)
{
    const auto& row = row_of(ending.outcome);
    return std::string(ending.at_peer && !row.at_peer.empty() ? row.at_peer : row.here);
}

} // namespace qz::client::transfer
