// Logging and error reporting of the whole engine: rows of the activity log, and the events about them.
#pragma once

#include "base/Journal.h"
#include "net/NetEvents.h"
#include "server/LineQuota.h"
#include "server/MainEvents.h"

#include <cstdint>
#include <vector>

namespace qz::store {
class ActivityLog;
}

namespace qz::server {

class ServerJournal final : public Journal, public net::OnLineCount {
public:
    explicit ServerJournal(MainEvents& events) : events_(events) { }

    /// From here on rows are written. Before it, while the engine is being built, there are only events.
    /// @param quota  for what strangers cause: lines beyond it are neither written nor raised.
    void attach(store::ActivityLog& log, LineQuota& quota)
    {
        log_ = &log;
        quota_ = &quota;
    }
    /// Logs how many lines of each address were not written.
    void tell_unwritten(const std::vector<LineQuota::Unwritten>& unwritten);

    /// The row's user-name column receives the address and its address column the user name. The crossing is
    /// intended: programs that read the table rely on it.
    void Log(const std::string& message, const std::string& user_name, const std::string& remote_ip) override;
    void log_own(const std::string& message) override;
    void warn_own(const std::string& message) override;

    /// Two database errors, the failed link and the closed connection, are reported twice, the second time
    /// with HostAddress where the address is empty. Hosts count on it.
    void ReportError(std::string_view routine, const EngineError& error, const std::string& address) override;
    void raise_error(std::string_view routine, const EngineError& error, const std::string& address) override;

    /// With the quota not on behalf of strangers.
    void ReportOnLineUsers(std::int32_t count) override;

private:
    bool may_write();
    void write(const std::string& action, const std::string& user_name, const std::string& remote_ip);

    MainEvents& events_;
    store::ActivityLog* log_ = nullptr;
    LineQuota* quota_ = nullptr;
};

} // namespace qz::server
