// The host's side of the engine's events.
#pragma once

#include "HostLog.h"
#include "platform/EventLoop.h"
#include "server/MainEvents.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <string>

namespace velto {

/// Hears everything and does nothing; commands override what they need.
class SilentEvents : public qz::server::MainEvents {
public:
    virtual ~SilentEvents() = default;
    SilentEvents() = default;
    SilentEvents(const SilentEvents&) = delete;
    SilentEvents& operator=(const SilentEvents&) = delete;

    void Error(const std::string& /*routine_name*/, std::int32_t /*error_number*/,
        const std::string& /*error_source*/, const std::string& /*error_description*/,
        const std::string& /*pc_ip*/) override
    {
    }
    void LogMessage(const std::string& /*message*/, const std::string& /*user_name*/,
        const std::string& /*user_remote_ip*/) override
    {
    }
    void ServerInfo(const std::string& /*message*/) override { }
    void OnLineUsers(std::int32_t /*users*/) override { }
    void SocketActivity(qz::server::SocketActivity /*activity*/) override { }
    void TimerActivity() override { }
    void ShutDown() override { }
    void ServerStart() override { }
    void CloseSoftware(const std::string& /*error_description*/) override { }
    void NewConnectionRequested(const std::string& /*ip_address*/) override { }
};

/// Ends the loop at ShutDown and remembers whether the engine became ready.
class RunEvents : public SilentEvents {
public:
    explicit RunEvents(qz::platform::EventLoop& loop) : loop_(loop) { }
    void ShutDown() override
    {
        has_shut_down_ = true;
        loop_.stop();
    }
    void ServerStart() override { has_started_ = true; }
    bool has_started() const { return has_started_; }
    bool has_shut_down() const { return has_shut_down_; }

private:
    qz::platform::EventLoop& loop_;
    bool has_started_ = false;
    bool has_shut_down_ = false;
};

/// One line of the host's log for everything worth a line. An error that keeps coming is shown once in ten
/// seconds, with the number of its repetitions: a database that is gone fails every statement.
class LoggedEvents final : public RunEvents {
public:
    LoggedEvents(qz::platform::EventLoop& loop, HostLog& log) : RunEvents(loop), log_(log) { }
    void Error(const std::string& routine_name, std::int32_t error_number, const std::string& error_source,
        const std::string& error_description, const std::string& pc_ip) override;
    void LogMessage(
        const std::string& message, const std::string& user_name, const std::string& user_remote_ip) override;
    void LogWarning(
        const std::string& message, const std::string& user_name, const std::string& user_remote_ip) override;

private:
    struct Shown {
        std::chrono::steady_clock::time_point when;
        std::int64_t repetitions = 0;
    };
    HostLog& log_;
    std::map<std::string, Shown> shown_; // by routine and description
};

/// Every event as one JSON line on standard output, for programs.
class JsonEvents final : public RunEvents {
public:
    using RunEvents::RunEvents;
    void Error(const std::string& routine_name, std::int32_t error_number, const std::string& error_source,
        const std::string& error_description, const std::string& pc_ip) override;
    void LogMessage(
        const std::string& message, const std::string& user_name, const std::string& user_remote_ip) override;
    void ServerInfo(const std::string& message) override;
    void OnLineUsers(std::int32_t users) override;
    void SocketActivity(qz::server::SocketActivity activity) override;
    void TimerActivity() override;
    void ShutDown() override;
    void ServerStart() override;
    void CloseSoftware(const std::string& error_description) override;
    void NewConnectionRequested(const std::string& ip_address) override;
};

} // namespace velto
