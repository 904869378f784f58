// Brings what the write-ahead log holds back into the database file, on a thread of its own: 16 MB and a
// flush of the disk take some ten milliseconds, for which no turn should wait.
#pragma once

#include "platform/sqlite/SqliteDatabase.h"

#include <atomic>
#include <cstdint>
#include <optional>
#include <semaphore>
#include <thread>

namespace qz::platform {

/// The thread copies while the connection goes on writing. What is written meanwhile, a small part, is copied
/// by the connection itself behind a commit: the log begins anew only when nothing of it is left.
class SqliteCheckpoints {
public:
    /// From here on the connection makes no checkpoints of its own.
    /// @param database  in the mode with a write-ahead log, unless it is in memory; must outlive the object.
    /// @throws EngineError when its file cannot be opened a second time.
    explicit SqliteCheckpoints(SqliteDatabase& database);
    SqliteCheckpoints(const SqliteCheckpoints&) = delete;
    SqliteCheckpoints& operator=(const SqliteCheckpoints&) = delete;
    /// Waits for a copy that is under way.
    ~SqliteCheckpoints();

private:
    enum class State : std::uint8_t {
        Idle,
        Copying, // the thread works
        Copied,  // and the rest is the connection's
    };

    void committed(int pages);
    void copy_rest(int pages);
    void work();

    SqliteDatabase& database_;
    /// The thread's own connection; none to a database in memory, which has no log. It is opened at once:
    /// later another file might bear the name.
    std::optional<SqliteDatabase> copier_;
    int begin_at_; // so many pages of log
    std::atomic<State> state_ = State::Idle;
    std::atomic<bool> ending_ = false;
    std::counting_semaphore<2> wanted_{0}; // a copy, or the end
    std::thread thread_;                   // from the first copy on
};

} // namespace qz::platform
