#include "queue/NumberFilter.h"

#include <algorithm>
#include <bit>

namespace qz::queue {

namespace {

constexpr std::size_t kFirstBlocks = 1024;   // 64 KiB
constexpr std::size_t kNumbersInABlock = 16; // 32 bits each
constexpr unsigned kTopSixBits = 26;         // of 32: they choose a bit of a word

/// The last step of the generator SplitMix64 (Steele, Lea, Flood 2014): every bit of the number moves all of
/// the result's.
std::uint64_t hash_of(double number)
{
    auto bits = std::bit_cast<std::uint64_t>(number + 0.0); // -0 is 0
    bits = (bits ^ (bits >> 30U)) * 0xBF58476D1CE4E5B9;
    bits = (bits ^ (bits >> 27U)) * 0x94D049BB133111EB;
    return bits ^ (bits >> 31U);
}

std::size_t block_of(std::uint64_t hash, std::size_t blocks)
{
    return static_cast<std::size_t>(hash) & (blocks - 1); // there are 2^n of them
}

/// One bit for each word of a block, by the multipliers of the Parquet format.
std::uint64_t bit_of(std::uint64_t hash, std::size_t word)
{
    constexpr std::array<std::uint32_t, 8> kOdd{
        0x47b6137b, 0x44974d91, 0x8824ad5b, 0xa2b7289d, 0x705495c7, 0x2df1424b, 0x9efc4947, 0x5c6bfb31};
    return std::uint64_t{1} << ((static_cast<std::uint32_t>(hash >> 32U) * kOdd.at(word)) >> kTopSixBits);
}

} // namespace

void NumberFilter::make_room(std::size_t numbers)
{
    const auto blocks = std::bit_ceil(numbers / kNumbersInABlock + 1);
    if (layers_.empty() && blocks > kFirstBlocks) {
        add_layer(blocks);
    }
}

void NumberFilter::add_layer(std::size_t blocks)
{
    layers_.emplace_back(blocks);
    room_ = blocks * kNumbersInABlock;
}

void NumberFilter::add(double number)
{
    if (room_ == 0) {
        add_layer(layers_.empty() ? kFirstBlocks : 2 * layers_.back().size());
    }
    --room_;
    const auto hash = hash_of(number);
    auto& block = layers_.back()[block_of(hash, layers_.back().size())];
    for (std::size_t word = 0; word < kWords; ++word) {
        block.at(word) |= bit_of(hash, word);
    }
}

bool NumberFilter::may_hold(double number) const
{
    const auto hash = hash_of(number);
    return std::any_of(layers_.begin(), layers_.end(), [&](const Layer& layer) {
        const auto& block = layer[block_of(hash, layer.size())];
        std::size_t word = 0;
        return std::all_of(block.begin(), block.end(),
            [&](std::uint64_t bits) { return (bits & bit_of(hash, word++)) != 0; });
    });
}

} // namespace qz::queue
