#include "client/Conversation.h"

#include "helpers/Frame.h"
#include "helpers/ServerCommandNames.h"
#include "helpers/SettingsCipher.h"
#include "helpers/UnitCutter.h"

namespace qz::test {

namespace {

using namespace client;

std::string line(std::initializer_list<std::string> words)
{
    std::string text;
    for (const auto& word : words) {
        text += text.empty() ? word : "|" + word;
    }
    return text;
}

std::string yes_or_no(bool value)
{
    return value ? "yes" : "no";
}

std::string join(const std::vector<std::string>& texts)
{
    std::string all;
    for (const auto& text : texts) {
        all += all.empty() ? text : "," + text;
    }
    return all;
}

std::string all_of(const std::vector<Presence>& presences)
{
    std::string all;
    for (const auto& each : presences) {
        all += "|" + each.name + "=" + each.status;
    }
    return all;
}

struct Shower {
    std::string operator()(const Message& m) const
    {
        return line({"message", std::to_string(m.id), m.sender, m.room, m.recipient, m.received.text(),
            m.expires.text(), yes_or_no(m.receipt_requested), m.text});
    }
    std::string operator()(const Receipt& r) const
    {
        return line({"receipt", std::to_string(r.id), r.recipient});
    }
    std::string operator()(const Typing& t) const { return line({"typing", t.sender}); }
    std::string operator()(const PresenceChange& p) const
    {
        return line({"presence", p.presence.name, p.presence.status});
    }
    std::string operator()(const BuddiesOnLine& list) const { return "on line" + all_of(list.buddies); }
    std::string operator()(const ActiveUsers& list) const { return "active" + all_of(list.users); }
    std::string operator()(const AllBuddies& list) const
    {
        std::string all = "buddies";
        for (const auto& each : list.buddies) {
            all += "|" + each.name + "/" + each.group + "/" + each.status;
        }
        return all;
    }
    std::string operator()(const FoundUsers& list) const
    {
        std::string all = "found";
        for (const auto& each : list.users) {
            all += "|" + each.name + "/" + each.first_name + "/" + each.last_name;
        }
        return all;
    }
    std::string operator()(const RoomList& list) const
    {
        std::string all = "rooms";
        for (const auto& each : list.rooms) {
            all += "|" + each.name + "/" + each.owner + "/" + std::to_string(each.guests);
        }
        return all;
    }
    std::string operator()(const WhereIsBuddy& where) const { return line({"where", join(where.rooms)}); }
    std::string operator()(const RoomReply& r) const
    {
        static const char* const kActions[] = {"joined", "left", "guests", "where", "created", "deleted"};
        return line(
            {"room", kActions[static_cast<int>(r.action)], r.user, r.room, join(r.names), r.feedback});
    }
    std::string operator()(const AutoReplyState& s) const
    {
        return line({"auto-reply", yes_or_no(s.enabled), s.message});
    }
    std::string operator()(const AutoReplySaved& s) const { return line({"saved", yes_or_no(s.saved)}); }
    std::string operator()(const BuddyDetails& d) const
    {
        return line({"details", d.buddy, d.first_name, d.last_name, d.email, d.client_version, d.group,
            d.comment, d.key});
    }
    std::string operator()(const BuddyKey& k) const { return line({"key", k.buddy, k.key}); }
    std::string operator()(const BuddyUpdated& u) const
    {
        return line({"updated", u.buddy, yes_or_no(u.updated), u.of_key ? "key" : "details"});
    }
    std::string operator()(const Administrator& a) const { return line({"administrator", a.name}); }
    std::string operator()(const Policy& p) const
    {
        return line({"policy", std::to_string(static_cast<int>(p.item)), yes_or_no(p.allowed)});
    }
    std::string operator()(const VersionNotice& v) const { return line({"version", v.version, v.url}); }
    std::string operator()(const ExpirationTime& e) const
    {
        return line({"expiration", std::to_string(e.minutes)});
    }
    std::string operator()(const RemoteCommand& c) const { return line({"command", c.command, c.text}); }
    std::string operator()(const Transfer& t) const
    {
        static const char* const kSteps[] = {"request", "accepted", "denied"};
        return line({t.kind == TransferKind::File ? "file" : "screen", kSteps[static_cast<int>(t.step)],
            t.from, t.to, t.remote_address});
    }
    std::string operator()(const Notice& n) const { return line({"notice", n.text}); }
    std::string operator()(const Echo& /*echo*/) const { return "echo"; }
    std::string operator()(const CutOff& c) const { return line({"cut off", std::to_string(c.chunks)}); }
    std::string operator()(const Unknown& u) const { return line({"unknown", u.keyword, u.body}); }
};

/// For a cipher that decodes nothing of the server's own.
class NoKey final : public helpers::KeySource {
public:
    virtual ~NoKey() = default;
    const helpers::Crypto::Key& key() override { return none_; }
    const helpers::Crypto::Key& existing_key() override { return none_; }

private:
    helpers::Crypto::Key none_{};
};

} // namespace

std::string show(const Incoming& incoming)
{
    return std::visit(Shower{}, incoming);
}

void RecordingEvents::refused(const std::vector<std::string>& reasons)
{
    lines.push_back(line({"refused", join(reasons)}));
}

void RecordingEvents::disconnected(const Disconnected& disconnected)
{
    static const char* const kEnds[] = {
        "stopped", "unreachable", "refused", "no answer", "closed", "session lost", "oversized"};
    lines.push_back(line({"disconnected", kEnds[static_cast<int>(disconnected.end)], disconnected.last_notice,
        disconnected.next_attempt ? "again" : "for good"}));
    last_end = disconnected;
}

std::string from_server(std::string_view text, double number)
{
    const auto blank = text.find(' ');
    const auto composed = helpers::server_command_names().compose(text.substr(0, blank),
        blank == std::string_view::npos ? std::string_view{} : text.substr(blank + 1), number);
    static std::int32_t message = 0;
    ++message;
    std::string bytes;
    const auto chunks = helpers::split_into_chunks(composed);
    for (std::size_t i = 0; i < chunks.size(); ++i) {
        bytes += helpers::write_frame(
            {message, message, static_cast<std::int32_t>(i + 1), static_cast<std::int32_t>(chunks.size())},
            chunks[i]);
    }
    return bytes;
}

std::vector<std::string> said(std::string_view bytes)
{
    std::vector<std::string> texts;
    helpers::UnitCutter cutter;
    std::string whole;
    while (const auto unit = cutter.next_unit(bytes)) {
        const auto frame = helpers::parse_frame(*unit);
        if (!frame) {
            texts.push_back("!" + *unit);
            continue;
        }
        whole += frame->chunk;
        if (frame->header.chunk_index == frame->header.chunk_count) {
            const auto envelope = read_envelope(whole);
            texts.push_back(envelope ? std::string(envelope->keyword).append(1, ' ').append(envelope->body)
                                     : "!" + whole);
            whole.clear();
        }
    }
    return texts;
}

std::string read_credential(std::string_view field, std::string_view from_address)
{
    platform::SodiumCrypto crypto;
    NoKey keys;
    helpers::SettingsCipher cipher(crypto, keys);
    field.remove_prefix((std::min)(field.size(), helpers::SettingsCipher::Marker.size()));
    return cipher.DecodeCredential(field, from_address);
}

Conversation::Conversation(Account account, std::string client_address)
    : core(std::move(account), crypto, events), address(std::move(client_address))
{
}

void Conversation::open()
{
    core.start(now);
    core.opened(address, now);
}

void Conversation::log_on()
{
    open();
    server("session sessionidvalue=42");
    server("logon answer=accepted");
    client();
    events.take();
}

std::vector<std::string> Conversation::client()
{
    auto texts = said(core.output());
    core.consume_output(core.output().size());
    return texts;
}

void Conversation::pass(std::chrono::milliseconds time)
{
    now += time;
    core.tick(now);
}

} // namespace qz::test
