#include "platform/odbc/ServerDatabase.h"

#include <array>

namespace qz::platform {

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
