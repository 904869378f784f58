#include "Line.h"

#include "Clean.h"
#include "helpers/ProtocolKeywords.h"

#include <array>
#include <cstdio>
#include <string_view>

namespace velto {

namespace {

using namespace qz::client;

struct Look {
    std::string_view mark; // between the time and the text; of messages, the name stands there
    std::string_view colour;
};

Look look_of(Line::Kind kind)
{
    switch (kind) {
    case Line::Kind::Message:
        return {"", "\x1b[1;36m"};
    case Line::Kind::Own:
        return {"", "\x1b[1;32m"};
    case Line::Kind::Receipt:
        return {"✓ ", "\x1b[32m"};
    case Line::Kind::News:
        return {"* ", "\x1b[34m"};
    case Line::Kind::Notice:
        return {"! ", "\x1b[33m"};
    case Line::Kind::Trouble:
        return {"!! ", "\x1b[31m"};
    }
    return {};
}

constexpr std::string_view kDim = "\x1b[2m";
constexpr std::string_view kPlain = "\x1b[0m";

std::string time_text(qz::DateTime time)
{
    const auto civil = time.civil();
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%02d:%02d", civil.hour, civil.minute);
    return text.data();
}

std::string in_colour(std::string_view text, std::string_view code, Colour colour)
{
    if (colour == Colour::Off || text.empty()) {
        return std::string(text);
    }
    return std::string(code).append(text).append(kPlain);
}

Line line(Line::Kind kind, std::string text)
{
    return {kind, {}, std::move(text), {}};
}

using Shown = std::optional<Line>;

Shown show(const Message& message)
{
    const auto who = message.room.empty() ? message.sender : room_name(message.room) + " " + message.sender;
    return Line{Line::Kind::Message, who, message.text, {}};
}
Shown show(const Receipt& receipt)
{
    return line(Line::Kind::Receipt, receipt.recipient + " has your message");
}
Shown show(const PresenceChange& change)
{
    return line(Line::Kind::News, change.presence.name + " is " + change.presence.status);
}
Shown show(const Typing& typing)
{
    return line(Line::Kind::News, typing.sender + " is typing");
}
Shown show(const Notice& notice)
{
    return line(Line::Kind::Notice, notice.text);
}
Shown show(const RemoteCommand& command)
{
    return line(
        Line::Kind::Notice, "The administrator asks for \"" + command.command + "\": " + command.text);
}
Shown show(const CutOff& /*cut_off*/)
{
    return line(Line::Kind::Trouble, "The answer is longer than the server can send.");
}
Shown show(const Transfer& transfer)
{
    const std::string what = transfer.kind == TransferKind::File ? "a file" : "a picture of the screen";
    switch (transfer.step) {
    case Transfer::Step::Request:
        return line(Line::Kind::News, transfer.from + " wants to send " + what);
    case Transfer::Step::Accepted:
        return line(Line::Kind::News, transfer.from + " accepts " + what);
    case Transfer::Step::Denied:
        return line(Line::Kind::News, transfer.from + " does not want " + what);
    }
    return std::nullopt;
}
template <typename Other> Shown show(const Other& /*state*/)
{
    return std::nullopt;
}

} // namespace

std::string render(const Line& line, Colour colour)
{
    const auto look = look_of(line.kind);
    auto result = in_colour(time_text(line.time), kDim, colour) + " ";
    const auto text = clean(line.text);
    if (!line.who.empty()) {
        return result + in_colour(clean(line.who) + ":", look.colour, colour) + " " + text;
    }
    return result + in_colour(std::string(look.mark) + text, look.colour, colour);
}

std::optional<Line> line_of(const Incoming& incoming)
{
    return std::visit([](const auto& each) { return show(each); }, incoming);
}

std::string room_name(const std::string& room)
{
    return qz::helpers::protocol_keywords().RoomPrefix + room;
}

} // namespace velto
