// A client for commands that do one thing: logs on, waits, tells what came.
#pragma once

#include "Interrupt.h"
#include "LogOnOptions.h"
#include "client/Connection.h"
#include "platform/SystemClock.h"
#include "platform/sodium/SodiumCrypto.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>

namespace velto {

class ScriptClient : public qz::client::ClientEvents {
public:
    /// What a command does with the user's messages that come meanwhile.
    enum class Messages {
        Confirmed, // it shows them: the server may forget them
        Left,      // they stay with the server, for the client in which the user reads
    };

    ScriptClient(const LogOnOptions& options, Messages messages);
    virtual ~ScriptClient() = default;
    ScriptClient(const ScriptClient&) = delete;
    ScriptClient& operator=(const ScriptClient&) = delete;

    /// @throws CommandError 3 when the server cannot be reached, 1 when it refuses.
    void log_on();
    /// Waits until the condition holds.
    /// @return false when the time was over, a signal came, or the connection ended for good.
    bool run_until(const std::function<bool()>& condition, std::chrono::milliseconds longest);
    /// Waits until the server has worked on everything that was sent so far.
    /// @return false when it did not tell so in time, or the connection broke.
    bool settle(std::chrono::milliseconds longest = kAnswerTime);
    /// Waits until the condition holds, whatever signal comes.
    void finish(const std::function<bool()>& condition, std::chrono::milliseconds longest);
    /// From now on, waiting also serves this; it outlives the client's last wait.
    void share_loop(qz::client::EventSource& companion) { companion_ = &companion; }
    qz::client::ClientCore& core() { return connection_.core(); }
    const std::string& user() const { return user_; }
    const qz::Clock& clock() const { return clock_; }

    /// Called for everything that comes while logged on.
    std::function<void(const qz::client::Incoming&)> on_incoming;
    /// Called when a connection that was logged on is lost; without it, waiting ends then.
    std::function<void(const qz::client::Disconnected&)> on_lost;

    void connected() override { }
    void logged_on() override { }
    void refused(const std::vector<std::string>& reasons) override;
    void incoming(const qz::client::Incoming& incoming) override;
    void disconnected(const qz::client::Disconnected& disconnected) override;

    static constexpr std::chrono::milliseconds kAnswerTime{30'000};

private:
    ScriptClient(const std::string& server, qz::client::Account account, Messages messages);

    std::string server_;
    std::string user_;
    qz::platform::SodiumCrypto crypto_;
    qz::platform::SystemClock clock_;
    Interrupt interrupt_;
    qz::client::Connection connection_;
    qz::client::EventSource* companion_ = nullptr;
    bool was_logged_on_ = false;
    bool lost_ = false;
    int echoes_ = 0;
    std::optional<std::string> refusal_;
    std::string why_unreachable_;
};

} // namespace velto
