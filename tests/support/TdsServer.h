// A server of the tests' own that takes the place of SQL Server: tds_server.py.
#pragma once

#include "support/DatabaseServer.h"

namespace qz::test {

class TdsServer final : public DatabaseServer {
public:
    static std::string reason_against();
    TdsServer();
    void start() override;
    /// The driver leaves doubled braces as they are.
    std::string password() const override { return "se;cret"; }
    bool locks_rows() const override { return false; }
};

} // namespace qz::test
