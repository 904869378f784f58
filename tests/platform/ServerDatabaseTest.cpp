// What the texts of the database servers may say, which no server at hand can tell.
#include "platform/odbc/ServerDatabase.h"

#include "base/Text.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace qz;
using namespace qz::platform;

TEST(ServerDatabase, PostgreSqlIsToldNothingNewerThanVersion12)
{
    const auto& server = kPostgreSql;
    std::vector<std::string_view> texts{server.lock_patience, server.time_zone, server.begin, server.commit,
        server.rollback, server.name_session, server.find_session, server.end_session, server.key_at_end,
        server.default_values, server.reserve_keys, server.columns, server.advance_counter};
    texts.insert(texts.end(), server.session.begin(), server.session.end());
    for (const auto migration : server.migrations) {
        texts.insert(texts.end(), migration.begin(), migration.end());
    }
    for (const auto text : texts) {
        for (const auto* newer : {"or replace trigger", "merge into", "nulls not distinct", "compression",
                 "with ties", "security_invoker", "any_value", "date_bin", "virtual"}) {
            EXPECT_EQ(lower(text).find(newer), std::string::npos) << newer << " in " << text;
        }
    }
}
