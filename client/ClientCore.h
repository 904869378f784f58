// The conversation of one client with its server, without any socket: bytes and time go in, bytes and events
// come out. Connection gives it a socket.
#pragma once

#include "client/Backoff.h"
#include "client/ClientEvents.h"
#include "client/DeliveryRecord.h"
#include "client/Outbox.h"
#include "client/Reassembly.h"
#include "client/Requests.h"
#include "helpers/Crypto.h"
#include "helpers/MessageParser.h"
#include "helpers/SettingsCipher.h"
#include "helpers/UnitCutter.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qz::client {

struct Account {
    std::string screen_name;
    std::string password;
    /// Address does not work behind address translation. On a connection from 127.0.0.1 the credentials go
    /// plain all the same: the server knows such a client by the machine's own address, and nothing leaves
    /// the machine.
    helpers::CredentialForm form = helpers::CredentialForm::Address;
};

/// One thread at a time.
class ClientCore {
public:
    static constexpr std::size_t kMaxUnansweredEchoes = 64;
    static constexpr std::size_t kMaxOwnBytes = Outbox::kMaxBytes; // of messages that the server may not have
    static constexpr std::chrono::seconds kConnectTime{60};        // until a connection stands
    static constexpr std::chrono::seconds kAnswerTime{30};         // for the session, the logon, an echo
    static constexpr std::chrono::seconds kQuietTime{60};  // after which the client asks for a sign of life
    static constexpr std::chrono::seconds kStableTime{60}; // logged on so long, delays begin anew

    /// Both outlive the core.
    ClientCore(Account account, helpers::Crypto& crypto, ClientEvents& events);

    /// Connects, and connects again whenever a connection ends, until stop() or a refusal. Does nothing when
    /// it was started already.
    void start(TimePoint now);
    void stop();
    /// To be called while stopped. What is owed for the messages of another name is forgotten.
    void set_account(Account account);

    // For whoever owns the transport.
    /// The running number of the connection that is wanted, or in use; 0 when none is. When it changes, the
    /// transport of the number before is to be closed.
    std::uint64_t attempt() const;
    /// The transport stands.
    /// @param local_address  this end of it, as text.
    void opened(std::string_view local_address, TimePoint now);
    void received(std::string_view bytes, TimePoint now);
    /// The transport has ended, or did not come about.
    void closed(std::string_view why, TimePoint now);
    /// Does what is due.
    void tick(TimePoint now);
    /// When `tick` has something to do; nothing when stopped.
    std::optional<TimePoint> next_deadline() const;
    /// What is to be sent now. Valid until the next call.
    std::string_view output() const { return outbox_.bytes(); }
    /// So many bytes of it have been sent.
    void consume_output(std::size_t bytes);

    // For the program.
    const std::string& screen_name() const { return account_.screen_name; }
    bool is_logged_on() const { return state_ == State::LoggedOn; }
    SendResult send(const Request& request);
    struct SentMessage {
        SendResult result = SendResult::NotLoggedOn;
        MessageId id = 0; // names the message in its receipt; 0 when it was not sent
    };
    /// Sends on this connection, and forgets it.
    SentMessage send_message(const OutgoingMessage& message);
    /// Keeps the message until the server has accepted or refused it (ClientEvents::settled), and sends it
    /// again after a reconnection, with the same number. Between two connections it waits for the next logon.
    /// Not to be sent a second time by the program: that would be another message.
    SentMessage deliver_message(const OutgoingMessage& message);
    /// Own messages of which it is not known yet whether the server has them.
    std::size_t unsettled() const { return own_messages_.size(); }
    /// Whether messages that come from now on are confirmed, as they are at first. A program in which nobody
    /// reads leaves them with the server, which keeps them for the user's next client.
    void confirm_messages(bool on) { confirms_ = on; }
    /// Confirmations that the server may not have yet.
    std::size_t unconfirmed() const { return confirmations_.size(); }

private:
    enum class State { Stopped, Waiting, Opening, Greeting, LoggingOn, LoggedOn }; // from Greeting on, open
    struct SentEcho {
        bool is_own = false;             // ours, to hear whether the server is there
        std::uint64_t confirmations = 0; // those sent before it
        std::uint64_t messages = 0;      // the same
    };

    bool is_open() const { return state_ >= State::Greeting; }
    void begin_attempt(TimePoint now);
    void leave_transport();
    void end(End why, std::string_view text);
    void refuse(std::string_view text);
    void take_unit(const std::string& unit);
    void take_envelope(const Envelope& envelope);
    void take_session(const Envelope& envelope);
    void take_logon_answer(const Envelope& envelope);
    void log_on();
    void take_incoming(const Incoming& incoming);
    void take_message(const Message& message);
    bool take_own_echo();
    void settle(std::uint64_t mark);
    void send_owed();
    void send_confirmations();
    void send_own_messages();
    void probe();
    bool is_probe_open() const;
    static SendResult refusal_of(const OutgoingMessage& message);
    SendResult refusal_of(const Request& request) const;
    SendResult put(const Request& request, MessageId number);
    MessageId fresh_id();

    helpers::Crypto& crypto_;
    ClientEvents& events_;
    helpers::MessageParser parser_;
    Account account_;
    Backoff backoff_;

    State state_ = State::Stopped;
    std::uint64_t attempt_ = 0;
    TimePoint now_;              // of the call that is running, or of the last one
    TimePoint deadline_;         // of the state, in all states but Stopped and LoggedOn
    bool was_logged_on_ = false; // with this account
    TimePoint logged_on_at_;
    TimePoint last_heard_;
    TimePoint probed_at_;

    helpers::UnitCutter cutter_;
    Reassembly reassembly_;
    Session session_;
    std::vector<std::string> reasons_; // texts of this connection before its logon was answered
    std::string last_notice_;
    Outbox outbox_;

    bool confirms_ = true;
    SeenMessages seen_;
    Confirmations confirmations_;
    OwnMessages own_messages_;
    std::size_t own_bytes_ = 0;   // of the texts in own_messages_
    std::deque<SentEcho> echoes_; // not answered yet, oldest first
};

} // namespace qz::client
