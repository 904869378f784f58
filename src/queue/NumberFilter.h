// Tells of most numbers that they are new, without asking the database.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace qz::queue {

/// A set of message numbers that forgets none, and that takes one in some ten thousand new ones for known:
/// each of those makes the database look. It takes four to eight bytes a number and grows with them, each
/// layer twice as large as the one before. A split block Bloom filter, as the Apache Parquet format describes
/// it, with blocks of one cache line.
class NumberFilter {
public:
    /// The next so many numbers go into one layer. Of an empty filter.
    void make_room(std::size_t numbers);
    void add(double number);
    /// @return false when the number was never added.
    bool may_hold(double number) const;
    void clear() { *this = {}; }

private:
    void add_layer(std::size_t blocks);

    static constexpr std::size_t kWords = 8;
    using Block = std::array<std::uint64_t, kWords>;
    using Layer = std::vector<Block>;

    std::vector<Layer> layers_;
    std::size_t room_ = 0; // for numbers in the last layer
};

} // namespace qz::queue
