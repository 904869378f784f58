// Makes connections to the embedded database.
#pragma once

#include "base/Clock.h"
#include "platform/Machine.h"

#include <memory>

namespace qz::platform {

/// A closed connection to one database file, which Open makes with its tables when there is none.
/// The file is plain: other programs may read and write it meanwhile.
/// @param options  its overrides must outlive the connection. database_file may be ":memory:": then each Open
///                 begins with an empty database.
/// @param clock    must outlive the connection; the statements' Today() is its date.
std::unique_ptr<Connection> make_sqlite_connection(const ConnectionOptions& options, const Clock& clock);

} // namespace qz::platform
