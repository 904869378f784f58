#include "client/Outbox.h"

#include "base/Text.h"
#include "helpers/Frame.h"
#include "helpers/ServerCommandNames.h"

#include <algorithm>
#include <limits>

namespace qz::client {

namespace {

/// Frame and message numbers start over after the greatest.
std::int32_t next(std::int32_t& counter)
{
    counter = counter == (std::numeric_limits<std::int32_t>::max)() ? 1 : counter + 1;
    return counter;
}

} // namespace

SendResult Outbox::put(std::string_view keyword, std::string_view parameters, MessageId number)
{
    const auto text =
        helpers::server_command_names().compose(keyword, parameters, static_cast<double>(number));
    if (character_count(text) > kMaxRequestCharacters) {
        return SendResult::TooLong;
    }
    constexpr std::size_t kMarksOfFrame = 64;
    const auto chunks = helpers::split_into_chunks(text);
    if (bytes().size() + text.size() + chunks.size() * kMarksOfFrame > kMaxBytes) {
        return SendResult::OutputFull;
    }
    const auto message_number = next(message_counter_);
    const auto count = static_cast<std::int32_t>(chunks.size());
    std::int32_t index = 0;
    for (const auto chunk : chunks) {
        bytes_ += helpers::write_frame({next(frame_counter_), message_number, ++index, count}, chunk);
    }
    return SendResult::Sent;
}

void Outbox::consume(std::size_t count)
{
    start_ += (std::min)(count, bytes_.size() - start_);
    if (start_ == bytes_.size()) {
        bytes_ = {};
        start_ = 0;
    } else if (start_ >= kMaxBytes) { // seldom, so that moving the rest costs little
        bytes_.erase(0, start_);
        start_ = 0;
    }
}

} // namespace qz::client
