#include "protocol/RoomNames.h"

#include "base/Text.h"
#include "helpers/ProtocolKeywords.h"

namespace qz::protocol {

namespace {

constexpr std::size_t kLongestName = 50; // as everywhere else where rooms are made

} // namespace

std::optional<std::string> complaint_about_room_name(std::string_view name)
{
    const auto& prefix = helpers::protocol_keywords().RoomPrefix;
    if (trim(name).empty()) {
        return "its name is blank";
    }
    if (character_count(name) > kLongestName) {
        return "its name has more than " + std::to_string(kLongestName) + " characters";
    }
    if (printable(name) != name) {
        return "its name has control characters";
    }
    if (has_other_blanks(name)) {
        return "its name has a blank other than the plain one";
    }
    if (name.find(prefix) != std::string_view::npos) {
        return "its name has a " + prefix + ", which clients write before the name of a room";
    }
    if (trim(name) != name) {
        return "its name begins or ends with a blank";
    }
    return std::nullopt;
}

} // namespace qz::protocol
