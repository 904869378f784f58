// All the files that one client sends and receives: negotiates over the server, then moves each over a direct
// connection. docs/protocol.md tells what is said.
#pragma once

#include "base/Clock.h"
#include "client/ClientCore.h"
#include "client/transfer/DirectConnection.h"
#include "client/transfer/PartFile.h"
#include "client/transfer/PendingOffers.h"
#include "client/transfer/SourceFile.h"

#include <filesystem>
#include <memory>
#include <string>
#include <variant>
#include <vector>

namespace qz::client::transfer {

enum class Direction { Sending, Receiving };

enum class Stage {
    Checking,   // whether the other user is on line
    Asked,      // this user offered, the other has not answered
    Offered,    // the other user offered, this one has not answered
    Connecting, // both are willing
    Moving,     // from the first byte to the end, breaks included
    Over,
};

/// A transfer as a program shows it. Names are as they came: to be escaped before they are shown.
struct View {
    int number = 0; // names the transfer in the calls below; counts from 1 in each program
    Direction direction = Direction::Sending;
    Stage stage = Stage::Checking;
    std::string peer;
    std::string name;
    std::uint64_t size = 0;
    std::uint64_t done = 0;
    bool is_connected = false;
    std::filesystem::path path; // of a file that was received whole
};

/// Raised in the middle of the work. A listener may call everything that belongs to a user's commands.
class TransferEvents {
public:
    /// Somebody offers a file: accept it, or refuse it.
    virtual void offered(const View& transfer) = 0;
    /// The direct connection stands.
    virtual void started(const View& transfer) = 0;
    virtual void ended(const View& transfer, const Ending& ending) = 0;
    /// Somebody would like to transfer something and did not say what: another kind of program, probably.
    virtual void not_understood(const std::string& from) = 0;

protected:
    ~TransferEvents() = default; // never deleted through this type
};

/// Nothing here waits. After every call the program asks again for what to watch.
class Transfers final : public EventSource {
public:
    static constexpr std::size_t kMost = 16;              // at once
    static constexpr std::size_t kMostOffers = 8;         // of others, not answered
    static constexpr std::chrono::seconds kCheckTime{10}; // for the list of who is on line
    static constexpr std::chrono::minutes kAnswerTime{10};

    /// The references outlive this object.
    Transfers(ClientCore& core, helpers::Crypto& crypto, const Clock& clock, TransferEvents& events,
        PortRange ports);

    /// Offers a file. What comes of it is told by events.
    /// @return the transfer's number, or why it cannot even be offered.
    std::variant<int, Ending> send(const std::string& to, const std::filesystem::path& file);
    /// @param number  of an offer.
    /// @return why not; the offer can still be accepted into another folder then.
    std::optional<Ending> accept(int number, const std::filesystem::path& folder);
    /// Ends a transfer, or refuses an offer; the other side is told.
    /// @param why  for an offer, Cancelled says that the user does not want it.
    /// @return false when there is none of that number.
    bool cancel(int number, const Ending& why = {Outcome::Cancelled});
    std::vector<View> list() const;
    /// Nothing is left to do, not even to say that something has ended.
    bool is_idle() const { return entries_.empty(); }

    /// To be called with all that the server says.
    /// @return true when it was about transfers alone, so that it needs not be shown.
    bool take(const Incoming& incoming);
    /// To be called when the connection to the server ends. Files on their way are not affected.
    void disconnected();

    void add_watches(std::vector<Watch>& watches) const override;
    void on_ready() override;
    std::optional<TimePoint> next_deadline() const override;

private:
    struct Entry {
        View view;
        std::string id;
        std::string offered_name;                // as it travelled
        TimePoint deadline = (TimePoint::max)(); // of the stage
        platform::KeyPair own_key{};
        helpers::Crypto::Key others_key{};
        std::string address;      // of the other side, once known
        std::uint16_t port = 0;   // of the other side, once known
        bool is_reversed = false; // the sender listens, because it could not connect
        std::unique_ptr<SourceFile> source;
        std::unique_ptr<PartFile> sink;
        std::unique_ptr<DirectConnection> direct; // refers to the files
    };

    Entry* find(int number);
    Entry* find(const std::string& id, const std::string& peer, Direction direction);
    std::optional<Ending> check_send(const std::string& to) const;
    Entry& add(Direction direction, const std::string& peer, const std::string& name, std::uint64_t size);

    bool take_transfer(const Transfer& transfer);
    bool take_message(const Message& message);
    bool take_users(const ActiveUsers& users);
    bool take_notice(const Notice& notice);
    void take_text(const std::string& from, const OfferText& offer);
    void take_text(const std::string& from, const AcceptText& accept);
    void take_text(const std::string& from, const ListenText& listen);
    void take_text(const std::string& from, const CancelText& cancel);
    void take_offer(const PendingOffers::Whole& whole);
    void end_interrupted(const std::string& from, const std::string& name, std::uint64_t size);
    void ask(Entry& entry);
    void connect_when_ready(Entry& entry);
    std::optional<std::uint16_t> open_direct(Entry& entry, bool listens);
    void listen_instead(Entry& entry);
    bool tell(const Entry& entry, const NegotiationText& text);

    void drive(Entry& entry);
    void end(Entry& entry, const Ending& ending);
    void tell_end(const Entry& entry, const Ending& ending);
    void sweep();

    ClientCore& core_;
    helpers::Crypto& crypto_;
    const Clock& clock_;
    TransferEvents& events_;
    PortRange ports_;
    bool is_allowed_ = true; // by the policy, until the server says otherwise
    int last_number_ = 0;
    int lists_asked_ = 0; // of users on line, not answered yet
    PendingOffers pending_;
    std::vector<std::unique_ptr<Entry>> entries_; // only `sweep` takes some out: events call back
};

} // namespace qz::client::transfer
