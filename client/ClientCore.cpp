#include "client/ClientCore.h"

#include "base/Text.h"
#include "helpers/Frame.h"
#include "helpers/ProtocolKeywords.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace qz::client {

namespace {

using helpers::protocol_keywords;

constexpr std::size_t kMaxSessionId = 64;
constexpr std::size_t kMaxReasons = 8;
constexpr std::string_view kLoopback = "127.0.0.1";
constexpr std::string_view kAnyAddress = "0000:0000:0000:0000:0000:0000:000.000.000.000"; // as long as any

std::size_t size_of(const Request& request)
{
    return std::accumulate(request.fields.begin(), request.fields.end(), std::size_t{0},
        [](std::size_t sum, const auto& field) { return sum + field.second.size(); });
}

} // namespace

ClientCore::ClientCore(Account account, helpers::Crypto& crypto, ClientEvents& events)
    : crypto_(crypto), events_(events), parser_(crypto), account_(std::move(account)), backoff_(crypto)
{
}

void ClientCore::start(TimePoint now)
{
    now_ = now;
    if (state_ == State::Stopped) {
        backoff_.reset();
        begin_attempt(now);
    }
}

void ClientCore::stop()
{
    if (state_ != State::Stopped) {
        end(End::Stopped, "Stopped.");
    }
}

void ClientCore::set_account(Account account)
{
    if (account.screen_name != account_.screen_name) {
        seen_ = {};
        confirmations_.clear();
        own_messages_.clear();
        own_bytes_ = 0;
    }
    account_ = std::move(account);
    was_logged_on_ = false;
}

std::uint64_t ClientCore::attempt() const
{
    return state_ == State::Stopped || state_ == State::Waiting ? 0 : attempt_;
}

void ClientCore::begin_attempt(TimePoint now)
{
    state_ = State::Opening;
    ++attempt_;
    deadline_ = now + kConnectTime;
}

void ClientCore::opened(std::string_view local_address, TimePoint now)
{
    now_ = now;
    if (state_ != State::Opening) {
        return;
    }
    state_ = State::Greeting;
    deadline_ = now + kAnswerTime;
    last_heard_ = now;
    session_ = {{}, account_.screen_name, std::string(local_address)};
    events_.connected();
}

void ClientCore::received(std::string_view bytes, TimePoint now)
{
    now_ = now;
    last_heard_ = now;
    // A listener may stop, and even start anew, in the middle of these bytes.
    const auto connection = attempt_;
    while (is_open() && attempt_ == connection) {
        const auto unit = cutter_.next_unit(bytes);
        if (!unit) {
            break;
        }
        take_unit(*unit);
    }
    if (is_open() && attempt_ == connection && cutter_.overflowed()) {
        end(End::Oversized, "The server sent more than belongs into one piece.");
    }
}

void ClientCore::closed(std::string_view why, TimePoint now)
{
    now_ = now;
    if (state_ == State::Opening) {
        end(End::Unreachable, why);
    } else if (is_open()) {
        end(End::Closed, why);
    }
}

/// Forgets all that belongs to one transport.
void ClientCore::leave_transport()
{
    cutter_ = {};
    reassembly_.clear();
    session_ = {};
    reasons_.clear();
    outbox_ = {};
    echoes_.clear();
    confirmations_.connection_lost();
    own_messages_.connection_lost();
}

void ClientCore::end(End why, std::string_view text)
{
    if (state_ == State::LoggedOn && now_ - logged_on_at_ >= kStableTime) {
        backoff_.reset();
    }
    Disconnected disconnected{why, std::string(text), std::exchange(last_notice_, {}), {}};
    leave_transport();
    if (why == End::Stopped || why == End::Refused) {
        state_ = State::Stopped;
    } else {
        state_ = State::Waiting;
        deadline_ = now_ + backoff_.next();
        disconnected.next_attempt = deadline_;
    }
    events_.disconnected(disconnected);
}

void ClientCore::refuse(std::string_view text)
{
    const auto connection = attempt_;
    events_.refused(std::exchange(reasons_, {}));
    if (state_ == State::LoggingOn && attempt_ == connection) { // the listener has not stopped it already
        end(End::Refused, text);
    }
}

void ClientCore::tick(TimePoint now)
{
    now_ = now;
    reassembly_.sweep(now);
    const bool due = now >= next_deadline().value_or((TimePoint::max)());
    if (!due) {
        return;
    }
    switch (state_) {
    case State::Stopped:
        break;
    case State::Waiting:
        begin_attempt(now);
        break;
    case State::Opening:
        end(End::Unreachable, "No connection came about in time.");
        break;
    case State::Greeting:
        end(End::NoAnswer, "The server offered no session in time.");
        break;
    case State::LoggingOn:
        if (was_logged_on_) {
            end(End::NoAnswer, "The server did not answer the logon in time.");
            break;
        }
        // Trying a name over and over that the server may not know would trouble its administrator each time.
        refuse("The server did not answer the logon: it may not know the name.");
        break;
    case State::LoggedOn:
        if (is_probe_open()) {
            end(End::NoAnswer, "The server fell silent.");
        } else {
            probe();
            if (!is_probe_open()) {
                end(End::NoAnswer, "The server takes nothing any more.");
            }
        }
        break;
    }
}

std::optional<TimePoint> ClientCore::next_deadline() const
{
    if (state_ == State::Stopped) {
        return std::nullopt;
    }
    if (state_ != State::LoggedOn) {
        return deadline_;
    }
    // Whatever the server sends is a sign of life, so a long answer in many pieces keeps the connection.
    return is_probe_open() ? (std::max)(probed_at_, last_heard_) + kAnswerTime : last_heard_ + kQuietTime;
}

void ClientCore::consume_output(std::size_t bytes)
{
    outbox_.consume(bytes);
    if (is_logged_on()) {
        send_owed(); // what found no room before
    }
}

void ClientCore::take_unit(const std::string& unit)
{
    std::optional<std::string> whole = unit;
    if (unit.starts_with(protocol_keywords().FrameStart)) {
        const auto frame = helpers::parse_frame(unit);
        whole = frame ? reassembly_.put(frame->header, frame->chunk, now_) : std::nullopt;
        if (frame && frame->header.chunk_index == 1
            && frame->header.chunk_count > static_cast<std::int32_t>(kMaxChunks)) {
            events_.incoming(CutOff{frame->header.chunk_count});
        }
    }
    if (!whole) {
        return;
    }
    if (const auto envelope = read_envelope(*whole)) {
        take_envelope(*envelope);
    }
}

void ClientCore::take_envelope(const Envelope& envelope)
{
    const auto& words = protocol_keywords();
    if (envelope.keyword != words.LogOn) { // a refusal follows its reason
        last_notice_.clear();
    }
    if (envelope.keyword == words.SessionOffer) {
        take_session(envelope);
    } else if (envelope.keyword == words.LogOn) {
        take_logon_answer(envelope);
    } else if (envelope.keyword != words.Echo || !take_own_echo()) {
        take_incoming(read_incoming(envelope));
    }
}

void ClientCore::take_session(const Envelope& envelope)
{
    auto id = read_value(envelope.body, "sessionidvalue");
    const bool makes_sense = !id.empty() && id.size() <= kMaxSessionId && id.find(' ') == std::string::npos;
    if (state_ != State::Greeting || !makes_sense) {
        return;
    }
    session_.id = std::move(id);
    state_ = State::LoggingOn;
    deadline_ = now_ + kAnswerTime;
    const auto form = session_.own_address == kLoopback ? helpers::CredentialForm::Plain : account_.form;
    const auto credential = [&](const std::string& text) {
        return helpers::EncodeCredential(crypto_, valid_utf8(text), session_.own_address, form);
    };
    const auto parameters = "screenname=" + credential(account_.screen_name)
        + " password=" + credential(account_.password) + " sessionidvalue=" + session_.id;
    outbox_.put(protocol_keywords().LogOn, parameters, fresh_id());
}

void ClientCore::take_logon_answer(const Envelope& envelope)
{
    const auto answer = read_value(envelope.body, "answer");
    if (answer.empty()) {
        take_incoming(Notice{std::string(envelope.body)});
    } else if (answer == protocol_keywords().AnswerAccepted) {
        log_on();
    } else if (state_ == State::LoggingOn) {
        refuse("The server refused the logon.");
    } else {
        end(End::SessionLost, "The server no longer accepts this session.");
    }
}

void ClientCore::log_on()
{
    if (state_ != State::LoggingOn) {
        return;
    }
    state_ = State::LoggedOn;
    was_logged_on_ = true;
    logged_on_at_ = now_;
    reasons_.clear();
    send_owed();
    events_.logged_on();
}

void ClientCore::take_incoming(const Incoming& incoming)
{
    if (const auto* const message = std::get_if<Message>(&incoming)) {
        take_message(*message);
        return;
    }
    if (const auto* const notice = std::get_if<Notice>(&incoming)) {
        last_notice_ = notice->text;
        if (!is_logged_on() && reasons_.size() < kMaxReasons) {
            reasons_.push_back(notice->text);
        }
    }
    events_.incoming(incoming);
}

void ClientCore::take_message(const Message& message)
{
    // Nobody is logged on, so there is nobody to whom the server may deliver; and nothing could be confirmed.
    if (!is_logged_on()) {
        return;
    }
    if (confirms_) {
        if (confirmations_.is_full()) {
            confirmations_.take_oldest();
        }
        confirmations_.add(message.id);
    }
    if (seen_.is_new(message)) {
        events_.incoming(message);
    }
    if (is_logged_on()) {
        send_owed();
    }
}

/// Takes the answer to the oldest echo.
/// @return true when that echo was the client's own, which is no news to the program.
bool ClientCore::take_own_echo()
{
    if (echoes_.empty()) {
        return false;
    }
    const auto echo = echoes_.front();
    echoes_.pop_front();
    while (confirmations_.take_acknowledged(echo.confirmations)) { }
    settle(echo.messages);
    if (is_logged_on()) {
        send_owed();
    }
    return echo.is_own;
}

/// The server has worked on all own messages that were sent before the mark. A listener may stop, and even
/// start anew: the rest is settled all the same.
void ClientCore::settle(std::uint64_t mark)
{
    while (const auto message = own_messages_.take_acknowledged(mark)) {
        own_bytes_ -= size_of(message->request);
        events_.settled(message->id);
    }
}

void ClientCore::send_owed()
{
    send_confirmations();
    send_own_messages();
    const bool unsure = confirmations_.any_unacknowledged() || own_messages_.any_unacknowledged();
    if (unsure && !is_probe_open()) {
        probe();
    }
}

void ClientCore::send_confirmations()
{
    while (const auto* const id = confirmations_.next_to_send()) {
        if (put(requests::receipt(*id), fresh_id()) != SendResult::Sent) {
            break; // no room; they go as soon as there is some
        }
        confirmations_.mark_sent();
    }
}

void ClientCore::send_own_messages()
{
    while (const auto* const message = own_messages_.next_to_send()) {
        if (put(message->request, message->id) != SendResult::Sent) {
            break; // the same
        }
        own_messages_.mark_sent();
    }
}

/// Asks for an answer that tells that the server is there and has all that was sent before. The number of the
/// program's own echoes leaves room for it.
void ClientCore::probe()
{
    probed_at_ = now_;
    if (put(requests::echo(), fresh_id()) == SendResult::Sent) {
        echoes_.push_back({true, confirmations_.mark(), own_messages_.mark()});
    }
}

bool ClientCore::is_probe_open() const
{
    return std::any_of(echoes_.begin(), echoes_.end(), [](const SentEcho& echo) { return echo.is_own; });
}

SendResult ClientCore::send(const Request& request)
{
    if (!is_logged_on()) {
        return SendResult::NotLoggedOn;
    }
    const bool is_echo = request.keyword == protocol_keywords().Echo;
    if (is_echo && echoes_.size() >= kMaxUnansweredEchoes) {
        return SendResult::OutputFull;
    }
    const auto result = put(request, fresh_id());
    if (is_echo && result == SendResult::Sent) {
        echoes_.push_back({false, confirmations_.mark(), own_messages_.mark()});
    }
    return result;
}

ClientCore::SentMessage ClientCore::send_message(const OutgoingMessage& message)
{
    if (const auto refusal = refusal_of(message); refusal != SendResult::Sent) {
        return {refusal};
    }
    if (!is_logged_on()) {
        return {SendResult::NotLoggedOn};
    }
    if (!is_deliverable(message, session_.own_name)) {
        return {SendResult::TooLong};
    }
    const auto id = fresh_id();
    const auto result = put(requests::message(message), id);
    return {result, result == SendResult::Sent ? id : 0};
}

ClientCore::SentMessage ClientCore::deliver_message(const OutgoingMessage& message)
{
    if (const auto refusal = refusal_of(message); refusal != SendResult::Sent) {
        return {refusal};
    }
    if (state_ == State::Stopped) {
        return {SendResult::NotLoggedOn};
    }
    if (!is_deliverable(message, account_.screen_name)) {
        return {SendResult::TooLong};
    }
    auto request = requests::message(message);
    if (const auto refusal = refusal_of(request); refusal != SendResult::Sent) {
        return {refusal};
    }
    const auto size = size_of(request);
    if (own_messages_.is_full() || own_bytes_ + size > kMaxOwnBytes) {
        return {SendResult::OutputFull};
    }
    own_bytes_ += size;
    const auto id = fresh_id();
    own_messages_.add({id, std::move(request)});
    if (is_logged_on()) {
        send_owed();
    }
    return {SendResult::Sent, id};
}

SendResult ClientCore::refusal_of(const OutgoingMessage& message)
{
    const auto to = trim(message.to);
    if (to.empty() || to == protocol_keywords().RoomPrefix) {
        return SendResult::NoRecipient;
    }
    return trim(message.text).empty() ? SendResult::NoText : SendResult::Sent;
}

/// Why a request could never be sent, whatever the session.
SendResult ClientCore::refusal_of(const Request& request) const
{
    constexpr std::size_t kMostAround = 64; // keyword, marks and number
    const Session any{std::string(kMaxSessionId, '0'), account_.screen_name, std::string(kAnyAddress)};
    const auto parameters = compose_parameters(parser_, any, request);
    if (!parameters) {
        return SendResult::NotTransmittable;
    }
    return character_count(*parameters) + kMostAround > kMaxRequestCharacters ? SendResult::TooLong
                                                                              : SendResult::Sent;
}

SendResult ClientCore::put(const Request& request, MessageId number)
{
    const bool is_word = !request.keyword.empty() && request.keyword.find_first_of(" =") == std::string::npos;
    const auto parameters = is_word ? compose_parameters(parser_, session_, request) : std::nullopt;
    return parameters ? outbox_.put(request.keyword, *parameters, number) : SendResult::NotTransmittable;
}

MessageId ClientCore::fresh_id()
{
    return static_cast<MessageId>(parser_.fresh_number());
}

} // namespace qz::client
