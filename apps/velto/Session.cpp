#include "Session.h"

#include "Clean.h"
#include "Commands.h"
#include "Files.h"
#include "Version.h"
#include "base/Text.h"
#include "helpers/ProtocolKeywords.h"

#include <algorithm>
#include <utility>

namespace velto {

namespace {

using namespace qz::client;
using qz::helpers::protocol_keywords;

constexpr std::size_t kMostNames = 500;
constexpr std::size_t kShownOfText = 40; // characters, where a text is only named

bool is_room(std::string_view name)
{
    return name.starts_with(protocol_keywords().RoomPrefix);
}

std::string beginning(const std::string& text)
{
    const auto cleaned = clean(text);
    const auto start = qz::first_characters(cleaned, kShownOfText);
    return std::string(start) + (start.size() < cleaned.size() ? "…" : "");
}

/// The server hung up because it was told to: coming back by itself would be against somebody's will.
bool is_final(const std::string& notice)
{
    return notice.find(" is using this screen name ") != std::string::npos
        || notice.starts_with("You have been logged off");
}

} // namespace

Session::Session(std::string own_name, const qz::Clock& clock, View& view)
    : own_name_(std::move(own_name)), clock_(clock), view_(view)
{
}

void Session::enter(std::string_view line)
{
    typing_.line_sent();
    const auto text = qz::trim(line);
    if (text.empty()) {
        return;
    }
    if (text.starts_with("/") && !text.starts_with("//")) {
        run_command(*this, text.substr(1));
    } else if (partner_.empty()) {
        show(Line::Kind::Trouble,
            "To whom? Choose somebody with /msg NAME or a room with /join ROOM; /help tells more.");
    } else {
        send_text(partner_, text.starts_with("//") ? text.substr(1) : line);
    }
}

void Session::typed(std::string_view line_so_far)
{
    const bool to_person = !partner_.empty() && !is_room(partner_);
    if (typing_.tells(line_so_far, clock_.steady()) && to_person && link_->is_logged_on()) {
        link_->send(requests::typing(partner_));
    }
}

std::string Session::prompt() const
{
    constexpr std::size_t kLongest = 60;
    const auto shorten = [](const std::string& text) {
        const auto cleaned = clean(text);
        return std::string(qz::first_characters(cleaned, kLongest));
    };
    const auto typing = typing_.text();
    std::string result = link_->is_logged_on() ? "" : "(not connected) ";
    const auto files = files_ == nullptr ? std::string{} : files_->progress();
    result += files.empty() ? "" : "[" + shorten(files) + "] ";
    result += typing.empty() ? "" : "[" + shorten(typing) + "] ";
    return result + (partner_.empty() ? "velto" : shorten(partner_)) + "> ";
}

void Session::tick()
{
    typing_.expire(clock_.steady());
    send_kept();
}

void Session::talk_to(std::string_view name)
{
    partner_ = qz::trim(name);
    if (!partner_.empty()) {
        remember_name(partner_);
    }
}

void Session::show(Line::Kind kind, std::string text)
{
    view_.show({kind, {}, std::move(text), clock_.now()});
}

void Session::show_message_line(Line line)
{
    line.time = clock_.now();
    view_.show(line);
    history_.push_back(std::move(line));
    if (history_.size() > kMostHistory) {
        history_.pop_front();
    }
}

void Session::show_history(std::size_t lines)
{
    if (history_.empty()) {
        show(Line::Kind::News, "Nothing has been said yet.");
    }
    const auto count = (std::min)(lines, history_.size());
    std::for_each(history_.end() - static_cast<std::ptrdiff_t>(count), history_.end(),
        [this](const Line& line) { view_.show(line); });
}

void Session::send_text(std::string_view to, std::string_view text)
{
    const std::string recipient(qz::trim(to));
    remember_name(recipient);
    const auto who = is_room(recipient) ? recipient + " " + own_name_ : own_name_ + " → " + recipient;
    show_message_line({Line::Kind::Own, who, std::string(text), {}});
    unsent_.add({recipient, std::string(text), message_life_});
    send_kept();
    if (!link_->is_logged_on()) {
        show(Line::Kind::News, "Kept until there is a connection.");
    }
}

void Session::send_kept()
{
    while (const auto* const message = unsent_.next()) {
        if (!try_send(*message)) {
            return;
        }
    }
}

/// @return false when it has to wait.
bool Session::try_send(const UnsentMessage& message)
{
    OutgoingMessage outgoing{message.to, message.text, !is_room(message.to), std::nullopt};
    if (message.life) {
        outgoing.expires = clock_.now().plus_seconds(std::chrono::seconds(*message.life).count());
    }
    const auto sent = link_->send_message(outgoing);
    if (sent.result == SendResult::NotLoggedOn || sent.result == SendResult::OutputFull) {
        return false;
    }
    if (sent.result != SendResult::Sent) {
        show(Line::Kind::Trouble, "Not sent: " + std::string(describe(sent.result)));
        unsent_.drop_next();
        return true;
    }
    if (outgoing.receipt_requested) {
        awaited_[sent.id] = message.text;
        awaited_order_.push_back(sent.id);
        if (awaited_order_.size() > kMostAwaited) {
            awaited_.erase(awaited_order_.front());
            awaited_order_.pop_front();
        }
    }
    unsent_.taken(sent.id);
    return true;
}

void Session::show_unsent()
{
    for (const auto& message : unsent_.messages()) {
        show(Line::Kind::Trouble, "Not sent to " + message.to + ": " + message.text);
    }
}

bool Session::request(const Request& request)
{
    const auto result = link_->send(request);
    if (result != SendResult::Sent) {
        show(Line::Kind::Trouble, "Not done: " + std::string(describe(result)));
    }
    return result == SendResult::Sent;
}

void Session::reconnect()
{
    if (link_->is_logged_on()) {
        show(Line::Kind::News, "You are connected.");
        return;
    }
    link_->start();
    show(Line::Kind::News, "Connecting…");
}

void Session::remember_name(const std::string& name)
{
    if (names_.size() < kMostNames && std::find(names_.begin(), names_.end(), name) == names_.end()) {
        names_.push_back(name);
    }
}

std::vector<std::string> Session::completions(std::string_view line_so_far) const
{
    std::vector<std::string> found;
    if (!line_so_far.starts_with("/")) {
        return found;
    }
    const auto blank = line_so_far.rfind(' ');
    const auto start = line_so_far.substr(blank == std::string_view::npos ? 0 : blank + 1);
    if (blank == std::string_view::npos) {
        for (const auto& command : command_table()) {
            found.push_back("/" + std::string(command.name));
        }
    } else {
        found = names_;
    }
    std::erase_if(found, [&](const auto& each) { return !each.starts_with(start); });
    std::sort(found.begin(), found.end());
    return found;
}

void Session::logged_on()
{
    show(Line::Kind::News,
        was_logged_on_ ? "Connected again." : "Logged on as " + own_name_ + ". /help lists the commands.");
    request(requests::report_version(kVersion));
    for (const auto& room : rooms_) { // memberships end with a connection
        ask<RoomReply>(requests::join_room(room), [this, room](const RoomReply* reply) {
            if (reply != nullptr) {
                entered_room(room);
            }
        });
    }
    was_logged_on_ = true;
    lost_ = false;
    send_kept();
}

void Session::refused(const std::vector<std::string>& reasons)
{
    std::string text = "The server refuses " + own_name_ + ":";
    for (const auto& reason : reasons) {
        text += " " + reason;
    }
    text += reasons.empty() ? " the name or the password is wrong." : "";
    if (!was_logged_on_) {
        failure_ = Failure{true, text};
        over_ = true;
        return;
    }
    show(Line::Kind::Trouble, text);
}

void Session::settled(MessageId id)
{
    unsent_.settled(id);
}

void Session::disconnected(const Disconnected& disconnected)
{
    questions_.connection_lost();
    if (files_ != nullptr) {
        files_->transfers().disconnected();
    }
    if (over_ || disconnected.end == End::Refused || disconnected.end == End::Stopped) {
        return;
    }
    if (!was_logged_on_) {
        failure_ = Failure{false, disconnected.text};
        over_ = true;
        return;
    }
    if (lost_) {
        return; // every further attempt fails in the same way
    }
    lost_ = true;
    if (is_final(disconnected.last_notice)) {
        link_->stop();
        show(Line::Kind::Trouble, "Disconnected. /connect logs on again.");
        return;
    }
    show(Line::Kind::Trouble,
        disconnected.text + " Trying to connect again; what you write is kept and sent then.");
}

void Session::incoming(const Incoming& incoming)
{
    const bool is_about_files = files_ != nullptr && files_->transfers().take(incoming);
    if (questions_.take(incoming) || is_about_files) {
        return;
    }
    std::visit([this](const auto& each) { take(each); }, incoming);
}

void Session::take(const Message& message)
{
    typing_.stopped(message.sender);
    const auto source = message.room.empty() ? message.sender : room_name(message.room);
    const bool first = names_.empty() && partner_.empty();
    remember_name(source);
    show_message_line(*line_of(message));
    if (first) {
        show(Line::Kind::News, "To answer: /msg " + source + " TEXT");
    }
}

void Session::take(const Receipt& receipt)
{
    const auto found = awaited_.find(receipt.id);
    if (found == awaited_.end()) {
        return; // told before: it may come twice
    }
    show(Line::Kind::Receipt, receipt.recipient + " has: " + beginning(found->second));
    awaited_.erase(found);
    std::erase(awaited_order_, receipt.id);
}

void Session::take(const qz::client::Typing& typing)
{
    typing_.heard(typing.sender, clock_.steady());
}

void Session::take(const PresenceChange& change)
{
    typing_.stopped(change.presence.name);
    remember_name(change.presence.name);
    take_other(change);
}

void Session::take(const BuddiesOnLine& list)
{
    std::string names;
    for (const auto& buddy : list.buddies) {
        remember_name(buddy.name);
        names += (names.empty() ? "" : ", ") + buddy.name;
        names += buddy.status == protocol_keywords().StatusOnLine ? "" : " (" + buddy.status + ")";
    }
    show(Line::Kind::News, "Your buddies on line: " + names);
}

void Session::take(const RoomList& list)
{
    for (const auto& room : list.rooms) {
        remember_name(room_name(room.name));
    }
}

void Session::take(const Policy& policy)
{
    static const std::map<Policy::Item, std::string> kNames{{Policy::Item::FileTransfer, "File transfers"},
        {Policy::Item::ScreenShot, "Pictures of the screen"},
        {Policy::Item::OtherMessenger, "Other messengers"}};
    const auto known = allowed_.find(policy.item);
    if (known != allowed_.end() && known->second != policy.allowed) {
        show(Line::Kind::Notice,
            kNames.at(policy.item) + (policy.allowed ? " are allowed now." : " are not allowed any more."));
    }
    allowed_[policy.item] = policy.allowed;
}

void Session::take(const ExpirationTime& time)
{
    server_minutes_ = time.minutes;
}

void Session::take(const VersionNotice& notice)
{
    const bool is_news =
        !notice.version.empty() && notice.version != kVersion && notice.version != offered_version_;
    offered_version_ = notice.version;
    if (is_news && !notice.url.empty()) {
        show(Line::Kind::Notice,
            "The administrator offers version " + notice.version + " of the client: " + notice.url);
    }
}

template <typename Other> void Session::take(const Other& other)
{
    take_other(other);
}

void Session::take_other(const Incoming& incoming)
{
    if (auto line = line_of(incoming)) {
        show(line->kind, std::move(line->text));
    }
}

void Session::entered_room(const std::string& room)
{
    rooms_.insert(room);
    remember_name(room_name(room));
    show(Line::Kind::News, "You are in " + room_name(room));
}

} // namespace velto
