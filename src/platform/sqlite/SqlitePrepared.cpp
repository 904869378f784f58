#include "platform/sqlite/SqlitePrepared.h"

namespace qz::platform {

namespace {

SqliteWaitingRows::Tables tables_before(const Statement& statement)
{
    const auto bit_of = [](const Table* table) {
        return table == nullptr ? 0 : SqliteWaitingRows::bit_of(table->name);
    };
    return statement.ignores_pending_writes ? 0 : bit_of(statement.table) | bit_of(statement.joined);
}

} // namespace

SqlitePrepared::SqlitePrepared(SqliteDatabase& database, const StatementOverride& text)
    : statement(database, text.sql), tables(tables_before(*text.statement)),
      message_number(text.message_number), reads_activity(text.reads_activity)
{
}

} // namespace qz::platform
