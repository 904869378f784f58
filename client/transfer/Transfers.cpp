#include "client/transfer/Transfers.h"

#include "base/Text.h"
#include "client/transfer/Bytes.h"
#include "client/transfer/FileName.h"
#include "client/transfer/Receiving.h"
#include "client/transfer/Sending.h"

#include <algorithm>
#include <utility>

namespace qz::client::transfer {

Transfers::Transfers(
    ClientCore& core, helpers::Crypto& crypto, const Clock& clock, TransferEvents& events, PortRange ports)
    : core_(core), crypto_(crypto), clock_(clock), events_(events), ports_(ports)
{
}

Transfers::Entry* Transfers::find(int number)
{
    const auto found = std::find_if(entries_.begin(), entries_.end(), [number](const auto& each) {
        return each->view.number == number && each->view.stage != Stage::Over;
    });
    return found == entries_.end() ? nullptr : found->get();
}

Transfers::Entry* Transfers::find(const std::string& id, const std::string& peer, Direction direction)
{
    const auto found = std::find_if(entries_.begin(), entries_.end(), [&](const auto& each) {
        return each->id == id && each->view.peer == peer && each->view.direction == direction
            && each->view.stage != Stage::Over;
    });
    return found == entries_.end() ? nullptr : found->get();
}

Transfers::Entry& Transfers::add(
    Direction direction, const std::string& peer, const std::string& name, std::uint64_t size)
{
    auto& entry = *entries_.emplace_back(std::make_unique<Entry>());
    entry.view.number = ++last_number_;
    entry.view.direction = direction;
    entry.view.peer = peer;
    entry.view.name = name;
    entry.offered_name = name;
    entry.view.size = size;
    entry.own_key = platform::make_key_pair();
    return entry;
}

std::optional<Ending> Transfers::check_send(const std::string& to) const
{
    if (!core_.is_logged_on()) {
        return Ending{Outcome::ServerLost};
    }
    if (!is_allowed_) {
        return Ending{Outcome::Forbidden};
    }
    if (to == lower(core_.screen_name())) {
        return Ending{Outcome::Oneself};
    }
    // The server's answers name the user alone, so that only one offer to a user can wait for one.
    const bool waits = std::any_of(entries_.begin(), entries_.end(), [&to](const auto& each) {
        return each->view.peer == to
            && (each->view.stage == Stage::Checking || each->view.stage == Stage::Asked);
    });
    return waits || entries_.size() >= kMost ? std::optional(Ending{Outcome::Busy}) : std::nullopt;
}

std::variant<int, Ending> Transfers::send(const std::string& to, const std::filesystem::path& file)
{
    const auto peer = lower(trim(to));
    if (auto refusal = check_send(peer)) {
        return *refusal;
    }
    const auto name = safe_file_name(file.filename().string());
    if (name.empty()) {
        return Ending{Outcome::NameUnusable};
    }
    auto opened = SourceFile::open(file);
    if (const auto* const failure = std::get_if<Ending>(&opened)) {
        return *failure;
    }
    if (const auto result = core_.send(requests::active_users()); result != SendResult::Sent) {
        return Ending{Outcome::ServerLost, false, std::string(describe(result))};
    }
    ++lists_asked_;
    auto source = std::get<std::unique_ptr<SourceFile>>(std::move(opened));
    auto& entry = add(Direction::Sending, peer, name, source->size());
    entry.source = std::move(source);
    entry.id = crypto_.to_base64url(view_of(crypto_.random_key()).substr(0, 16));
    entry.deadline = clock_.steady() + kCheckTime;
    return entry.view.number;
}

std::optional<Ending> Transfers::accept(int number, const std::filesystem::path& folder)
{
    auto* const entry = find(number);
    if (entry == nullptr || entry->view.stage != Stage::Offered) {
        return Ending{Outcome::Cancelled, false, "There is no such offer."};
    }
    if (!core_.is_logged_on()) {
        return Ending{Outcome::ServerLost};
    }
    auto opened = PartFile::open(folder, {entry->view.peer, entry->view.name, entry->view.size});
    if (const auto* const failure = std::get_if<Ending>(&opened)) {
        return *failure;
    }
    entry->sink = std::get<std::unique_ptr<PartFile>>(std::move(opened));
    const auto port = open_direct(*entry, true);
    if (!port) {
        entry->direct.reset();
        entry->sink.reset();
        return Ending{Outcome::Unreachable, false, "No port is free to listen on."};
    }
    entry->view.stage = Stage::Connecting;
    core_.send(requests::answer_transfer(TransferKind::File, entry->view.peer, true));
    if (!tell(*entry, AcceptText{entry->id, entry->own_key.open_key, *port})) {
        end(*entry, {Outcome::ServerLost});
    }
    return std::nullopt;
}

/// @return the port, when it listens.
std::optional<std::uint16_t> Transfers::open_direct(Entry& entry, bool listens)
{
    const auto& view = entry.view;
    const bool is_sender = view.direction == Direction::Sending;
    const auto shared = platform::agree_on_keys(entry.own_key, entry.others_key, is_sender);
    if (!shared) {
        return std::nullopt;
    }
    MakeConversation make = [&entry](Channel& channel) -> std::unique_ptr<Conversation> {
        if (entry.source) {
            return std::make_unique<Sending>(*entry.source, channel);
        }
        return std::make_unique<Receiving>(*entry.sink, entry.view.size, channel);
    };
    entry.direct = std::make_unique<DirectConnection>(
        DirectConnection::Plan{TransferKeys(*shared, entry.id, view.size, entry.offered_name), is_sender,
            entry.address, std::move(make)},
        clock_);
    if (listens) {
        return entry.direct->listen(ports_);
    }
    entry.direct->connect(entry.port);
    return std::nullopt;
}

bool Transfers::cancel(int number, const Ending& why)
{
    auto* const entry = find(number);
    if (entry == nullptr) {
        return false;
    }
    end(*entry, why);
    return true;
}

std::vector<View> Transfers::list() const
{
    std::vector<View> views;
    for (const auto& entry : entries_) {
        if (entry->view.stage != Stage::Over) {
            views.push_back(entry->view);
        }
    }
    return views;
}

void Transfers::disconnected()
{
    pending_.clear();
    lists_asked_ = 0;
    is_allowed_ = true; // the server tells it anew after each logon
    for (std::size_t i = 0; i < entries_.size(); ++i) {
        const auto stage = entries_[i]->view.stage;
        if (stage == Stage::Checking || stage == Stage::Asked || stage == Stage::Offered) {
            end(*entries_[i], {Outcome::ServerLost});
        }
    }
}

void Transfers::add_watches(std::vector<Watch>& watches) const
{
    for (const auto& entry : entries_) {
        if (entry->direct) {
            entry->direct->add_watches(watches);
        }
    }
}

std::optional<TimePoint> Transfers::next_deadline() const
{
    auto earliest = pending_.next_deadline().value_or((TimePoint::max)());
    for (const auto& entry : entries_) {
        earliest = (std::min)(earliest, entry->direct ? entry->direct->next_deadline() : entry->deadline);
    }
    return earliest == (TimePoint::max)() ? std::nullopt : std::optional(earliest);
}

void Transfers::on_ready()
{
    for (std::size_t i = 0; i < entries_.size(); ++i) {
        drive(*entries_[i]);
    }
    for (const auto& from : pending_.sweep(clock_.steady())) {
        core_.send(requests::answer_transfer(TransferKind::File, from, false));
        events_.not_understood(from);
    }
    sweep();
}

void Transfers::drive(Entry& entry)
{
    auto& view = entry.view;
    if (!entry.direct) {
        if (view.stage == Stage::Checking && clock_.steady() >= entry.deadline) {
            ask(entry); // the list was too long for the server, perhaps
        } else if (view.stage != Stage::Over && clock_.steady() >= entry.deadline) {
            end(entry, {Outcome::NoAnswer});
        }
        return;
    }
    auto& direct = *entry.direct;
    direct.on_ready();
    view.done = direct.done();
    view.is_connected = direct.is_open();
    if (view.stage == Stage::Connecting && direct.was_open()) {
        view.stage = Stage::Moving;
        events_.started(view);
    }
    if (view.stage == Stage::Over || !direct.ending()) {
        return;
    }
    const auto ending = *direct.ending();
    const bool can_turn = entry.source && !entry.is_reversed && ending.outcome == Outcome::Unreachable;
    if (can_turn) {
        listen_instead(entry);
    } else {
        end(entry, ending);
    }
}

/// The last step of every transfer.
void Transfers::end(Entry& entry, const Ending& ending)
{
    if (entry.view.stage == Stage::Over) {
        return;
    }
    tell_end(entry, ending);
    if (entry.direct) {
        entry.direct->end(ending);
        entry.view.done = entry.direct->done();
    }
    entry.view.stage = Stage::Over;
    entry.view.is_connected = false;
    entry.deadline = (TimePoint::max)();
    if (entry.sink) {
        entry.view.path = entry.sink->path();
    }
    const auto view = entry.view;
    events_.ended(view, ending);
}

void Transfers::tell_end(const Entry& entry, const Ending& ending)
{
    const auto stage = entry.view.stage;
    const auto* const direct = entry.direct.get();
    const bool is_said = direct != nullptr && (direct->is_open() || (direct->was_open() && direct->ending()));
    if (is_said || ending.at_peer || !core_.is_logged_on() || stage == Stage::Checking) {
        return;
    }
    if (stage == Stage::Offered && ending.outcome == Outcome::Cancelled) {
        core_.send(requests::answer_transfer(TransferKind::File, entry.view.peer, false));
    } else if (code_of(ending.outcome) != 0) {
        tell(entry, CancelText{entry.id, ending.outcome});
    }
}

void Transfers::sweep()
{
    std::erase_if(entries_, [](const auto& entry) {
        return entry->view.stage == Stage::Over && (!entry->direct || entry->direct->is_over());
    });
}

} // namespace qz::client::transfer
