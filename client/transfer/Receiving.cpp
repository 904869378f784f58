#include "client/transfer/Receiving.h"

#include "client/transfer/Bytes.h"

namespace qz::client::transfer {

void Receiving::begin()
{
    if (sink_.size() > size_) {
        if (const auto failure = sink_.restart()) {
            end({*failure});
            return;
        }
    }
    hash_.begin(sink_.size());
    if (hash_.is_over()) {
        ask();
    }
}

void Receiving::work()
{
    if (state_ != State::Hashing) {
        return;
    }
    if (!hash_.work(sink_, channel_)) {
        end({Outcome::CannotWrite});
    } else if (hash_.is_over()) {
        ask();
    }
}

void Receiving::ask()
{
    std::string body;
    append_number(body, sink_.size());
    body += view_of(hash_.result());
    channel_.send(RecordType::Resume, body);
    state_ = State::AwaitingStart;
}

void Receiving::take(const Record& record)
{
    if (state_ == State::Over || record.type == RecordType::Working) {
        return;
    }
    if (record.type == RecordType::Cancel) {
        state_ = State::Over;
        ending_ = Ending{outcome_of(static_cast<unsigned char>(record.body.front())), true};
    } else if (record.type == RecordType::Start && state_ == State::AwaitingStart) {
        take_start(read_number<std::uint64_t>(record.body));
    } else if (record.type == RecordType::Data && state_ == State::Taking) {
        take_data(record.body);
    } else if (record.type == RecordType::End && state_ == State::Taking) {
        take_end(record.body);
    } else {
        end({Outcome::Misbehaved});
    }
}

void Receiving::take_start(std::uint64_t at)
{
    if (at != 0 && at != sink_.size()) {
        end({Outcome::Misbehaved});
        return;
    }
    if (at == 0) {
        if (const auto failure = sink_.restart()) {
            end({*failure});
            return;
        }
        hash_.begin(0);
    }
    done_ = at;
    state_ = State::Taking;
}

void Receiving::take_data(std::string_view bytes)
{
    if (bytes.size() > size_ - done_) {
        end({Outcome::Misbehaved, false, "It sent more bytes than it had offered."});
        return;
    }
    if (const auto failure = sink_.append(bytes)) {
        end({*failure});
        return;
    }
    hash_.add(bytes);
    done_ += bytes.size();
}

void Receiving::take_end(std::string_view hash)
{
    if (done_ != size_) {
        end({Outcome::Misbehaved, false, "It sent fewer bytes than it had offered."});
        return;
    }
    if (view_of(hash_.result()) != hash) {
        sink_.discard();
        end({Outcome::WrongChecksum});
        return;
    }
    if (const auto failure = sink_.commit()) {
        end({*failure});
        return;
    }
    state_ = State::Over;
    ending_ = Ending{};
    channel_.send(RecordType::Stored, {});
}

void Receiving::end(const Ending& ending)
{
    if (state_ != State::Over) {
        state_ = State::Over;
        ending_ = ending;
        channel_.send(RecordType::Cancel, std::string(1, static_cast<char>(code_of(ending.outcome))));
    }
}

} // namespace qz::client::transfer
