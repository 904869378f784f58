// Clients that log on to a whole engine and talk to it, over sockets in memory or over real ones.
#pragma once

#include "server/Engine.h"
#include "support/RecordingEvents.h"

#include <memory>
#include <string>
#include <vector>

namespace qz::test {

/// One connection as its client sees it.
class Wire {
public:
    Wire() = default;
    Wire(const Wire&) = delete;
    Wire& operator=(const Wire&) = delete;
    virtual ~Wire() = default;
    /// Returns when the server has worked on what was sent.
    virtual void send(const std::string& bytes) = 0;
    /// Everything that came since the last call.
    virtual std::string take() = 0;
    virtual bool ended() = 0;
    virtual void vanish() = 0;
};

class ChatClient {
public:
    /// @param address  the client's as the server sees it.
    ChatClient(std::unique_ptr<Wire> wire, std::string address);

    /// The logon request, with both credentials sealed for the client's address.
    std::string log_on_text(const std::string& name, const std::string& password);
    void log_on(const std::string& name, const std::string& password = "secret");
    /// Sends a request with the session id behind it.
    void say(const std::string& keyword, const std::string& body);
    /// The messages since the last call, each "keyword body".
    std::vector<std::string> hear();
    bool ended();
    Wire& wire() { return *wire_; }
    const std::string& session_id() const { return session_id_; }

private:
    std::unique_ptr<Wire> wire_;
    std::string address_;
    std::string session_id_;
};

/// An engine with its clients.
class Talk {
public:
    Talk() = default;
    Talk(const Talk&) = delete;
    Talk& operator=(const Talk&) = delete;
    virtual ~Talk() = default;

    virtual server::Engine& engine() = 0;
    virtual RecordingEvents& events() = 0;
    /// A client that has taken its session offer.
    virtual ChatClient connect() = 0;
    /// Ticks of the housekeeping timer.
    virtual void tick(int times) = 0;

    /// Before the start: an account with the password "secret", and an entry of a buddy list.
    void add_user(const std::string& name, bool enabled = true, const std::string& first_name = "",
        const std::string& last_name = "");
    void add_buddy(const std::string& owner, const std::string& buddy, const std::string& group = "friends");
    void add_room(const std::string& name, const std::string& owner);
    /// Starts the engine and forgets the events so far.
    void start();
    /// A client that has logged on and taken everything that followed.
    ChatClient on_line(const std::string& name);
    /// Log lines since the last call, without those of the server itself about its sockets.
    std::vector<std::string> log();
};

std::unique_ptr<Talk> talk_in_memory();
std::unique_ptr<Talk> talk_over_loopback();
/// For tests that run over both: gives the kind its name.
using TalkKind = std::unique_ptr<Talk> (*)();
std::string name_of(TalkKind kind);

} // namespace qz::test
