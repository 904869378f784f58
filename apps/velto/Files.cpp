#include "Files.h"

#include "Clean.h"
#include "base/Text.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace velto {

namespace {

using namespace qz::client::transfer;

std::string peer_text(const qz::client::transfer::View& transfer)
{
    return clean(transfer.peer);
}

std::string stage_text(const qz::client::transfer::View& transfer)
{
    switch (transfer.stage) {
    case Stage::Checking:
    case Stage::Asked:
        return "waits for the answer";
    case Stage::Offered:
        return "offered: /accept or /reject";
    case Stage::Connecting:
        return "connecting";
    case Stage::Moving:
    case Stage::Over:
        break;
    }
    return "on its way";
}

} // namespace

std::filesystem::path typed_path(const std::string& text)
{
    const char* const home = std::getenv("HOME");
    const bool is_home = text == "~" || text.starts_with("~/");
    return home != nullptr && is_home ? home + text.substr(1) : text;
}

Files::Files(qz::client::ClientCore& core, qz::helpers::Crypto& crypto, const qz::Clock& clock,
    PortRange ports, std::filesystem::path folder, Show show)
    : clock_(clock), folder_(std::move(folder)), show_(std::move(show)),
      transfers_(core, crypto, clock, *this, ports)
{
}

void Files::send(const std::string& to, const std::string& file)
{
    const auto sent = transfers_.send(to, typed_path(file));
    if (const auto* const failure = std::get_if<Ending>(&sent)) {
        trouble("Not offered: " + ending_text(*failure));
        return;
    }
    const auto number = std::to_string(std::get<int>(sent));
    news("Offered to " + clean(to) + ". /cancel " + number + " takes it back.");
}

/// What an absent number means.
std::optional<int> Files::choose(std::optional<int> number, bool offers) const
{
    std::optional<int> newest = number;
    for (const auto& transfer : transfers_.list()) {
        if (!number && (!offers || transfer.stage == Stage::Offered)) {
            newest = transfer.number;
        }
    }
    return newest;
}

void Files::accept(std::optional<int> number, const std::string& folder)
{
    const auto chosen = choose(number, true);
    if (!chosen) {
        trouble("Nobody has offered a file.");
        return;
    }
    const auto into = folder.empty() ? folder_ : typed_path(folder);
    if (const auto failure = transfers_.accept(*chosen, into)) {
        trouble("Not accepted into " + into.string() + ": " + ending_text(*failure));
    }
}

void Files::reject(std::optional<int> number)
{
    const auto chosen = choose(number, true);
    const auto all = transfers_.list();
    const bool is_offer = std::any_of(all.begin(), all.end(),
        [&](const auto& each) { return each.stage == Stage::Offered && each.number == chosen; });
    if (!is_offer || !transfers_.cancel(*chosen)) {
        trouble("There is no such offer.");
    }
}

void Files::cancel(std::optional<int> number)
{
    const auto chosen = choose(number, false);
    if (!chosen || !transfers_.cancel(*chosen)) {
        trouble("There is no such transfer.");
    }
}

void Files::list()
{
    const auto all = transfers_.list();
    if (all.empty()) {
        news("No file is on its way.");
    }
    for (const auto& each : all) {
        const bool sending = each.direction == Direction::Sending;
        const bool moves = each.stage == Stage::Moving;
        news(std::to_string(each.number) + ": " + file_text(each) + (sending ? " to " : " from ")
            + peer_text(each) + ", "
            + (moves ? progress_[each.number].text(each, clock_.steady()) : stage_text(each)));
    }
}

std::string Files::progress()
{
    std::string text;
    for (const auto& each : transfers_.list()) {
        if (each.stage == Stage::Moving) {
            const auto percent = each.size == 0 ? 100 : each.done * 100 / each.size;
            constexpr std::size_t kLongest = 30;
            text += (text.empty() ? "" : ", ") + std::string(qz::first_characters(file_text(each), kLongest))
                + " " + std::to_string(percent) + "%" + (each.is_connected ? "" : " (broken)");
        }
    }
    return text;
}

bool Files::is_moving() const
{
    const auto all = transfers_.list();
    return std::any_of(all.begin(), all.end(), [](const auto& each) { return each.stage == Stage::Moving; });
}

void Files::cancel_all()
{
    for (const auto& each : transfers_.list()) {
        transfers_.cancel(each.number);
    }
}

void Files::offered(const qz::client::transfer::View& transfer)
{
    show_(Line::Kind::Notice,
        peer_text(transfer) + " offers " + file_text(transfer) + " (" + size_text(transfer.size)
            + "). /accept " + std::to_string(transfer.number) + " puts it into " + folder_.string()
            + ", /accept " + std::to_string(transfer.number) + " FOLDER elsewhere; /reject "
            + std::to_string(transfer.number));
}

void Files::started(const qz::client::transfer::View& transfer)
{
    progress_[transfer.number].begin(transfer, clock_.steady());
    const bool sending = transfer.direction == Direction::Sending;
    news((sending ? "Sending " : "Receiving ") + file_text(transfer) + (sending ? " to " : " from ")
        + peer_text(transfer) + ". /cancel " + std::to_string(transfer.number) + " ends it.");
}

void Files::ended(const qz::client::transfer::View& transfer, const Ending& ending)
{
    const auto how_fast = progress_[transfer.number].summary(transfer, clock_.steady());
    progress_.erase(transfer.number);
    if (ending.outcome != Outcome::Done) {
        trouble(file_text(transfer) + ": " + ending_text(ending));
    } else if (transfer.direction == Direction::Sending) {
        news(peer_text(transfer) + " has " + file_text(transfer) + ": " + how_fast);
    } else {
        news(file_text(transfer) + " from " + peer_text(transfer)
            + " is here: " + clean(transfer.path.string()) + ", " + how_fast);
    }
}

void Files::not_understood(const std::string& from)
{
    show_(Line::Kind::Notice,
        clean(from) + " wants to send a file, but with a program that does not say which. It was refused.");
}

} // namespace velto
