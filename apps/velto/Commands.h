// What a user can type after a slash.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace velto {

class Session;

/// What follows a command.
class Arguments {
public:
    explicit Arguments(std::string_view text) : text_(text) { }
    /// The next word; in quotes it may hold blanks. Empty when there is none.
    std::string word();
    /// All that follows, without the blanks around it.
    std::string rest() const;

private:
    std::string_view text_;
};

struct Command {
    std::string_view name;
    std::string_view parameters; // as /help shows them, those in brackets can be left out
    std::string_view help;
    void (*run)(Session& session, Arguments arguments);
};

/// In the order in which /help shows them.
const std::vector<Command>& command_table();

/// @param line  what was typed, without the slash.
void run_command(Session& session, std::string_view line);

} // namespace velto
