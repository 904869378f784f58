// How the transfer of a file is put into words.
#pragma once

#include "base/Clock.h"
#include "client/transfer/Transfers.h"

#include <chrono>
#include <cstdint>
#include <string>

namespace velto {

/// "3.2 MB"; powers of ten.
std::string size_text(std::uint64_t bytes);

/// The file's name, safe to show.
std::string file_text(const qz::client::transfer::View& transfer);

/// How it ended: the reason, and what the system or the server said.
std::string ending_text(const qz::client::transfer::Ending& ending);

/// How fast one transfer goes, measured since its connection stands.
class Progress {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    void begin(const qz::client::transfer::View& transfer, TimePoint now)
    {
        began_ = now;
        at_first_ = transfer.done;
        measured_ = false;
    }
    /// "45% of 1.1 GB, 210 MB/s, 3 s left"
    std::string text(const qz::client::transfer::View& transfer, TimePoint now);
    /// "1.1 GB in 5 s"
    std::string summary(const qz::client::transfer::View& transfer, TimePoint now) const;

private:
    TimePoint began_{};
    std::uint64_t at_first_ = 0; // bytes that were there already
    bool measured_ = false;
};

} // namespace velto
