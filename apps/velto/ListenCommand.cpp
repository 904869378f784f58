#include "ListenCommand.h"

#include "Clean.h"
#include "EventJson.h"
#include "Line.h"
#include "ScriptClient.h"

#include <iostream>

namespace velto {

namespace {

using namespace qz::client;

class Listening {
public:
    Listening(const LogOnOptions& log_on, const ListenOptions& options)
        : options_(options), client_(log_on, ScriptClient::Messages::Confirmed)
    {
        client_.on_incoming = [this](const Incoming& incoming) {
            take(incoming);
        };
        client_.on_lost = [](const Disconnected& lost) {
            std::cerr << "velto: " << clean(lost.text) << " " << clean(lost.last_notice) << "\n";
        };
    }

    Exit run()
    {
        constexpr std::chrono::hours kForGood{24 * 365 * 10};
        client_.log_on();
        client_.run_until([this] { return is_over(); },
            options_.timeout > 0 ? std::chrono::seconds(options_.timeout) : std::chrono::seconds(kForGood));
        // What was shown is also confirmed, so that it is not shown again by the next command.
        client_.run_until([this] { return client_.core().unconfirmed() == 0; }, std::chrono::seconds(3));
        if (!std::cout) {
            throw CommandError(Exit::Failed, "what came cannot be written to standard output");
        }
        return messages_ < options_.count ? Exit::Failed : Exit::Done;
    }

private:
    bool is_over() const { return !std::cout || (options_.count > 0 && messages_ >= options_.count); }

    void take(const Incoming& incoming)
    {
        if (is_over()) {
            return;
        }
        if (options_.json) {
            if (const auto event = json_of(incoming)) {
                std::cout << json_line(*event) << "\n";
            }
        } else if (auto line = line_of(incoming)) {
            line->time = client_.clock().now();
            std::cout << render(*line, Colour::Off) << "\n";
        }
        std::cout.flush(); // before the library confirms it
        if (std::holds_alternative<Message>(incoming)) {
            ++messages_;
            if (!std::cout) {
                client_.core().stop(); // a message that nobody could read is not confirmed
            } else if (is_over()) {
                client_.core().confirm_messages(false); // the next ones are for the next command
            }
        }
    }

    const ListenOptions& options_;
    ScriptClient client_;
    int messages_ = 0;
};

} // namespace

Exit run_listen(const LogOnOptions& log_on, const ListenOptions& options)
{
    return Listening(log_on, options).run();
}

} // namespace velto
