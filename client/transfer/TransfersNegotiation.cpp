// The part of Transfers that hears the server.
#include "client/transfer/Transfers.h"

#include "base/Text.h"
#include "client/transfer/FileName.h"

#include <algorithm>

namespace qz::client::transfer {

namespace {

/// How the server's refusal begins; the administrator's name follows.
constexpr std::string_view kForbidden = "File Transfer not allowed by internal policy.";

} // namespace

bool Transfers::take(const Incoming& incoming)
{
    if (const auto* const policy = std::get_if<Policy>(&incoming)) {
        is_allowed_ = policy->item == Policy::Item::FileTransfer ? policy->allowed : is_allowed_;
        return false; // a program may show it
    }
    if (const auto* const transfer = std::get_if<Transfer>(&incoming)) {
        return take_transfer(*transfer);
    }
    if (const auto* const message = std::get_if<Message>(&incoming)) {
        return take_message(*message);
    }
    if (const auto* const users = std::get_if<ActiveUsers>(&incoming)) {
        return take_users(*users);
    }
    if (const auto* const notice = std::get_if<Notice>(&incoming)) {
        return take_notice(*notice);
    }
    return false;
}

bool Transfers::take_users(const ActiveUsers& users)
{
    if (lists_asked_ == 0) {
        return false;
    }
    --lists_asked_;
    for (std::size_t i = 0; i < entries_.size(); ++i) {
        auto& entry = *entries_[i];
        if (entry.view.stage != Stage::Checking) {
            continue;
        }
        const bool is_there = std::any_of(users.users.begin(), users.users.end(),
            [&entry](const Presence& user) { return lower(user.name) == entry.view.peer; });
        if (is_there) {
            ask(entry);
        } else {
            end(entry, {Outcome::PeerOffLine});
        }
    }
    return true;
}

void Transfers::ask(Entry& entry)
{
    entry.view.stage = Stage::Asked;
    entry.deadline = clock_.steady() + kAnswerTime;
    const auto& view = entry.view;
    const auto asked = core_.send(requests::ask_for_transfer(TransferKind::File, view.peer));
    if (asked != SendResult::Sent
        || !tell(entry, OfferText{entry.id, entry.own_key.open_key, view.size, view.name})) {
        end(entry, {Outcome::ServerLost, false, std::string(describe(asked))});
    }
}

bool Transfers::tell(const Entry& entry, const NegotiationText& text)
{
    const auto sent = core_.send_message({entry.view.peer, write_negotiation(crypto_, text)});
    return sent.result == SendResult::Sent;
}

bool Transfers::take_notice(const Notice& notice)
{
    bool any = false;
    if (notice.text.starts_with(kForbidden)) {
        for (std::size_t i = 0; i < entries_.size(); ++i) {
            const auto stage = entries_[i]->view.stage;
            if (stage == Stage::Asked || stage == Stage::Connecting) {
                any = true;
                end(*entries_[i], {Outcome::Forbidden, false, notice.text});
            }
        }
    }
    return any;
}

bool Transfers::take_transfer(const Transfer& transfer)
{
    if (transfer.kind != TransferKind::File) {
        return false;
    }
    const auto from = lower(transfer.from);
    if (transfer.step == Transfer::Step::Request) {
        if (const auto whole = pending_.put_request(from, transfer.remote_address, clock_.steady())) {
            take_offer(*whole);
        }
        return true;
    }
    const auto asked = std::find_if(entries_.begin(), entries_.end(), [&from](const auto& each) {
        return each->view.stage == Stage::Asked && each->view.peer == from && each->address.empty();
    });
    if (asked != entries_.end() && transfer.step == Transfer::Step::Denied) {
        end(**asked, {Outcome::PeerRefused, true});
    } else if (asked != entries_.end()) {
        (*asked)->address = transfer.remote_address;
        (*asked)->deadline = clock_.steady() + PendingOffers::kHalfTime;
        connect_when_ready(**asked);
    }
    return true;
}

bool Transfers::take_message(const Message& message)
{
    const auto text =
        message.room.empty() ? read_negotiation(crypto_, message.text) : std::optional<NegotiationText>();
    if (!text) {
        return false;
    }
    std::visit([&](const auto& each) { take_text(lower(message.sender), each); }, *text);
    return true;
}

void Transfers::take_text(const std::string& from, const OfferText& offer)
{
    if (const auto whole = pending_.put_offer(from, offer, clock_.steady())) {
        take_offer(*whole);
    }
}

void Transfers::take_offer(const PendingOffers::Whole& whole)
{
    std::size_t offers = 0;
    bool has_one = false; // a client that keeps to the protocol waits for the answer
    for (const auto& entry : entries_) {
        const bool is_offer = entry->view.stage == Stage::Offered;
        offers += is_offer ? 1U : 0U;
        has_one = has_one || (is_offer && entry->view.peer == whole.from) || entry->id == whole.offer.id;
    }
    if (has_one) {
        return;
    }
    if (offers >= kMostOffers || entries_.size() >= kMost) {
        core_.send(requests::answer_transfer(TransferKind::File, whole.from, false));
        return;
    }
    const auto name = safe_file_name(whole.offer.name);
    end_interrupted(whole.from, name, whole.offer.size);
    auto& entry = add(Direction::Receiving, whole.from, name, whole.offer.size);
    entry.id = whole.offer.id;
    entry.offered_name = whole.offer.name;
    entry.others_key = whole.offer.key;
    entry.address = whole.address;
    entry.view.stage = Stage::Offered;
    entry.deadline = clock_.steady() + kAnswerTime;
    if (name.empty()) {
        end(entry, {Outcome::NameUnusable});
        return;
    }
    const auto view = entry.view;
    events_.offered(view);
}

/// A sender whose program was started again does not come back to its old offer. What has arrived is released
/// for the new one.
void Transfers::end_interrupted(const std::string& from, const std::string& name, std::uint64_t size)
{
    for (std::size_t i = 0; i < entries_.size(); ++i) {
        auto& entry = *entries_[i];
        const auto& view = entry.view;
        if (entry.sink && entry.direct && !entry.direct->is_open() && view.stage != Stage::Over
            && view.peer == from && view.name == name && view.size == size) {
            end(entry, {Outcome::OfferedAnew});
            entry.direct.reset();
            entry.sink.reset();
        }
    }
}

void Transfers::take_text(const std::string& from, const AcceptText& accept)
{
    auto* const entry = find(accept.id, from, Direction::Sending);
    if (entry != nullptr && entry->view.stage == Stage::Asked && entry->port == 0) {
        entry->port = accept.port;
        entry->others_key = accept.key;
        entry->deadline = clock_.steady() + PendingOffers::kHalfTime;
        connect_when_ready(*entry);
    }
}

void Transfers::connect_when_ready(Entry& entry)
{
    if (!entry.address.empty() && entry.port != 0) {
        entry.view.stage = Stage::Connecting;
        open_direct(entry, false);
        if (!entry.direct) {
            end(entry, {Outcome::Misbehaved});
        }
    }
}

/// The other side cannot be reached from here; perhaps this side can be from there.
void Transfers::listen_instead(Entry& entry)
{
    entry.is_reversed = true;
    const auto port = open_direct(entry, true);
    if (!port || !tell(entry, ListenText{entry.id, *port})) {
        end(entry, {Outcome::Unreachable});
    }
}

void Transfers::take_text(const std::string& from, const ListenText& listen)
{
    auto* const entry = find(listen.id, from, Direction::Receiving);
    if (entry != nullptr && entry->view.stage == Stage::Connecting && !entry->is_reversed) {
        entry->is_reversed = true;
        entry->port = listen.port;
        open_direct(*entry, false);
    }
}

void Transfers::take_text(const std::string& from, const CancelText& cancel)
{
    pending_.withdraw(from, cancel.id);
    for (const auto direction : {Direction::Sending, Direction::Receiving}) {
        if (auto* const entry = find(cancel.id, from, direction)) {
            end(*entry, {cancel.reason, true});
        }
    }
}

} // namespace qz::client::transfer
