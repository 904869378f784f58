#include "HostEvents.h"

#include "base/Text.h"

#include <iostream>
#include <nlohmann/json.hpp>
#include <spdlog/spdlog.h>

namespace velto {

namespace {

void print(const nlohmann::ordered_json& event)
{
    std::cout << event.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace)
              << std::endl; // a line at once
}

} // namespace

void LoggedEvents::Error(const std::string& routine_name, std::int32_t error_number,
    const std::string& error_source, const std::string& error_description, const std::string& pc_ip)
{
    const auto place = pc_ip.empty() ? std::string() : " [" + qz::printable(pc_ip) + "]";
    spdlog::error("{}: {} (error {}, {}){}", qz::printable(routine_name), qz::printable(error_description),
        error_number, error_source, place);
}

void LoggedEvents::LogMessage(
    const std::string& message, const std::string& user_name, const std::string& user_remote_ip)
{
    spdlog::info(
        "{} [{} {}]", qz::printable(message), qz::printable(user_name), qz::printable(user_remote_ip));
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
