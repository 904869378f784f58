#include "EventJson.h"

#include <string>

namespace velto {

namespace {

using namespace qz::client;
using Json = nlohmann::ordered_json;
using Event = std::optional<Json>;

std::string time_text(qz::DateTime time)
{
    return time.empty() ? std::string{} : time.text();
}

Event event(const Message& message)
{
    return Json{{"event", "message"}, {"id", message.id}, {"from", message.sender}, {"room", message.room},
        {"to", message.recipient}, {"text", message.text}, {"received", time_text(message.received)},
        {"expires", time_text(message.expires)}, {"receipt_requested", message.receipt_requested}};
}
Event event(const Receipt& receipt)
{
    return Json{{"event", "receipt"}, {"id", receipt.id}, {"recipient", receipt.recipient}};
}
Event event(const Typing& typing)
{
    return Json{{"event", "typing"}, {"from", typing.sender}};
}
Event event(const PresenceChange& change)
{
    return Json{{"event", "status"}, {"name", change.presence.name}, {"status", change.presence.status}};
}
Event event(const Notice& notice)
{
    return Json{{"event", "notice"}, {"text", notice.text}};
}
Event event(const RemoteCommand& command)
{
    return Json{{"event", "remote_command"}, {"command", command.command}, {"text", command.text}};
}
Event event(const Transfer& transfer)
{
    static constexpr const char* kSteps[] = {"request", "accepted", "denied"};
    return Json{{"event", transfer.kind == TransferKind::File ? "file_transfer" : "screen_transfer"},
        {"step", kSteps[static_cast<std::size_t>(transfer.step)]}, {"from", transfer.from},
        {"to", transfer.to}, {"address", transfer.remote_address}};
}
template <typename Other> Event event(const Other& /*state*/)
{
    return std::nullopt;
}

} // namespace

std::optional<nlohmann::ordered_json> json_of(const Incoming& incoming)
{
    return std::visit([](const auto& each) { return event(each); }, incoming);
}

std::string json_line(const nlohmann::ordered_json& value)
{
    return value.dump(-1, ' ', true, Json::error_handler_t::replace);
}

} // namespace velto
