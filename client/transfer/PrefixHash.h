// The hash of the bytes that both sides have already, taken piece by piece so that nobody waits for it.
#pragma once

#include "client/transfer/Channel.h"
#include "client/transfer/Conversation.h"
#include "platform/sodium/RunningHash.h"

#include <algorithm>
#include <vector>

namespace qz::client::transfer {

class PrefixHash {
public:
    /// Begins anew with nothing.
    void begin(std::uint64_t size)
    {
        hash_ = {};
        size_ = size;
        hashed_ = 0;
    }
    bool is_over() const { return hashed_ == size_; }
    /// Hashes one piece, and tells the other side now and then that one is still there.
    /// @return false when the file cannot be read.
    template <typename File> bool work(File& file, Channel& channel)
    {
        std::vector<char> piece(
            static_cast<std::size_t>((std::min)(size_ - hashed_, std::uint64_t{kHashPiece})));
        if (!file.read(hashed_, piece)) {
            return false;
        }
        hash_.add({piece.data(), piece.size()});
        hashed_ += piece.size();
        if (hashed_ / kHashPiece % kPiecesPerSign == 0) {
            channel.send(RecordType::Working, {});
        }
        return true;
    }
    /// Goes on with what follows.
    void add(std::string_view bytes) { hash_.add(bytes); }
    platform::Key result() const { return hash_.result(); }

private:
    platform::RunningHash hash_;
    std::uint64_t size_ = 0;
    std::uint64_t hashed_ = 0;
};

} // namespace qz::client::transfer
