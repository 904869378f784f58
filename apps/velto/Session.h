// One user's conversations, without a terminal: what is typed and what the server says go in, lines to be
// shown and requests come out.
#pragma once

#include "Line.h"
#include "Questions.h"
#include "Typing.h"
#include "Unsent.h"
#include "base/Clock.h"
#include "client/ClientCore.h"

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace velto {

class Files;

/// Where lines are shown.
class View {
public:
    virtual void show(const Line& line) = 0;

protected:
    ~View() = default;
};

/// What a session asks of the connection.
class Link {
public:
    virtual bool is_logged_on() const = 0;
    virtual qz::client::SendResult send(const qz::client::Request& request) = 0;
    /// Takes the message and sends it until the server has told that it has it (ClientEvents::settled).
    virtual qz::client::ClientCore::SentMessage send_message(const qz::client::OutgoingMessage& message) = 0;
    /// Connects, and goes on trying.
    virtual void start() = 0;
    virtual void stop() = 0;

protected:
    ~Link() = default;
};

class Session final : public qz::client::ClientEvents {
public:
    static constexpr std::size_t kMostHistory = 1000; // lines
    static constexpr std::size_t kMostAwaited = 1000; // messages whose receipts are awaited

    /// The references outlive the session.
    Session(std::string own_name, const qz::Clock& clock, View& view);
    /// To be called once, before anything else; the link outlives the session.
    void attach(Link& link) { link_ = &link; }
    /// Without it, nothing is transferred; it outlives the session's last call.
    void attach_files(Files& files) { files_ = &files; }

    // The keyboard.
    /// A whole line: a command, or a text for the partner.
    void enter(std::string_view line);
    /// The line as it stands now; tells the partner that one types.
    void typed(std::string_view line_so_far);
    /// What stands before the line.
    std::string prompt() const;
    /// Commands and names with which the line could go on: each replaces its last word.
    std::vector<std::string> completions(std::string_view line_so_far) const;
    void tick();
    std::optional<qz::client::TimePoint> next_deadline() const { return typing_.next_deadline(); }

    // How it ends.
    void quit() { over_ = true; }
    bool is_over() const { return over_; }
    /// Nothing that was typed is still on its way to the server, and no answer is awaited.
    bool is_settled() const { return unsent_.empty() && questions_.empty(); }
    bool has_unsent() const { return !unsent_.empty(); }
    bool was_logged_on() const { return was_logged_on_; }
    /// Why the first logon did not succeed; nothing when it did, or is still to come.
    struct Failure {
        bool refused = false; // else the server was not reached
        std::string text;
    };
    const std::optional<Failure>& failure() const { return failure_; }
    /// Shows what is left unsent.
    void show_unsent();

    // What commands do.
    Files* files() { return files_; }
    const std::string& own_name() const { return own_name_; }
    const std::string& partner() const { return partner_; }
    /// @param name  a user, or # and a room; empty for nobody.
    void talk_to(std::string_view name);
    /// Sends, or keeps until there is a connection, in the order of the calls.
    void send_text(std::string_view to, std::string_view text);
    /// Sends a request that is not answered.
    /// @return false when it could not be sent, which was shown.
    bool request(const qz::client::Request& request);
    /// Sends a request whose answer is a T.
    /// @param done  called once, with nothing when the server had no answer.
    template <typename T> void ask(const qz::client::Request& question, std::function<void(const T*)> done)
    {
        if (request(question) && link_->send(qz::client::requests::echo()) == qz::client::SendResult::Sent) {
            questions_.asked<T>(std::move(done));
        }
    }
    void show(Line::Kind kind, std::string text);
    void show_history(std::size_t lines);
    void set_expiry(std::optional<std::chrono::minutes> life) { message_life_ = life; }
    std::optional<std::chrono::minutes> expiry() const { return message_life_; }
    /// How long the server keeps a message, by its own rule.
    std::optional<std::int32_t> server_expiry() const { return server_minutes_; }
    void reconnect();
    /// The session is in the room, and comes back to it after a reconnection.
    void entered_room(const std::string& room);
    void left_room(const std::string& room) { rooms_.erase(room); }

    // ClientEvents
    void connected() override { }
    void logged_on() override;
    void refused(const std::vector<std::string>& reasons) override;
    void incoming(const qz::client::Incoming& incoming) override;
    void disconnected(const qz::client::Disconnected& disconnected) override;
    void settled(qz::client::MessageId id) override;

private:
    void show_message_line(Line line);
    bool try_send(const UnsentMessage& message);
    void send_kept();
    void remember_name(const std::string& name);
    void take(const qz::client::Message& message);
    void take(const qz::client::Receipt& receipt);
    void take(const qz::client::Typing& typing);
    void take(const qz::client::PresenceChange& change);
    void take(const qz::client::BuddiesOnLine& list);
    void take(const qz::client::RoomList& list);
    void take(const qz::client::Policy& policy);
    void take(const qz::client::ExpirationTime& time);
    void take(const qz::client::VersionNotice& notice);
    void take_other(const qz::client::Incoming& incoming);
    template <typename Other> void take(const Other& other);

    std::string own_name_;
    const qz::Clock& clock_;
    View& view_;
    Link* link_ = nullptr;
    Files* files_ = nullptr;

    std::string partner_;
    Typing typing_;
    Questions questions_;
    Unsent unsent_;
    std::optional<std::chrono::minutes> message_life_;
    std::optional<std::int32_t> server_minutes_;
    std::map<qz::client::MessageId, std::string> awaited_; // texts of messages, by number
    std::deque<qz::client::MessageId> awaited_order_;      // oldest first
    std::deque<Line> history_;
    std::vector<std::string> names_; // of people and rooms that were met
    std::set<std::string> rooms_;    // without prefix
    std::map<qz::client::Policy::Item, bool> allowed_;
    std::string offered_version_; // the latest that was told
    bool was_logged_on_ = false;
    bool lost_ = false; // and said so
    bool over_ = false;
    std::optional<Failure> failure_;
};

} // namespace velto
