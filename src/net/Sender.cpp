#include "net/Sender.h"

#include "base/Guarded.h"
#include "base/Numbers.h"
#include "helpers/Frame.h"
#include "helpers/ServerCommandNames.h"

namespace qz::net {

namespace {

/// Frame and message numbers start over after the greatest: a server runs for years.
std::int32_t next(std::int32_t& counter)
{
    counter = counter == (std::numeric_limits<std::int32_t>::max)() ? 1 : counter + 1;
    return counter;
}

/// The first character of a chunk is counted in 16 bits, which is what limits a text to 16 chunks.
void check_position(std::int32_t chunk_index)
{
    to_integer<std::int16_t>(static_cast<double>(chunk_index - 1) * helpers::kChunkCharacters);
}

} // namespace

Sender::Sender(
    helpers::MessageParser& parser, platform::EventLoop& loop, TrafficEvents& events, Journal& journal)
    : parser_(parser), loop_(loop), events_(events), journal_(journal)
{
}

void Sender::SendData(std::int16_t socket, std::string_view keyword, std::string_view message)
{
    double number = 0;
    SendData(socket, keyword, message, number);
}

void Sender::SendData(std::int16_t socket, std::string_view keyword, std::string_view message, double& number)
{
    guarded(journal_, "SendData", no_address, [&] {
        sending_ = true;
        if (number == 0) {
            number = parser_.fresh_number();
        }
        const auto message_number = next(message_counter_);
        const auto text = helpers::server_command_names().compose(keyword, message, number);
        const auto chunks = helpers::split_into_chunks(text);
        const auto count = static_cast<std::int32_t>(chunks.size());
        for (std::int32_t index = 1; index <= count; ++index) {
            const auto frame_number = next(frame_counter_);
            if (sockets_ == nullptr || sockets_->state(socket) != platform::kSocketConnected) {
                continue;
            }
            check_position(index);
            send_chunk(socket, {frame_number, message_number, index, count},
                chunks[static_cast<std::size_t>(index - 1)]);
        }
    });
    sending_ = false;
}

void Sender::send_chunk(std::int16_t socket, const helpers::FrameHeader& header, std::string_view chunk)
{
    sockets_->send(socket, helpers::MessageParser::transform(helpers::write_frame(header, chunk)));
    loop_.yield_to_pending_events();
    events_.traffic(Direction::Outgoing);
}

} // namespace qz::net
