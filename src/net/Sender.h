// SendData: the only way anything is sent to a client.
#pragma once

#include "base/Journal.h"
#include "helpers/Frame.h"
#include "helpers/MessageParser.h"
#include "net/NetEvents.h"
#include "platform/EventLoop.h"
#include "platform/Sockets.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace qz::net {

class Sender {
public:
    Sender(
        helpers::MessageParser& parser, platform::EventLoop& loop, TrafficEvents& events, Journal& journal);

    /// The sockets to send on; none while the server has not been started.
    void use(platform::ClientSockets* sockets) { sockets_ = sockets; }

    /// Puts a message into its envelope, cuts it into chunks and hands them to the socket, each in a frame.
    /// Chunks are skipped while the socket is not connected. A text of more than 16 chunks ends with an
    /// overflow after the 16th: clients rely on that limit.
    /// @param number  of the message; 0 draws a fresh one, which is given back.
    void SendData(std::int16_t socket, std::string_view keyword, std::string_view message, double& number);
    void SendData(std::int16_t socket, std::string_view keyword, std::string_view message);

    bool is_sending() const { return sending_; }

private:
    void send_chunk(std::int16_t socket, const helpers::FrameHeader& header, std::string_view chunk);

    helpers::MessageParser& parser_;
    platform::EventLoop& loop_;
    TrafficEvents& events_;
    Journal& journal_;
    platform::ClientSockets* sockets_ = nullptr;
    std::int32_t message_counter_ = 0;
    std::int32_t frame_counter_ = 0;
    bool sending_ = false;
};

} // namespace qz::net
