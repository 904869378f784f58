#include "platform/sqlite/SqliteFunctions.h"

#include "base/Clock.h"
#include "base/DateTime.h"
#include "base/EngineError.h"

#include <algorithm>
#include <array>
#include <span>
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

const Clock& clock_of(sqlite3_context* context)
{
    return *static_cast<const Clock*>(sqlite3_user_data(context));
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

/// DateDiff('d', from, to): midnights between two dates. Null when an argument is null or no date: the row
/// then meets no condition.
void date_diff(sqlite3_context* context, int /*count*/, sqlite3_value** arguments)
{
    const auto from = DateTime::parse(text_of(arguments[1]));
    const auto to = DateTime::parse(text_of(arguments[2]));
    if (from && to && text_of(arguments[0]) == "d") {
        sqlite3_result_int64(context, days_between(*from, *to));
    }
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
        Registration{"DateDiff", 3, SQLITE_DETERMINISTIC, date_diff},
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
