#include "notify/NoticeText.h"

namespace qz::notify {

std::string greeting(const std::string& first_name)
{
    return "Hi " + first_name + ", this is an automatic message!";
}

std::string separator()
{
    constexpr std::size_t length = 90;
    std::string line;
    line.append(length, '-');
    return line;
}

std::string now_line(DateTime now)
{
    const auto civil = now.civil();
    const auto text = now.text();
    return "Now it's      : " + std::string(day_name(civil.weekday())) + ", 22 "
        + std::string(month_name(civil.month)) + " " + std::to_string(civil.year) + " ; 00:00 at "
        + text.substr(text.find(' ') + 1);
}

std::string text_of(std::initializer_list<std::string_view> lines)
{
    std::string text;
    for (const auto line : lines) {
        text.append(line).append("\r\n");
    }
    return text;
}

std::string notice(
    const std::string& first_name, const std::string& lines, const Administrator& administrator, DateTime now)
{
    return text_of({greeting(first_name), separator()}) + lines
        + text_of({"For any information you may contact the VELTO administrator",
            "Name          : " + administrator.first_name + " " + administrator.last_name,
            "Screen name   : " + administrator.screen_name, "Email         : " + administrator.email,
            now_line(now), separator()});
}

} // namespace qz::notify
