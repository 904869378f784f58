// A PostgreSQL server of the tests' own.
#pragma once

#include "support/DatabaseServer.h"

namespace qz::test {

class PostgresServer final : public DatabaseServer {
public:
    static std::string reason_against();
    PostgresServer();
    void start() override;
};

} // namespace qz::test
