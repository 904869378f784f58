#include "Names.h"

#include "base/Text.h"
#include "common/Exit.h"
#include "helpers/ProtocolKeywords.h"

namespace velto {

namespace {

constexpr std::size_t kLongestName = 50; // the width of the column in the activity log

[[noreturn]] void refuse(const std::string& what)
{
    throw CommandError(Exit::Usage, what);
}

void require_name(const std::string& kind, const std::string& name)
{
    if (name.empty()) {
        refuse(kind + " must not be empty");
    }
    const auto shown = kind + " \"" + qz::printable(qz::first_characters(name, kLongestName)) + "\"";
    if (qz::character_count(name) > kLongestName) {
        refuse(shown + "... is too long: at most " + std::to_string(kLongestName) + " characters");
    }
    if (qz::printable(name) != name) {
        refuse(shown + " must not have control characters or others that cannot be seen, and must be UTF-8");
    }
    if (qz::has_other_blanks(name)) {
        refuse(shown + " must not have any blank but the plain one");
    }
    if (qz::trim(name) != name) {
        refuse(shown + " must not begin or end with a blank");
    }
}

} // namespace

void require_user_name(const std::string& name)
{
    require_name("the screen name", name);
    const auto& room_prefix = qz::helpers::protocol_keywords().RoomPrefix;
    if (name.starts_with(room_prefix)) {
        refuse("the screen name must not begin with " + room_prefix + ": that is how rooms are named");
    }
    if (name.find('\'') != std::string::npos) {
        refuse("the screen name must not have an apostrophe: such an account could not log on");
    }
}

void require_room_name(const std::string& name)
{
    require_name("the room's name", name);
    const auto& room_prefix = qz::helpers::protocol_keywords().RoomPrefix;
    if (name.find(room_prefix) != std::string::npos) {
        refuse("the room's name must not have a " + room_prefix + ": clients write it before the name");
    }
}

} // namespace velto
