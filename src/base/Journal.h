// What every room may tell upwards: a line for the activity log, and a failure.
#pragma once

#include "base/EngineError.h"

#include <string>
#include <string_view>

namespace qz {

/// Declared here and implemented by the server room. Neither operation throws.
class Journal {
public:
    /// Writes one line into the activity log and raises LogMessage.
    /// @param user_name  whom the line is about, or HostName.
    /// @param remote_ip  that user's address, or HostAddress.
    virtual void Log(
        const std::string& message, const std::string& user_name, const std::string& remote_ip) = 0;

    /// A line of the server itself: Log with HostName and HostAddress.
    virtual void log_own(const std::string& message) = 0;

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
};

} // namespace qz
