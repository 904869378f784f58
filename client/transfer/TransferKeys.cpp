#include "client/transfer/TransferKeys.h"

#include "client/transfer/Bytes.h"

namespace qz::client::transfer {

TransferKeys::TransferKeys(
    const platform::SharedKeys& shared, std::string_view id, std::uint64_t size, std::string_view name)
    : shared_(shared), negotiated_(id)
{
    append_number(negotiated_, size);
    negotiated_ += name;
}

TransferKeys::ForConnection TransferKeys::for_connection(bool sender_connects, std::uint32_t attempt) const
{
    const auto derive = [&](const platform::Key& key, char purpose) {
        std::string text = "velto-file/1 ";
        text += purpose;
        text += sender_connects ? 's' : 'r';
        append_number(text, attempt);
        return platform::keyed_hash(key, text + negotiated_);
    };
    return {derive(shared_.sending, 't'), derive(shared_.receiving, 't'),
        {derive(shared_.receiving, 'k'), derive(shared_.sending, 'k')}};
}

} // namespace qz::client::transfer
