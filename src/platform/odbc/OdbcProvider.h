// Makes connections to database servers through the machine's driver manager.
#pragma once

#include "platform/Machine.h"
#include "platform/odbc/OdbcLink.h"

#include <memory>

namespace qz::platform {

/// A closed connection. The driver is the one registered under the name that the connection string gives.
/// @param options  the texts and tables of its statements must outlive the connection.
std::unique_ptr<Connection> make_odbc_connection(
    const ConnectionOptions& options, const OdbcTimes& times = {});

} // namespace qz::platform
