// Puts the chunks of the server's long messages together.
#pragma once

#include "helpers/Frame.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace qz::client {

using TimePoint = std::chrono::steady_clock::time_point;

/// The server sends one message in the middle of another, so several may be incomplete at a time.
class Reassembly {
public:
    /// Most chunks of incomplete messages; the oldest message gives way.
    static constexpr std::size_t kMaxStored = 64;
    /// Age of a message's first chunk after which it is given up.
    static constexpr std::chrono::seconds kMaxAge{30};

    /// Takes one chunk; one that makes no sense is dropped.
    /// @return the whole message when this was its last chunk.
    std::optional<std::string> put(const helpers::FrameHeader& header, std::string_view chunk, TimePoint now);
    /// Gives up what is too old.
    void sweep(TimePoint now);
    void clear();
    std::size_t size() const { return size_; }

private:
    struct Partial {
        std::int32_t message_number = 0;
        std::int32_t chunk_count = 0;
        TimePoint begun;
        std::map<std::int32_t, std::string> chunks;
    };

    void drop_oldest();

    std::deque<Partial> partials_; // oldest first
    std::size_t size_ = 0;         // chunks of all
};

} // namespace qz::client
