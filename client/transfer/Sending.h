// The sender's side of a direct connection.
#pragma once

#include "client/transfer/Conversation.h"
#include "client/transfer/PrefixHash.h"

#include <vector>

namespace qz::client::transfer {

class Sending final : public Conversation {
public:
    /// Both outlive the conversation.
    Sending(FileSource& source, Channel& channel) : source_(source), channel_(channel) { }

    void begin() override { }
    void take(const Record& record) override;
    bool has_work() const override;
    void work() override;
    void end(const Ending& ending) override;
    const std::optional<Ending>& ending() const override { return ending_; }
    std::uint64_t done() const override { return done_; }
    std::chrono::seconds patience() const override;

private:
    enum class State { AwaitingResume, Hashing, Streaming, AwaitingStored, Over };

    void take_resume(std::string_view body);
    void compare_prefix();
    void start(std::uint64_t at);
    void stream();
    void finish();

    FileSource& source_;
    Channel& channel_;
    State state_ = State::AwaitingResume;
    PrefixHash hash_;
    std::uint64_t done_ = 0;
    std::uint64_t asked_ = 0; // where the receiver would like to go on
    std::string asked_hash_;  // of what it has
    std::vector<char> buffer_;
    std::optional<Ending> ending_;
};

} // namespace qz::client::transfer
