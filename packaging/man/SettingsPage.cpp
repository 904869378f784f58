// Prints the manual page velto-server.ini(5) from the table of settings, so that the page is as true as the
// table.

#include "config/SettingTable.h"

#include <iostream>
#include <string>
#include <string_view>

namespace {

using qz::config::SettingRow;
using qz::config::SettingType;

constexpr std::string_view kHead = R"(.TH VELTO-SERVER.INI 5 "" "VELTO" "File formats"
.SH NAME
velto-server.ini \- settings of the VELTO server
.SH DESCRIPTION
The file
.I VELTO_Server.ini
in the home of a server holds its settings: sections in brackets, and lines
.IR Key = Value .
It is read anew at every access, but for what a server uses only at its start: addresses, ports, provider, most
connections. Sections and keys are found without regard to case. A value ends at 253 characters. Comments begin with a semicolon; they and
entries that the server does not know stay in the file. An entry without a value, a line that is no entry, a misspelt key or section
and a key that stands twice with different values are errors of
.BR "velto\-server check" ,
and the server does not start with them: to switch something off, write False or 0, or remove the entry. Change settings with
.BR "velto\-server config set" ,
or by hand.
.PP
Enciphered values begin with {v1}; what is written plainly in their place is read as it stands. The server keeps sections of its own in the file:
[OnLineInfo], [UsersStatus], [LastDateSentEmail_NewVersion], [DailyJobs].
)";

constexpr std::string_view kFoot = R"(.SH SEE ALSO
.BR velto\-server (8)
)";

/// Text in which nothing is taken for a request of the page.
std::string plain(std::string_view text)
{
    std::string result;
    for (const char c : text) {
        if (c == '\\') {
            result += "\\e";
        } else if (c == '-') {
            result += "\\-";
        } else {
            result += c;
        }
    }
    return result.starts_with('.') || result.starts_with('\'') ? "\\&" + result : result;
}

std::string allowed(const SettingRow& row)
{
    switch (row.type) {
    case SettingType::Address:
        return "An IP address, or \"all\".";
    case SettingType::Integer:
        return "A number from " + std::to_string(row.minimum) + " to " + std::to_string(row.maximum) + ".";
    case SettingType::Boolean:
        return "True or False, written exactly so.";
    case SettingType::Switch:
        return "True or False; also yes or no, on or off, 1 or 0.";
    case SettingType::Choice:
        return "One of: " + std::string(row.choices) + ".";
    case SettingType::Text:
        break;
    }
    return {};
}

void print(const SettingRow& row)
{
    std::cout << ".TP\n.B " << plain(row.key) << "\n" << plain(row.description) << ".\n";
    if (const auto values = allowed(row); !values.empty()) {
        std::cout << plain(values) << "\n";
    }
    std::cout << "Missing: " << plain(row.missing.empty() ? "not set" : row.missing) << ".\n";
    if (!row.init.empty() && row.served && row.init != row.missing) {
        std::cout << "A new home has " << plain(row.init) << ".\n";
    }
    if (row.encoded) {
        std::cout << "Enciphered in the file.\n";
    }
    if (!row.served) {
        std::cout << "Not served yet.\n";
    }
}

} // namespace

int main()
{
    std::cout << kHead;
    std::string_view section;
    for (const auto& row : qz::config::setting_table()) {
        if (row.section != section) {
            section = row.section;
            std::cout << ".SH [" << plain(section) << "]\n";
        }
        print(row);
    }
    std::cout << kFoot;
    return std::cout.flush() ? 0 : 1;
}
