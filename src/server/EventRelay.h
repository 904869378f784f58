// Hands the engine's events to its host, until the host has given the engine up.
#pragma once

#include "server/MainEvents.h"
#include "server/Nesting.h"

#include <string>

namespace qz::server {

class EventRelay final : public MainEvents {
public:
    /// @param host  must outlive this object or the call of mute().
    explicit EventRelay(MainEvents& host) : host_(&host) { }

    void mute() { host_ = nullptr; }
    /// The host is handling an event.
    bool is_raising() const { return raising_.inside(); }

    void Error(const std::string& routine_name, std::int32_t error_number, const std::string& error_source,
        const std::string& error_description, const std::string& pc_ip) override
    {
        raise([&](auto& host) {
            host.Error(routine_name, error_number, error_source, error_description, pc_ip);
        });
    }
    void LogMessage(
        const std::string& message, const std::string& user_name, const std::string& user_remote_ip) override
    {
        raise([&](auto& host) { host.LogMessage(message, user_name, user_remote_ip); });
    }
    void LogWarning(
        const std::string& message, const std::string& user_name, const std::string& user_remote_ip) override
    {
        raise([&](auto& host) { host.LogWarning(message, user_name, user_remote_ip); });
    }
    void ServerInfo(const std::string& message) override
    {
        raise([&](auto& host) { host.ServerInfo(message); });
    }
    void OnLineUsers(std::int32_t users) override
    {
        raise([&](auto& host) { host.OnLineUsers(users); });
    }
    void SocketActivity(server::SocketActivity activity) override
    {
        raise([&](auto& host) { host.SocketActivity(activity); });
    }
    void TimerActivity() override
    {
        raise([](auto& host) { host.TimerActivity(); });
    }
    void ShutDown() override
    {
        raise([](auto& host) { host.ShutDown(); });
    }
    void ServerStart() override
    {
        raise([](auto& host) { host.ServerStart(); });
    }
    void CloseSoftware(const std::string& error_description) override
    {
        raise([&](auto& host) { host.CloseSoftware(error_description); });
    }
    void NewConnectionRequested(const std::string& ip_address) override
    {
        raise([&](auto& host) { host.NewConnectionRequested(ip_address); });
    }

private:
    template <typename Event> void raise(const Event& event)
    {
        if (host_ != nullptr) {
            const Nesting::Scope scope(raising_);
            event(*host_);
        }
    }

    MainEvents* host_;
    Nesting raising_;
};

} // namespace qz::server
