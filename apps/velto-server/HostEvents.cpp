#include "HostEvents.h"

#include <iostream>
#include <nlohmann/json.hpp>

namespace velto {

namespace {

constexpr std::chrono::seconds kPause(10);
constexpr std::size_t kMostErrors = 200; // descriptions can hold names, of which there is no end

void print(const nlohmann::ordered_json& event)
{
    std::cout << event.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace)
              << std::endl; // a line at once
}

} // namespace

void LoggedEvents::Error(const std::string& routine_name, std::int32_t error_number,
    const std::string& error_source, const std::string& error_description, const std::string& pc_ip)
{
    // The log's own failures carry their statement behind the arrow: for hosts, too long for a line.
    const auto description = error_description.substr(0, error_description.find(" -> "));
    const auto now = std::chrono::steady_clock::now();
    if (shown_.size() > kMostErrors) {
        shown_.clear();
    }
    auto& shown = shown_[routine_name + description];
    if (shown.when != std::chrono::steady_clock::time_point{} && now - shown.when < kPause) {
        ++shown.repetitions;
        return;
    }
    const auto before =
        shown.repetitions == 0 ? std::string() : ", " + std::to_string(shown.repetitions) + " times more";
    log_.write(LogLevel::Error,
        routine_name + ": " + description + " (error " + std::to_string(error_number) + ", " + error_source
            + before + ")",
        {{"address", pc_ip}});
    shown = {now, 0};
}

void LoggedEvents::LogMessage(
    const std::string& message, const std::string& user_name, const std::string& user_remote_ip)
{
    log_.write(LogLevel::Info, message, {{"user", user_name}, {"address", user_remote_ip}});
}

void LoggedEvents::LogWarning(
    const std::string& message, const std::string& user_name, const std::string& user_remote_ip)
{
    log_.write(LogLevel::Warning, message, {{"user", user_name}, {"address", user_remote_ip}});
}

void JsonEvents::Error(const std::string& routine_name, std::int32_t error_number,
    const std::string& error_source, const std::string& error_description, const std::string& pc_ip)
{
    print({{"event", "Error"}, {"RoutineName", routine_name}, {"ErrorNumber", error_number},
        {"ErrorSource", error_source}, {"ErrorDescription", error_description}, {"pcIP", pc_ip}});
}

void JsonEvents::LogMessage(
    const std::string& message, const std::string& user_name, const std::string& user_remote_ip)
{
    print({{"event", "LogMessage"}, {"Message", message}, {"UserName", user_name},
        {"UserRemoteIP", user_remote_ip}});
}

void JsonEvents::ServerInfo(const std::string& message)
{
    print({{"event", "ServerInfo"}, {"Message", message}});
}

void JsonEvents::OnLineUsers(std::int32_t users)
{
    print({{"event", "OnLineUsers"}, {"Users", users}});
}

void JsonEvents::SocketActivity(qz::server::SocketActivity activity)
{
    print({{"event", "SocketActivity"}, {"Activity", static_cast<int>(activity)}});
}

void JsonEvents::TimerActivity()
{
    print({{"event", "TimerActivity"}});
}

void JsonEvents::ShutDown()
{
    print({{"event", "ShutDown"}});
    RunEvents::ShutDown();
}

void JsonEvents::ServerStart()
{
    print({{"event", "ServerStart"}});
    RunEvents::ServerStart();
}

void JsonEvents::CloseSoftware(const std::string& error_description)
{
    print({{"event", "CloseSoftware"}, {"ErrorDescription", error_description}});
}

void JsonEvents::NewConnectionRequested(const std::string& ip_address)
{
    print({{"event", "NewConnectionRequested"}, {"IPAddress", ip_address}});
}

} // namespace velto
