// The tables of the embedded database and the way from every older version of them to this one.
#pragma once

namespace qz::platform {

class SqliteDatabase;

/// Number of the schema that this program makes and understands; the file carries its own as user_version.
int current_schema_version();

/// Refuses a file of a newer schema without touching it.
/// @return the file's version, 0 for an empty one.
int check_schema_version(SqliteDatabase& database);

/// Brings the file to the current version, in one transaction.
void upgrade_schema(SqliteDatabase& database);

} // namespace qz::platform
