// One TCP connection between two clients, driven from the program's own event loop.
#pragma once

#include "base/Clock.h"
#include "client/Descriptor.h"
#include "client/EventSource.h"
#include "client/transfer/Conversation.h"

#include <functional>
#include <memory>
#include <vector>

namespace qz::client::transfer {

using MakeConversation = std::function<std::unique_ptr<Conversation>(Channel&)>;
using TimePoint = std::chrono::steady_clock::time_point;

class Link {
public:
    static constexpr std::chrono::seconds kConnectTime{10};
    static constexpr std::chrono::seconds kGreetingTime{10};
    static constexpr std::chrono::seconds kPartingTime{10}; // for the last words

    /// @param socket  not blocking, connected or about to be.
    /// @param make    makes the conversation as soon as the other side has proved who it is.
    Link(Descriptor socket, Channel channel, MakeConversation make, const Clock& clock);
    Link(const Link&) = delete; // the conversation refers to the channel
    Link& operator=(const Link&) = delete;

    enum class State {
        Connecting,
        Greeting,
        Open,
        Parting, // the conversation has its end; the last words are on their way
        Closed,
        Broken, // without an end
    };
    State state() const { return state_; }
    std::uint32_t attempt() const { return channel_.attempt(); }
    /// Nothing before the link is open.
    Conversation* conversation() { return conversation_.get(); }

    void on_ready();
    void add_watch(std::vector<Watch>& watches) const;
    TimePoint next_deadline() const;

private:
    void finish_connect();
    void read();
    void work();
    void write();
    void begin();
    void follow_conversation();
    void check_time();
    void close(State state);
    bool is_up() const
    {
        return state_ == State::Greeting || state_ == State::Open || state_ == State::Parting;
    }

    Descriptor socket_;
    Channel channel_;
    MakeConversation make_;
    const Clock& clock_;
    std::unique_ptr<Conversation> conversation_;
    State state_ = State::Connecting;
    bool shut_down_ = false;
    TimePoint moved_at_; // when bytes last moved; in other states than Open, when the state began
};

} // namespace qz::client::transfer
