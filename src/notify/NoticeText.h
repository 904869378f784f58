// The pieces that the server's automatic mails are made of.
#pragma once

#include "base/DateTime.h"

#include <initializer_list>
#include <string>
#include <string_view>

namespace qz::notify {

/// Where users turn to.
struct Administrator {
    std::string screen_name;
    std::string first_name;
    std::string last_name;
    std::string email;
};

/// "Hi Anna, this is an automatic message!"
std::string greeting(const std::string& first_name);
/// 90 hyphens.
std::string separator();
/// "Now it's      : Monday, 22 March 2026 ; 00:00 at 09:00:00". The date goes through a pattern in which 22
/// stands for the day, and which asks the time of a date without one. Both are intended: readers of these
/// mails know the line.
std::string now_line(DateTime now);

/// Lines with CR LF behind each.
std::string text_of(std::initializer_list<std::string_view> lines);

/// A whole notice: greeting, the given lines, whom to ask, and the time.
/// @param lines  of text_of.
std::string notice(const std::string& first_name, const std::string& lines,
    const Administrator& administrator, DateTime now);

} // namespace qz::notify
