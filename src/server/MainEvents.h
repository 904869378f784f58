// The ten events through which a host hears the engine.
#pragma once

#include <cstdint>
#include <string>

namespace qz::server {

enum class SocketActivity : std::int32_t { Ingoing = 1, Outgoing = 2 };

/// Raised on the engine's thread, in the middle of its work: a listener returns soon and does not throw. It
/// may call Main, start it again or delete it, and it may ask the loop to stop.
class MainEvents {
public:
    virtual void Error(const std::string& routine_name, std::int32_t error_number,
        const std::string& error_source, const std::string& error_description, const std::string& pc_ip) = 0;
    /// One line of the activity log.
    virtual void LogMessage(
        const std::string& message, const std::string& user_name, const std::string& user_remote_ip) = 0;
    /// A line of the activity log that is a warning. Not one of the ten: who does not tell lines apart hears
    /// LogMessage.
    virtual void LogWarning(
        const std::string& message, const std::string& user_name, const std::string& user_remote_ip)
    {
        LogMessage(message, user_name, user_remote_ip);
    }
    /// Part of the interface; the engine never raises it.
    virtual void ServerInfo(const std::string& message) = 0;
    virtual void OnLineUsers(std::int32_t users) = 0;
    virtual void SocketActivity(server::SocketActivity activity) = 0;
    virtual void TimerActivity() = 0;
    /// The engine has shut down, or was asked to while it was not started: the host releases it.
    virtual void ShutDown() = 0;
    /// The engine is ready; raised once.
    virtual void ServerStart() = 0;
    /// Part of the interface; the engine never raises it.
    virtual void CloseSoftware(const std::string& error_description) = 0;
    virtual void NewConnectionRequested(const std::string& ip_address) = 0;

protected:
    ~MainEvents() = default; // never deleted through this type
};

} // namespace qz::server
