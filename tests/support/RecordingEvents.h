// A host that writes down every event in order.
#pragma once

#include "helpers/ProtocolKeywords.h"
#include "server/MainEvents.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qz::test {

/// Each event is one short text: "Error Routine 9 @address", "Log text" (with " [user, address]" when it is
/// not the server's own line), "OnLine 2", "Ingoing", "Outgoing", "Tick", "ShutDown", "ServerStart",
/// "Connection address".
class RecordingEvents final : public server::MainEvents {
public:
    std::vector<std::string> list;
    std::string last_error; // source and description of the last Error
    /// Messages of clients that were carried out so far.
    std::size_t handled() const { return handled_; }
    /// Called with each event after it was written down.
    std::function<void(const std::string&)> on_event;

    std::vector<std::string> take() { return std::exchange(list, {}); }
    std::vector<std::string> take_starting(std::string_view prefix)
    {
        auto events = take();
        std::erase_if(events, [&](const auto& event) { return !event.starts_with(prefix); });
        return events;
    }

    void Error(const std::string& routine, std::int32_t number, const std::string& source,
        const std::string& description, const std::string& pc_ip) override
    {
        last_error = source + ": " + description;
        keep("Error " + routine + " " + std::to_string(number) + " @" + pc_ip);
    }
    void LogMessage(
        const std::string& message, const std::string& user_name, const std::string& remote_ip) override
    {
        const auto& words = helpers::protocol_keywords();
        const bool own = user_name == words.HostName && remote_ip == words.HostAddress;
        keep("Log " + message + (own ? "" : " [" + user_name + ", " + remote_ip + "]"));
    }
    void ServerInfo(const std::string& message) override { keep("ServerInfo " + message); }
    void OnLineUsers(std::int32_t users) override { keep("OnLine " + std::to_string(users)); }
    void SocketActivity(server::SocketActivity activity) override
    {
        const bool ingoing = activity == server::SocketActivity::Ingoing;
        handled_ += ingoing ? 1 : 0;
        keep(ingoing ? "Ingoing" : "Outgoing");
    }
    void TimerActivity() override { keep("Tick"); }
    void ShutDown() override { keep("ShutDown"); }
    void ServerStart() override { keep("ServerStart"); }
    void CloseSoftware(const std::string& description) override { keep("CloseSoftware " + description); }
    void NewConnectionRequested(const std::string& address) override { keep("Connection " + address); }

private:
    std::size_t handled_ = 0;

    void keep(std::string event)
    {
        list.push_back(std::move(event));
        if (on_event) {
            on_event(std::string(list.back()));
        }
    }
};

} // namespace qz::test
