// Stops what a session does for somebody who does not wait for it any more.
#pragma once

#include <atomic>
#include <mutex>

#include <sql.h>

namespace qz::platform {

/// Shared by the thread that runs the statements of a session and the one that gives the session up.
class OdbcStop {
public:
    /// No further statement begins. Does not wait.
    /// @return false when that was so already.
    bool stop() { return !stopped_.exchange(true); }
    /// Asks the server to give up the statement that runs. May wait for a server that does not answer.
    void cancel();
    /// @throws OdbcFailure once stop was called.
    void check() const;

    /// A statement that runs: cancel finds it, and its handle lives as long as somebody cancels it.
    class Running {
    public:
        /// @throws OdbcFailure once stop was called.
        Running(OdbcStop& stop, SQLHANDLE statement);
        ~Running();
        Running(const Running&) = delete;
        Running& operator=(const Running&) = delete;

    private:
        OdbcStop& stop_;
    };

private:
    std::atomic<bool> stopped_ = false;
    std::mutex mutex_; // of the one below
    SQLHANDLE running_ = SQL_NULL_HANDLE;
};

} // namespace qz::platform
