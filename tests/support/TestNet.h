// What the objects of the net room need: sockets in memory, and what they tell upwards, written down.
#pragma once

#include "config/Deployment.h"
#include "config/IniFile.h"
#include "helpers/Frame.h"
#include "helpers/MessageParser.h"
#include "net/ChunkStore.h"
#include "net/ConnectionTable.h"
#include "net/NetEvents.h"
#include "net/Sender.h"
#include "net/SocketCloser.h"
#include "net/SocketPool.h"
#include "platform/sodium/SodiumCrypto.h"
#include "support/ManualClock.h"
#include "support/ManualLoop.h"
#include "support/MemorySockets.h"
#include "support/RecordingJournal.h"
#include "support/TemporaryFolder.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace qz::test {

struct TestNet : net::ConnectionEvents,
                 net::TrafficEvents,
                 platform::ServerSocketEvents,
                 platform::ClientSocketEvents {
    TestNet()
    {
        sender.use(sockets.get());
        pool.use(sockets.get());
        closer.use(sockets.get());
        listener->listen();
    }
    virtual ~TestNet() = default;

    /// A client that tried to connect.
    MemoryPeer client(const std::string& address = "192.0.2.10")
    {
        auto peer = network.connect(address);
        loop.run_pending();
        return peer;
    }
    std::vector<std::string> take_notes() { return std::exchange(notes, {}); }

    void released(const std::string& user, const std::string& address, std::int16_t socket) override
    {
        notes.push_back("released " + user + " " + address + " " + std::to_string(socket));
    }
    void traffic(net::Direction direction) override
    {
        notes.emplace_back(direction == net::Direction::Ingoing ? "in" : "out");
    }
    void new_connection_requested(const std::string& address) override { notes.push_back("new " + address); }
    void connection_requested(std::int32_t request) override { pool.connection_requested(request); }
    void data_arrived(std::int16_t socket, const std::string& unit) override
    {
        pool.touch(socket);
        if (on_unit) {
            on_unit(socket, unit);
        }
    }
    void closed(std::int16_t socket) override { closer.SocketClosing(socket); }

    std::function<void(std::int16_t, const std::string&)> on_unit;
    std::vector<std::string> notes; // in order of what was told
    ManualClock clock;
    ManualLoop loop;
    MemoryNetwork network{loop, clock};
    RecordingJournal journal;
    platform::SodiumCrypto crypto;
    helpers::MessageParser parser{crypto};
    TemporaryFolder folder;
    config::IniFile ini{folder.path() / "settings.ini"};
    config::Deployment deployment{ini};
    net::ConnectionTable connections;
    net::ChunkStore chunks{deployment};
    net::Sender sender{parser, loop, *this, journal};
    net::SocketNumbers numbers{deployment, clock};
    net::SocketPool pool{connections, numbers, sender, parser, *this, journal};
    net::SocketCloser closer{connections, pool, chunks, clock, *this, journal};
    std::unique_ptr<platform::ServerSocket> listener = network.create_server_socket(*this);
    std::unique_ptr<platform::ClientSockets> sockets = network.create_client_sockets(*this);
};

} // namespace qz::test
