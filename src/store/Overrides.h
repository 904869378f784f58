// The statements that a database needs in other words than the portable ones, each in the source of its
// database.
#pragma once

#include "store/Statements.h"

namespace qz::store {

platform::StatementOverrides sqlite_overrides();
platform::StatementOverrides postgresql_overrides();
platform::StatementOverrides mariadb_overrides();
platform::StatementOverrides sql_server_overrides();

inline platform::DatabaseOverrides all_overrides()
{
    return {sqlite_overrides(), postgresql_overrides(), mariadb_overrides(), sql_server_overrides()};
}

} // namespace qz::store
