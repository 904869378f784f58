// A MariaDB server of the tests' own.
#pragma once

#include "support/DatabaseServer.h"

namespace qz::test {

class MariaDbServer final : public DatabaseServer {
public:
    static std::string reason_against();
    explicit MariaDbServer(Commits commits = Commits::Written);
    void start() override;
};

} // namespace qz::test
