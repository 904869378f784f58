#include "platform/sqlite/SqliteBackup.h"

#include "platform/sqlite/SqliteDatabase.h"

#include <chrono>
#include <memory>

#include <sqlite3.h>

namespace qz::platform {

namespace {

constexpr int kPagesPerStep = 1024; // 4 MB: several steps a second on a slow disk
constexpr std::chrono::seconds kLockPatience(5);

struct Finisher {
    void operator()(sqlite3_backup* backup) const { sqlite3_backup_finish(backup); }
};

void copy_pages(SqliteDatabase& from, SqliteDatabase& into, const std::function<void(int, int)>& progress)
{
    const std::unique_ptr<sqlite3_backup, Finisher> backup(
        sqlite3_backup_init(into.handle(), "main", from.handle(), "main"));
    if (!backup) {
        throw into.error(sqlite3_errcode(into.handle()));
    }
    for (;;) {
        const int code = sqlite3_backup_step(backup.get(), kPagesPerStep);
        const int total = sqlite3_backup_pagecount(backup.get());
        progress(total - sqlite3_backup_remaining(backup.get()), total);
        if (code == SQLITE_DONE) {
            return;
        }
        if (code != SQLITE_OK) {
            throw(code & 0xFF) == SQLITE_CORRUPT ? from.error(code) : into.error(code);
        }
    }
}

} // namespace

void copy_sqlite_database(const std::filesystem::path& database, const std::filesystem::path& copy,
    const std::function<void(int done, int total)>& progress)
{
    SqliteDatabase from(database, SqliteDatabase::IfMissing::Fail, SqliteDatabase::Access::Read);
    SqliteDatabase into(copy);
    from.wait_for_locks(kLockPatience);
    // The copy is of one moment: without a transaction around it, every write of somebody else's would have
    // it begun anew, on a busy server without end.
    from.run("BEGIN");
    from.read("SELECT count(*) FROM sqlite_master");
    copy_pages(from, into, progress);
    from.run("COMMIT");
    if (into.read("PRAGMA quick_check(1)").text() != "ok") {
        throw database_error(DatabaseError::Unspecified,
            "The database file " + from.name() + " is damaged; its copy does not hold together");
    }
}

} // namespace qz::platform
