// The direct connection of one transfer: listens for the other side or goes to it, and does so again after a
// break.
#pragma once

#include "client/Resolver.h"
#include "client/transfer/Link.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace qz::client::transfer {

/// Ports to listen on, both ends included; with zeros the system chooses any.
struct PortRange {
    std::uint16_t first = 0;
    std::uint16_t last = 0;
};

class DirectConnection {
public:
    static constexpr std::chrono::seconds kAwaitTime{60};       // until the first connection comes
    static constexpr std::chrono::seconds kReturnTime{60};      // after a break, for who connects
    static constexpr std::chrono::seconds kAwaitReturnTime{75}; // and for who listens
    static constexpr std::chrono::seconds kMostDelay{16};       // between two attempts
    static constexpr std::size_t kMaxCandidates = 4;            // that have not proved who they are

    struct Plan {
        TransferKeys keys;
        bool is_sender = false;
        std::string peer_address; // as the server told it
        MakeConversation make;
    };
    DirectConnection(Plan plan, const Clock& clock);

    /// @return the port; nothing when none can be had.
    std::optional<std::uint16_t> listen(PortRange ports);
    void connect(std::uint16_t port);
    /// Ends the transfer, and tells the other side when it is there.
    void end(const Ending& ending);

    /// Unreachable when no connection ever came about.
    const std::optional<Ending>& ending() const { return ending_; }
    bool was_open() const { return was_open_; }
    bool is_open() const { return link_ && link_->state() == Link::State::Open; }
    /// Nothing is left to be said, either.
    bool is_over() const { return ending_ && !link_; }
    std::uint64_t done() const { return done_; }

    void on_ready();
    void add_watches(std::vector<Watch>& watches) const;
    TimePoint next_deadline() const;

private:
    bool connects() const { return port_ != 0; }
    void accept();
    void drive_candidates();
    void drive_link();
    void lose_link();
    void try_again();
    void check_time();
    void finish(const Ending& ending);

    Plan plan_;
    const Clock& clock_;
    Descriptor listener_;
    std::uint16_t port_ = 0;     // of the other side
    std::uint32_t attempt_ = 0;  // of the last connection
    std::unique_ptr<Link> link_; // for who listens, one that has proved who it is
    std::vector<std::unique_ptr<Link>> candidates_;
    bool was_open_ = false;
    std::uint64_t done_ = 0;
    TimePoint give_up_at_ = (TimePoint::max)();
    std::optional<TimePoint> next_attempt_;
    std::chrono::seconds delay_{1};
    std::optional<Ending> ending_;
};

} // namespace qz::client::transfer
