// Collects the figures of an engine from the rooms that know them.
#pragma once

#include "base/Journal.h"
#include "config/IniFile.h"
#include "net/ConnectionTable.h"
#include "net/SocketPool.h"
#include "queue/MessageQueue.h"
#include "server/Figures.h"
#include "store/Counters.h"
#include "store/Database.h"

#include <cstdint>
#include <optional>

namespace qz::server {

/// Cheap enough to be asked every second: the accounts are counted again only when their table has changed.
class FigureSource {
public:
    FigureSource(const net::ConnectionTable& connections, const net::SocketPool& pool,
        const queue::MessageQueue& message_queue, store::Database& database, const store::Counters& counters,
        const config::IniFile& ini)
        : connections_(connections), pool_(pool), message_queue_(message_queue), database_(database),
          counters_(counters), ini_(ini)
    {
    }

    Figures read();

private:
    void read_database(Figures& figures);

    const net::ConnectionTable& connections_;
    const net::SocketPool& pool_;
    const queue::MessageQueue& message_queue_;
    store::Database& database_;
    const store::Counters& counters_;
    const config::IniFile& ini_;
    std::int64_t accounts_ = 0;
    std::optional<std::uint64_t> counted_mark_; // the change mark of `users` when they were counted
};

} // namespace qz::server
