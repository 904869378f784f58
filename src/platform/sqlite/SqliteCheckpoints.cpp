#include "platform/sqlite/SqliteCheckpoints.h"

#include "base/Guarded.h"

#include <sqlite3.h>
#ifndef _WIN32
#include <unistd.h>
#endif

namespace qz::platform {

namespace {

constexpr int kPages = 4000; // 16 MB: pages that several turns change are copied once
constexpr int kPause = 1000; // pages until the next attempt, when a reader was in the way

/// Other threads come first when they want the same processor.
void step_back()
{
#ifndef _WIN32
    constexpr int kNiceness = 10;
    [[maybe_unused]] const int niceness = nice(kNiceness); // of this thread alone, on Linux
#endif
}

struct Progress {
    int pages = 0;
    int copied = 0;
};

/// Waits for nobody. A failure is left to the next attempt: nothing is lost, the log grows.
Progress checkpoint(sqlite3* database)
{
    Progress progress;
    sqlite3_wal_checkpoint_v2(database, "main", SQLITE_CHECKPOINT_PASSIVE, &progress.pages, &progress.copied);
    return progress;
}

} // namespace

SqliteCheckpoints::SqliteCheckpoints(SqliteDatabase& database) : database_(database), begin_at_(kPages)
{
    if (database_.is_in_memory()) {
        return;
    }
    copier_.emplace(database_.name(), SqliteDatabase::IfMissing::Fail);
    copier_->read("PRAGMA schema_version"); // only who has read it knows of its log
    const auto hook = [](void* self, sqlite3* /*database*/, const char* /*schema*/, int pages) {
        static_cast<SqliteCheckpoints*>(self)->committed(pages);
        return SQLITE_OK;
    };
    sqlite3_wal_hook(database_.handle(), hook, this);
}

SqliteCheckpoints::~SqliteCheckpoints()
{
    sqlite3_wal_hook(database_.handle(), nullptr, nullptr);
    if (thread_.joinable()) {
        ending_ = true;
        wanted_.release();
        thread_.join();
    }
}

void SqliteCheckpoints::committed(int pages)
{
    if (state_ == State::Copied) {
        copy_rest(pages);
    } else if (state_ == State::Idle && pages >= begin_at_) {
        attempt([&] {
            if (!thread_.joinable()) {
                thread_ = std::thread([this] { work(); });
            }
            state_ = State::Copying;
            wanted_.release();
        });
    }
}

void SqliteCheckpoints::copy_rest(int pages)
{
    state_ = State::Idle;
    begin_at_ = kPages;
    if (pages < kPages) {
        return; // nothing was left, and the log has begun anew
    }
    const auto [all, copied] = checkpoint(database_.handle());
    if (copied < all) {
        begin_at_ = pages + kPause;
    }
}

void SqliteCheckpoints::work()
{
    step_back();
    for (wanted_.acquire(); !ending_; wanted_.acquire()) {
        // Twice: the second time what was written during the first, so that little is left.
        checkpoint(copier_->handle());
        checkpoint(copier_->handle());
        state_ = State::Copied;
    }
}

} // namespace qz::platform
