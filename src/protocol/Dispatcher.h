// Every message passes here: its envelope is taken apart, then HandleIncoming finds its command and gives it
// to exactly one handler.
#pragma once

#include "base/Journal.h"
#include "config/Settings.h"
#include "helpers/MessageParser.h"
#include "net/NetEvents.h"
#include "net/Sender.h"
#include "net/SocketPool.h"
#include "protocol/EnvelopeReader.h"
#include "protocol/Handlers.h"
#include "protocol/SenderCheck.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace qz::protocol {

/// What the administrator's policy may forbid.
enum class Gate { None, FileTransfer, ScreenTransfer };

class Dispatcher final : public net::IncomingMessages {
public:
    /// What a request must pass before its handler sees it.
    struct Rules {
        const SenderCheck& senders;
        config::Settings& policy;
    };
    Dispatcher(Handlers& handlers, const helpers::MessageParser& parser, const net::SocketPool& pool,
        net::Sender& sender, Rules rules, Journal& journal);

    /// The command words, in the order of comparison.
    static std::vector<std::string> commands();

    net::Envelope CheckMsgIncomingRules(const std::string& data) override
    {
        return reader_.CheckMsgIncomingRules(data);
    }

    /// A command that is unknown is ignored. One that names another sender than it may, or that the policy
    /// forbids, is refused with a notice to its sender; nobody else is told.
    void HandleIncoming(std::int16_t socket, const std::string& message, double number,
        const std::string& first_word) override;

private:
    std::optional<std::string> refusal(Gate gate);

    EnvelopeReader reader_;
    Handlers& handlers_;
    const helpers::MessageParser& parser_;
    const net::SocketPool& pool_;
    net::Sender& sender_;
    Rules rules_;
    Journal& journal_;
};

} // namespace qz::protocol
