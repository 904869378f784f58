#include "ScriptClient.h"

#include "Clean.h"
#include "common/Exit.h"

#include <utility>

namespace velto {

ScriptClient::ScriptClient(const LogOnOptions& options, Messages messages)
    : ScriptClient(options.server, account_of(options), messages)
{
}

ScriptClient::ScriptClient(const std::string& server, qz::client::Account account, Messages messages)
    : server_(server), user_(account.screen_name),
      connection_(endpoint_of(server), std::move(account), crypto_, clock_, *this)
{
    core().confirm_messages(messages == Messages::Confirmed);
}

void ScriptClient::log_on()
{
    connection_.start();
    const auto over = [this] {
        return core().is_logged_on() || refusal_ || !why_unreachable_.empty();
    };
    constexpr std::chrono::minutes kLongest{2}; // the library gives up earlier
    run_until(over, kLongest);
    if (refusal_) {
        throw CommandError(Exit::Failed, *refusal_);
    }
    if (!core().is_logged_on()) {
        throw CommandError(Exit::NoServer,
            "no server answers at " + clean(server_) + (why_unreachable_.empty() ? "" : ": ")
                + clean(why_unreachable_) + "\nIs it running? Another one is named with --server HOST:PORT.");
    }
    was_logged_on_ = true;
}

bool ScriptClient::run_until(const std::function<bool()>& condition, std::chrono::milliseconds longest)
{
    bool met = false;
    connection_.run_until(
        [&] {
            met = condition();
            return met || lost_ || Interrupt::requested();
        },
        longest, companion_);
    return met || condition();
}

void ScriptClient::finish(const std::function<bool()>& condition, std::chrono::milliseconds longest)
{
    connection_.run_until(condition, longest, companion_);
}

bool ScriptClient::settle(std::chrono::milliseconds longest)
{
    const auto before = echoes_;
    core().send(qz::client::requests::echo());
    return run_until([&] { return echoes_ > before; }, longest);
}

void ScriptClient::refused(const std::vector<std::string>& reasons)
{
    refusal_ = "the server refuses " + clean(user_);
    *refusal_ += reasons.empty() ? ": the name or the password is wrong" : ":";
    for (const auto& reason : reasons) {
        *refusal_ += " " + clean(reason);
    }
}

void ScriptClient::incoming(const qz::client::Incoming& incoming)
{
    if (std::holds_alternative<qz::client::Echo>(incoming)) {
        ++echoes_;
    }
    if (on_incoming && core().is_logged_on()) {
        on_incoming(incoming);
    }
}

void ScriptClient::disconnected(const qz::client::Disconnected& disconnected)
{
    if (!was_logged_on_) {
        why_unreachable_ = disconnected.text;
    } else if (on_lost) {
        on_lost(disconnected);
    } else {
        lost_ = true;
    }
}

} // namespace velto
