#include "platform/odbc/ServerDatabase.h"

#include "base/Text.h"

namespace qz::platform {

std::string quoted_name(std::string_view name)
{
    return '"' + lower(name) + '"';
}

const ServerDatabase* server_database(std::string_view name)
{
    for (const auto* server : {&kPostgreSql, &kMariaDb, &kSqlServer}) {
        if (server->name == name) {
            return server;
        }
    }
    return nullptr;
}

} // namespace qz::platform
