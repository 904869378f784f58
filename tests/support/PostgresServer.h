// A PostgreSQL server of the tests' own.
#pragma once

#include "support/DatabaseServer.h"

namespace qz::test {

class PostgresServer final : public DatabaseServer {
public:
    static std::string reason_against();
    explicit PostgresServer(Commits commits = Commits::Written);
    void start() override;
};

} // namespace qz::test
