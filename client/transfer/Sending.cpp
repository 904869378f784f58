#include "client/transfer/Sending.h"

#include "client/transfer/Bytes.h"

#include <algorithm>

namespace qz::client::transfer {

namespace {

/// Output that waits for the socket at most, before more of the file is read.
constexpr std::size_t kEnoughOutput = 4 * Channel::kMaxData;

} // namespace

void Sending::take(const Record& record)
{
    if (state_ == State::Over || record.type == RecordType::Working) {
        return;
    }
    if (record.type == RecordType::Cancel) {
        state_ = State::Over;
        ending_ = Ending{outcome_of(static_cast<unsigned char>(record.body.front())), true};
    } else if (record.type == RecordType::Resume && state_ == State::AwaitingResume) {
        take_resume(record.body);
    } else if (record.type == RecordType::Stored && state_ == State::AwaitingStored) {
        state_ = State::Over;
        ending_ = Ending{};
    } else {
        end({Outcome::Misbehaved});
    }
}

void Sending::take_resume(std::string_view body)
{
    asked_ = read_number<std::uint64_t>(body);
    asked_hash_ = body.substr(8);
    if (asked_ > source_.size()) {
        end({Outcome::Misbehaved});
        return;
    }
    hash_.begin(asked_);
    state_ = State::Hashing;
    if (hash_.is_over()) {
        compare_prefix();
    }
}

/// What the receiver has may be the beginning of another file of that name and size.
void Sending::compare_prefix()
{
    start(asked_ == 0 || view_of(hash_.result()) == asked_hash_ ? asked_ : 0);
}

void Sending::start(std::uint64_t at)
{
    if (at == 0) {
        hash_.begin(0);
    }
    done_ = at;
    std::string body;
    append_number(body, at);
    channel_.send(RecordType::Start, body);
    state_ = State::Streaming;
}

bool Sending::has_work() const
{
    return state_ == State::Hashing
        || (state_ == State::Streaming && channel_.output().size() < kEnoughOutput);
}

void Sending::work()
{
    if (state_ == State::Hashing) {
        if (!hash_.work(source_, channel_)) {
            end({source_.is_unchanged() ? Outcome::CannotRead : Outcome::FileChanged});
        } else if (hash_.is_over()) {
            compare_prefix();
        }
    } else if (state_ == State::Streaming) {
        stream();
    }
}

void Sending::stream()
{
    const auto size = (std::min)(source_.size() - done_, std::uint64_t{Channel::kMaxData});
    if (size == 0) {
        finish();
        return;
    }
    buffer_.resize(static_cast<std::size_t>(size));
    if (!source_.read(done_, buffer_)) {
        end({source_.is_unchanged() ? Outcome::CannotRead : Outcome::FileChanged});
        return;
    }
    const std::string_view bytes(buffer_.data(), buffer_.size());
    hash_.add(bytes);
    channel_.send(RecordType::Data, bytes);
    done_ += size;
}

void Sending::finish()
{
    if (!source_.is_unchanged()) {
        end({Outcome::FileChanged});
        return;
    }
    channel_.send(RecordType::End, view_of(hash_.result()));
    state_ = State::AwaitingStored;
}

void Sending::end(const Ending& ending)
{
    if (state_ != State::Over) {
        state_ = State::Over;
        ending_ = ending;
        channel_.send(RecordType::Cancel, std::string(1, static_cast<char>(code_of(ending.outcome))));
    }
}

std::chrono::seconds Sending::patience() const
{
    return state_ == State::AwaitingStored ? kStoringPatience : kPatience;
}

} // namespace qz::client::transfer
