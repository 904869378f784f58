// The bytes that wait to be sent on one connection.
#pragma once

#include "client/Requests.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qz::client {

class Outbox {
public:
    /// Most bytes that wait; the server's own limit.
    static constexpr std::size_t kMaxBytes = std::size_t{1024} * 1024;

    /// Appends one message, in its envelope and in frames. Nothing is appended unless all of it is.
    SendResult put(std::string_view keyword, std::string_view parameters, MessageId number);
    /// What is to be sent now. Valid until the next call.
    std::string_view bytes() const { return std::string_view(bytes_).substr(start_); }
    /// So many bytes of it have been sent.
    void consume(std::size_t count);

private:
    std::string bytes_;
    std::size_t start_ = 0; // what stands before it has been sent
    std::int32_t frame_counter_ = 0;
    std::int32_t message_counter_ = 0;
};

} // namespace qz::client
