// Whatever another client sends, over the server or directly, it is bounded, refused, and does no harm; and
// it is read the same in whatever pieces it comes.
#include "Fuzzing.h"

#include "client/transfer/Channel.h"
#include "client/transfer/FileName.h"
#include "client/transfer/NegotiationText.h"
#include "platform/sodium/SodiumCrypto.h"

#include <string>

namespace {

using qz::fuzz::promise;
using namespace qz::client::transfer;

void check_negotiation(std::string_view text)
{
    static qz::platform::SodiumCrypto crypto;
    if (const auto read = read_negotiation(crypto, text)) {
        promise(read_negotiation(crypto, write_negotiation(crypto, *read)).has_value());
    }
}

void check_name(std::string_view text)
{
    const auto name = safe_file_name(text);
    promise(name.size() <= kMaxNameBytes && name.find('/') == std::string::npos);
    promise(name.empty() || (name.front() != '.' && name.front() != '-'));
    promise(safe_file_name(name) == name);
}

/// The state after all bytes, and how much was answered.
std::pair<Channel::State, std::size_t> after(std::string_view bytes, std::size_t piece)
{
    static const TransferKeys keys({}, "id", 7, "name");
    auto channel = Channel::listening(keys, true, 2);
    for (std::size_t at = 0; at < bytes.size(); at += piece) {
        channel.received(bytes.substr(at, piece), [](const Record& record) {
            promise(is_possible(record.type, record.body.size()));
            return true;
        });
    }
    return {channel.state(), channel.output().size()};
}

} // namespace

int fuzz_transfer_peer(const std::uint8_t* data, std::size_t size)
{
    const auto text = qz::fuzz::text_of(data, size);
    check_negotiation(text);
    check_name(text);
    if (const auto greeting = read_greeting(text)) {
        promise(greeting->attempt != 0 && text.size() >= kGreetingSize);
        promise(greeting->token.size() == 32 && greeting->header.size() == 24);
    }
    const auto whole = after(text, size + 1);
    promise(whole == after(text, 1));
    promise(whole.second == 0 || whole.second == kGreetingSize); // strangers hear nothing
    return 0;
}
