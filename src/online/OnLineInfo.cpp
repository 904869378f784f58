#include "online/OnLineInfo.h"

#include "base/Numbers.h"
#include "base/Text.h"

namespace qz::online {

std::int32_t OnLineInfo::get_OnLineUsers() const
{
    try {
        return to_integer<std::int32_t>(leading_number(ini_.ReadIniValue(kInfoSection, kCountKey)));
    } catch (const EngineError&) { // no engine stands behind this class to report to
        return 0;
    }
}

std::string OnLineInfo::get_UserStatus(const std::string& screen_name) const
{
    return ini_.ReadIniValue(kStatusSection, lower(screen_name));
}

} // namespace qz::online
