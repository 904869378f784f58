// A copy of the embedded database while others use it.
#pragma once

#include <filesystem>
#include <functional>

namespace qz::platform {

/// Copies a database as it is at this moment: what is committed later is not in the copy, and writers are not
/// held up. The copy is read through once for damage before this returns.
/// @param copy      is made, or filled when it is an empty file.
/// @param progress  called now and then with pages copied and pages in all, ends the work by throwing.
/// @throws EngineError when the database is not there or damaged, or when either file fails. What was copied
/// by then stays.
void copy_sqlite_database(const std::filesystem::path& database, const std::filesystem::path& copy,
    const std::function<void(int done, int total)>& progress);

} // namespace qz::platform
