// The receiver's side of a direct connection.
#pragma once

#include "client/transfer/Conversation.h"
#include "client/transfer/PrefixHash.h"

namespace qz::client::transfer {

class Receiving final : public Conversation {
public:
    /// @param size  bytes of the file as offered: not one more is taken.
    /// The references outlive the conversation.
    Receiving(FileSink& sink, std::uint64_t size, Channel& channel)
        : sink_(sink), size_(size), channel_(channel)
    {
    }

    void begin() override;
    void take(const Record& record) override;
    bool has_work() const override { return state_ == State::Hashing; }
    void work() override;
    void end(const Ending& ending) override;
    const std::optional<Ending>& ending() const override { return ending_; }
    std::uint64_t done() const override { return done_; }
    std::chrono::seconds patience() const override { return kPatience; }

private:
    enum class State { Hashing, AwaitingStart, Taking, Over };

    void ask();
    void take_start(std::uint64_t at);
    void take_data(std::string_view bytes);
    void take_end(std::string_view hash);

    FileSink& sink_;
    std::uint64_t size_;
    Channel& channel_;
    State state_ = State::Hashing;
    PrefixHash hash_;
    std::uint64_t done_ = 0;
    std::optional<Ending> ending_;
};

} // namespace qz::client::transfer
