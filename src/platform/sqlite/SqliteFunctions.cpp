#include "platform/sqlite/SqliteFunctions.h"

#include "base/Clock.h"
#include "base/DateTime.h"
#include "base/EngineError.h"
#include "base/Text.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <sqlite3.h>

namespace qz::platform {

namespace {

using Function = void (*)(sqlite3_context*, int, sqlite3_value**);

std::string_view text_of(sqlite3_value* value)
{
    const auto* bytes = static_cast<const char*>(sqlite3_value_blob(value));
    const auto size = static_cast<std::size_t>(sqlite3_value_bytes(value));
    return bytes == nullptr ? std::string_view{} : std::string_view(bytes, size);
}

void give(sqlite3_context* context, std::string_view text)
{
    sqlite3_result_text64(context, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
}

/// A date column's text, or what FormatDate makes of it ("dd/mm/yyyy").
std::optional<DateTime> date_of(sqlite3_value* value)
{
    const auto text = text_of(value);
    if (text.size() != 10 || text[2] != '/' || text[5] != '/') {
        return DateTime::parse(text);
    }
    std::string turned(text.substr(6));
    turned.append("-").append(text.substr(3, 2)).append("-").append(text.substr(0, 2));
    return DateTime::parse(turned);
}

const Clock& clock_of(sqlite3_context* context)
{
    return *static_cast<const Clock*>(sqlite3_user_data(context));
}

// A null argument, or one that is no date, gives null: the row then meets no condition.

void left(sqlite3_context* context, int /*count*/, sqlite3_value** arguments)
{
    if (sqlite3_value_type(arguments[0]) == SQLITE_NULL) {
        return;
    }
    const auto length = sqlite3_value_int64(arguments[1]);
    give(context,
        length <= 0 ? std::string_view{""}
                    : first_characters(text_of(arguments[0]), static_cast<std::size_t>(length)));
}

void len(sqlite3_context* context, int /*count*/, sqlite3_value** arguments)
{
    if (sqlite3_value_type(arguments[0]) != SQLITE_NULL) {
        sqlite3_result_int64(context, static_cast<sqlite3_int64>(character_count(text_of(arguments[0]))));
    }
}

/// instr(text, part): the same as the library's own, which looks at one character after the other. An index
/// asks it of each line of the activity log.
void position(sqlite3_context* context, int /*count*/, sqlite3_value** arguments)
{
    const auto is = [&](int type) {
        return [=](sqlite3_value* value) {
            return sqlite3_value_type(value) == type;
        };
    };
    const std::span<sqlite3_value*> both(arguments, 2);
    if (std::any_of(both.begin(), both.end(), is(SQLITE_NULL))) {
        return;
    }
    const bool bytes = std::all_of(both.begin(), both.end(), is(SQLITE_BLOB));
    const auto text = text_of(both[0]);
    const auto part = text_of(both[1]);
    const auto begins = [&](char c) {
        return bytes || (static_cast<unsigned char>(c) & 0xC0U) != 0x80U;
    };
    auto at = text.find(part);
    while (at != std::string_view::npos && at > 0 && at < text.size() && !begins(text[at])) {
        at = text.find(part, at + 1); // in the middle of a character
    }
    const auto before = at == std::string_view::npos || at == 0 ? std::string_view{} : text.substr(1, at);
    sqlite3_result_int64(
        context, at == std::string_view::npos ? 0 : 1 + std::count_if(before.begin(), before.end(), begins));
}

/// DateDiff('d', from, to): midnights between two dates.
void date_diff(sqlite3_context* context, int /*count*/, sqlite3_value** arguments)
{
    const auto from = date_of(arguments[1]);
    const auto to = date_of(arguments[2]);
    if (from && to && text_of(arguments[0]) == "d") {
        sqlite3_result_int64(context, days_between(*from, *to));
    }
}

/// Format(date, 'dd/mm/yyyy'), the only form that is asked for.
void format_date(sqlite3_context* context, int /*count*/, sqlite3_value** arguments)
{
    const auto date = date_of(arguments[0]);
    if (!date || text_of(arguments[1]) != "dd/mm/yyyy") {
        return;
    }
    const auto civil = date->civil();
    std::array<char, 40> text{};
    const int length =
        std::snprintf(text.data(), text.size(), "%02d/%02d/%04d", civil.day, civil.month, civil.year);
    give(context, {text.data(), static_cast<std::size_t>(length)});
}

void today(sqlite3_context* context, int /*count*/, sqlite3_value** /*arguments*/)
{
    give(context, clock_of(context).now().date_text());
}

/// Stands for datetime('now','localtime') in the defaults of columns; no statement of the engine calls it.
void local_now(sqlite3_context* context, int /*count*/, sqlite3_value** /*arguments*/)
{
    give(context, clock_of(context).now().text());
}

} // namespace

void register_functions(sqlite3* database, const Clock& clock)
{
    struct Registration {
        const char* name;
        int arguments;
        int flags;
        Function function;
    };
    const std::array registrations{
        Registration{"Left", 2, SQLITE_DETERMINISTIC, left},
        Registration{"Len", 1, SQLITE_DETERMINISTIC, len},
        Registration{"DateDiff", 3, SQLITE_DETERMINISTIC, date_diff},
        Registration{"FormatDate", 2, SQLITE_DETERMINISTIC, format_date},
        // Constant while one statement runs, which spares a call for each row.
        Registration{"Today", 0, SQLITE_DETERMINISTIC, today},
        Registration{"instr", 2, SQLITE_DETERMINISTIC | SQLITE_INNOCUOUS, position},
        Registration{"datetime", 2, SQLITE_INNOCUOUS, local_now},
    };
    // The library hands the pointer back without touching what it points to.
    auto* user_data = const_cast<Clock*>(&clock); // NOLINT(cppcoreguidelines-pro-type-const-cast)
    for (const auto& [name, arguments, flags, function] : registrations) {
        const int code = sqlite3_create_function_v2(
            database, name, arguments, SQLITE_UTF8 | flags, user_data, function, nullptr, nullptr, nullptr);
        if (code != SQLITE_OK) {
            throw database_error(DatabaseError::Unspecified, sqlite3_errmsg(database));
        }
    }
}

} // namespace qz::platform
