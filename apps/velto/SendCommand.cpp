#include "SendCommand.h"

#include "Clean.h"
#include "Line.h"
#include "ScriptClient.h"
#include "base/Text.h"
#include "helpers/ProtocolKeywords.h"

#include <iostream>

namespace velto {

namespace {

using namespace qz::client;

std::string text_of(const SendOptions& options)
{
    if (options.text != "-") {
        return options.text;
    }
    constexpr std::size_t kMostBytes = std::size_t{256} * 1024; // more than any message may have
    std::string text;
    for (char byte = 0; text.size() < kMostBytes && std::cin.get(byte);) {
        text.push_back(byte);
    }
    while (text.ends_with("\n") || text.ends_with("\r")) {
        text.pop_back();
    }
    return text;
}

/// The texts with which the server tells that it keeps a message not. They are part of the protocol.
bool is_refusal(const std::string& notice)
{
    return notice.ends_with(" doesn't exist!") || notice.ends_with(" was not accepted!")
        || notice == "You can't send messages to yourself!";
}

/// One message on its way, and what is known of it.
class Sending {
public:
    Sending(const LogOnOptions& log_on, const SendOptions& options)
        : options_(options), client_(log_on, ScriptClient::Messages::Left)
    {
        client_.on_incoming = [this](const Incoming& incoming) {
            take(incoming);
        };
    }

    Exit run()
    {
        text_ = text_of(options_);
        client_.log_on();
        const bool to_room = options_.to.starts_with(qz::helpers::protocol_keywords().RoomPrefix);
        const bool waits = !to_room && !options_.no_wait;
        const auto sent = client_.core().send_message({options_.to, text_, waits, std::nullopt});
        if (sent.result != SendResult::Sent) {
            throw CommandError(Exit::Failed, std::string(describe(sent.result)));
        }
        id_ = sent.id;
        if (!client_.settle() && !confirmed_) {
            throw CommandError(
                Exit::Failed, "the connection ended before the server told whether it has the message");
        }
        if (refused_) {
            return Exit::Failed; // its reason was shown
        }
        if (!waits) {
            say("accepted for ");
            return Exit::Done;
        }
        client_.run_until([this] { return confirmed_; }, std::chrono::seconds(options_.timeout));
        say(confirmed_ ? "delivered to " : "accepted, but not confirmed in time by ");
        return confirmed_ ? Exit::Done : Exit::Unconfirmed;
    }

private:
    void take(const Incoming& incoming)
    {
        if (const auto* const receipt = std::get_if<Receipt>(&incoming)) {
            confirmed_ = confirmed_ || receipt->id == id_;
            return;
        }
        if (const auto* const notice = std::get_if<Notice>(&incoming)) {
            refused_ = refused_ || is_refusal(notice->text);
            std::cerr << "velto: " << clean(notice->text) << "\n";
            return;
        }
        if (const auto* const message = std::get_if<Message>(&incoming)) {
            // It is not confirmed; but a server that keeps nothing until then will not send it again.
            std::cerr << "velto: a message came meanwhile from " << clean(message->sender) << ": "
                      << clean(message->text) << "\n";
        }
    }
    void say(const std::string& what) const
    {
        if (!options_.quiet) {
            std::cout << what << clean(options_.to) << "\n";
        }
    }

    const SendOptions& options_;
    std::string text_;
    ScriptClient client_;
    MessageId id_ = 0;
    bool confirmed_ = false;
    bool refused_ = false;
};

} // namespace

Exit run_send(const LogOnOptions& log_on, const SendOptions& options)
{
    return Sending(log_on, options).run();
}

} // namespace velto
