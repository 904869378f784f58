// What the commands share in talking to a person.
#pragma once

#include <cstddef>
#include <nlohmann/json_fwd.hpp>
#include <string>

namespace velto {

/// Asks for a secret without showing it; from a pipe or file, reads its first line.
/// @throws CommandError when there is no line.
std::string read_secret(const std::string& prompt);

/// Where a password comes from: the first line of a file or of standard input, else a prompt.
struct PasswordSource {
    std::string file;
    bool standard_input = false;
};

/// The first line of a file that holds a secret.
/// @throws CommandError 1 when there is none.
std::string read_secret_file(const std::string& path);

enum class Ask { Never, OnTerminal };

/// Reads a secret that is to be set: on a terminal it is asked for twice, to catch slips.
/// @param ask  Never: reads the first line also when standard input is a terminal.
/// @throws CommandError when there is no line, or the two differ.
std::string read_new_secret(const std::string& prompt, Ask ask);

/// Asks on the terminal; only "y" and "yes" are a yes.
/// @throws CommandError 2 when standard input is no terminal.
bool confirm(const std::string& question);

/// Text that is safe to show, with blanks behind it up to a width and one more.
std::string in_column(const std::string& text, std::size_t width);

/// A line on standard error about what the command does nevertheless.
void warn(const std::string& text);

void print_json(const nlohmann::ordered_json& value);

} // namespace velto
