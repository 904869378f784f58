// What every room may tell upwards: a line for the activity log, and a failure.
#pragma once

#include "base/EngineError.h"

#include <string>
#include <string_view>
#include <utility>

namespace qz {

/// Declared here and implemented by the server room. Neither operation throws.
class Journal {
public:
    /// On whose behalf lines are written while it lives. Each event of the loop has a cause of its own, for
    /// events may be nested: the innermost one counts.
    class Cause {
    public:
        /// @param journal   outlives the object.
        /// @param stranger  address of a connection on which nobody is logged on; empty for any other cause.
        Cause(Journal& journal, std::string stranger)
            : journal_(journal), stranger_(std::move(stranger)), outer_(std::exchange(journal.cause_, this))
        {
        }
        ~Cause() { journal_.cause_ = outer_; }
        Cause(const Cause&) = delete;
        Cause& operator=(const Cause&) = delete;

    private:
        friend class Journal;
        Journal& journal_;
        std::string stranger_;
        Cause* outer_;
    };

    /// The stranger at work has proven who they are: what follows is on behalf of a user.
    void proven()
    {
        if (cause_ != nullptr) {
            cause_->stranger_.clear();
        }
    }

    /// Writes one line into the activity log and raises LogMessage.
    /// @param user_name  whom the line is about, or HostName.
    /// @param remote_ip  that user's address, or HostAddress.
    virtual void Log(
        const std::string& message, const std::string& user_name, const std::string& remote_ip) = 0;

    /// A line of the server itself: Log with HostName and HostAddress.
    virtual void log_own(const std::string& message) = 0;

    /// The same for what whoever looks after the server should see although nothing has failed.
    virtual void warn_own(const std::string& message) { log_own(message); }

    /// Reports a failure: a row in the activity log and the Error event.
    /// @param routine  the procedure's own name, as the host sees it.
    /// @param address  the remote address in play, empty when there is none.
    virtual void ReportError(
        std::string_view routine, const EngineError& error, const std::string& address) = 0;

    /// Only the Error event: for failures of the activity log itself, which cannot be logged.
    virtual void raise_error(
        std::string_view routine, const EngineError& error, const std::string& address) = 0;

protected:
    ~Journal() = default; // never deleted through this type

    /// The address of the stranger on whose behalf lines are written now; empty when there is none.
    std::string_view stranger() const
    {
        return cause_ == nullptr ? std::string_view{} : std::string_view(cause_->stranger_);
    }

private:
    Cause* cause_ = nullptr; // the innermost
};

} // namespace qz
