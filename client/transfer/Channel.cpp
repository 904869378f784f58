#include "client/transfer/Channel.h"

#include "client/transfer/Bytes.h"

namespace qz::client::transfer {

namespace {

constexpr std::size_t kTokenSize = std::tuple_size_v<platform::Key>;
constexpr std::size_t kLengthSize = 4;

} // namespace

std::optional<Greeting> read_greeting(std::string_view bytes)
{
    if (bytes.size() < kGreetingSize || !bytes.starts_with(kGreetingMark)) {
        return std::nullopt;
    }
    bytes.remove_prefix(kGreetingMark.size());
    const Greeting greeting{read_number<std::uint32_t>(bytes), bytes.substr(4, kTokenSize),
        bytes.substr(4 + kTokenSize, platform::kStreamHeaderSize)};
    return greeting.attempt == 0 ? std::nullopt : std::optional(greeting);
}

bool is_possible(RecordType type, std::size_t body_size)
{
    switch (type) {
    case RecordType::Resume:
        return body_size == 8 + kTokenSize;
    case RecordType::Start:
        return body_size == 8;
    case RecordType::Data:
        return body_size >= 1 && body_size <= Channel::kMaxData;
    case RecordType::End:
        return body_size == kTokenSize;
    case RecordType::Cancel:
        return body_size == 1;
    case RecordType::Stored:
    case RecordType::Working:
        return body_size == 0;
    }
    return false;
}

Channel::Channel(const TransferKeys& keys, bool connects, bool sender_connects, std::uint32_t attempt)
    : keys_(keys), connects_(connects), sender_connects_(sender_connects), attempt_(attempt)
{
}

Channel Channel::connecting(const TransferKeys& keys, bool sender_connects, std::uint32_t attempt)
{
    Channel channel(keys, true, sender_connects, attempt);
    channel.prepare();
    channel.greet();
    return channel;
}

Channel Channel::listening(const TransferKeys& keys, bool sender_connects, std::uint32_t least_attempt)
{
    return {keys, false, sender_connects, least_attempt};
}

void Channel::prepare()
{
    secrets_ = keys_.for_connection(sender_connects_, attempt_);
    sealing_.emplace(secrets_.stream.sending);
}

void Channel::greet()
{
    output_ += kGreetingMark;
    append_number(output_, attempt_);
    output_ += view_of(secrets_.own_token);
    output_ += sealing_->header();
}

void Channel::received(std::string_view bytes, const Take& take)
{
    if (state_ == State::Failed) {
        return;
    }
    input_.erase(0, read_); // at most what one call before left: less than a record
    read_ = 0;
    input_ += bytes;
    while (state_ == State::Greeting ? take_greeting() : state_ == State::Open && take_record(take)) { }
}

/// @return true when there was one.
bool Channel::take_greeting()
{
    const auto bytes = std::string_view(input_);
    const auto mark = bytes.substr(0, kGreetingMark.size());
    if (mark != kGreetingMark.substr(0, mark.size())) {
        state_ = State::Failed;
        return false;
    }
    if (bytes.size() < kGreetingSize) {
        return false;
    }
    const auto greeting = read_greeting(bytes);
    const bool is_acceptable =
        greeting && (connects_ ? greeting->attempt == attempt_ : greeting->attempt >= attempt_);
    if (is_acceptable && !connects_) {
        attempt_ = greeting->attempt;
        prepare();
    }
    if (!is_acceptable
        || !platform::equal_in_constant_time(greeting->token, view_of(secrets_.others_token))) {
        state_ = State::Failed;
        return false;
    }
    if (!connects_) {
        greet();
    }
    opening_.emplace(secrets_.stream.receiving, greeting->header);
    read_ = kGreetingSize;
    state_ = State::Open;
    return true;
}

/// @return true when there was one and more is wanted.
bool Channel::take_record(const Take& take)
{
    auto bytes = std::string_view(input_).substr(read_);
    if (bytes.size() < kLengthSize) {
        return false;
    }
    const auto size = read_number<std::uint32_t>(bytes);
    if (size < platform::kSealSize + 1 || size > platform::kSealSize + 1 + kMaxData) {
        state_ = State::Failed;
        return false;
    }
    if (bytes.size() < kLengthSize + size) {
        return false;
    }
    read_ += kLengthSize + size;
    const auto plain = opening_->open(bytes.substr(kLengthSize, size));
    const auto type = plain ? static_cast<RecordType>(plain->front()) : RecordType::Working;
    if (!plain || !is_possible(type, plain->size() - 1)) {
        state_ = State::Failed;
        return false;
    }
    return take({type, plain->substr(1)});
}

void Channel::send(RecordType type, std::string_view body)
{
    plain_.assign(1, static_cast<char>(type));
    plain_ += body;
    append_number(output_, static_cast<std::uint32_t>(plain_.size() + platform::kSealSize));
    sealing_->seal(plain_, output_);
}

void Channel::consume_output(std::size_t bytes)
{
    sent_ += bytes;
    if (sent_ == output_.size() || sent_ >= 4 * kMaxData) { // not each time: moving the rest costs
        output_.erase(0, sent_);
        sent_ = 0;
    }
}

} // namespace qz::client::transfer
