// An array whose places are used again, in pieces: growing moves no item, and memory goes back when most
// places are free.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <set>
#include <vector>

namespace qz::queue {

template <typename Item> class PlaceArray {
public:
    using Place = std::size_t;

    /// @return the lowest free place; its item is as it was made, or as it was left.
    Place take()
    {
        if (with_room_.empty()) {
            with_room_.insert(chunks_.size());
            chunks_.emplace_back();
        }
        const auto number = *with_room_.begin();
        auto& chunk = chunks_[number];
        if (!chunk) {
            chunk = std::make_unique<Chunk>();
        }
        const auto item = static_cast<std::size_t>(std::countr_one(chunk->used));
        chunk->used |= std::uint64_t{1} << item;
        if (chunk->used == kFull) {
            with_room_.erase(with_room_.begin());
        }
        return number * kItems + item;
    }
    void release(Place place)
    {
        auto& chunk = *chunks_[place / kItems];
        if (chunk.used == kFull) {
            with_room_.insert(place / kItems);
        }
        chunk.used &= ~(std::uint64_t{1} << place % kItems);
        has_empty_chunk_ = has_empty_chunk_ || chunk.used == 0;
    }
    Item& operator[](Place place) { return chunks_[place / kItems]->items[place % kItems]; }
    const Item& operator[](Place place) const { return chunks_[place / kItems]->items[place % kItems]; }

    /// Calls with each place in use, the lowest first.
    template <typename Visit> void visit(Visit visit) const
    {
        for (std::size_t number = 0; number < chunks_.size(); ++number) {
            for (auto used = chunks_[number] ? chunks_[number]->used : 0; used != 0; used &= used - 1) {
                visit(number * kItems + static_cast<std::size_t>(std::countr_zero(used)));
            }
        }
    }
    /// Gives the memory of free places back, but for those that are used next.
    void shrink()
    {
        if (!has_empty_chunk_) {
            return;
        }
        has_empty_chunk_ = false;
        for (const auto number : with_room_) {
            if (number != *with_room_.begin() && chunks_[number] && chunks_[number]->used == 0) {
                chunks_[number].reset();
            }
        }
        while (chunks_.size() > 1 && !chunks_.back()) {
            chunks_.pop_back();
            with_room_.erase(chunks_.size());
        }
    }

private:
    static constexpr std::size_t kItems = 64;
    static constexpr auto kFull = (std::numeric_limits<std::uint64_t>::max)();
    struct Chunk {
        std::uint64_t used = 0; // a bit for each item
        std::array<Item, kItems> items{};
    };

    std::vector<std::unique_ptr<Chunk>> chunks_; // none where no place is in use
    std::set<std::size_t> with_room_;            // numbers of chunks that have a free place
    bool has_empty_chunk_ = false;
};

} // namespace qz::queue
