#include "platform/sqlite/SqliteActivity.h"

#include <variant>

namespace qz::platform {

namespace {

using namespace std::chrono_literals;

// At most half a millisecond's work ten times a second: a server that logs no more than 5,000 lines a second
// for long is never far behind.
constexpr std::int64_t kLinesAtOnce = 500;
constexpr auto kPause = 100ms;
constexpr std::int64_t kAllLines = -1; // to LIMIT

} // namespace

SqliteActivity::Statements::Statements(SqliteDatabase& database)
    : next_end(database,
        "SELECT max(IDLog) FROM (SELECT IDLog FROM log "
        "WHERE IDLog > (SELECT SeenUntil FROM useractivityseen) ORDER BY IDLog LIMIT ?)"),
      take_up(database,
          "INSERT INTO useractivity (UserName, FirstTime, LastTime) "
          "SELECT UserName, min(ActionTime), max(ActionTime) FROM log "
          "WHERE IDLog > (SELECT SeenUntil FROM useractivityseen) AND IDLog <= ? AND UserName IS NOT NULL "
          "GROUP BY UserName ON CONFLICT (UserName) DO UPDATE SET "
          "FirstTime = coalesce(min(FirstTime, excluded.FirstTime), FirstTime, excluded.FirstTime), "
          "LastTime = coalesce(max(LastTime, excluded.LastTime), LastTime, excluded.LastTime)"),
      set_seen(database, "UPDATE useractivityseen SET SeenUntil = ?")
{
}

void SqliteActivity::catch_up()
{
    if (const auto end = next_end(kAllLines)) {
        see_until(*end);
    }
}

void SqliteActivity::advance()
{
    const auto now = clock_.steady();
    if (now - advanced_ < kPause) {
        return;
    }
    advanced_ = now;
    if (const auto end = next_end(kLinesAtOnce)) {
        see_until(*end);
    }
}

/// The last of the next lines, so many at most; nothing when there are none.
std::optional<std::int64_t> SqliteActivity::next_end(std::int64_t lines)
{
    auto& statement = statements().next_end;
    statement.bind(1, Value(lines));
    const auto value = statement.read();
    const auto* end = std::get_if<std::int64_t>(&value.held());
    return end == nullptr ? std::nullopt : std::optional(*end);
}

void SqliteActivity::see_until(std::int64_t line)
{
    auto& take_up = statements().take_up;
    auto& set_seen = statements().set_seen;
    take_up.bind(1, Value(line));
    take_up.run();
    set_seen.bind(1, Value(line));
    set_seen.run();
}

SqliteActivity::Statements& SqliteActivity::statements()
{
    if (!statements_) {
        statements_.emplace(database_);
    }
    return *statements_;
}

} // namespace qz::platform
