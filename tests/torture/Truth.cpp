#include "torture/Truth.h"

namespace qz::torture {

namespace {

constexpr std::size_t kMostFailures = 20;

/// "ann>bob 17", without what only makes it long.
std::string name_of(const std::string& text)
{
    return text.substr(0, text.find(" .."));
}

} // namespace

std::string Truth::next_text(const std::string& from, const std::string& to, std::size_t length)
{
    const auto number = ++last_sent_[{from, to}];
    messages_.push_back({from + ">" + to + " " + std::to_string(number), from, to, number});
    return messages_.back().text + " .." + std::string(length, '.');
}

void Truth::take_back()
{
    --last_sent_[{messages_.back().from, messages_.back().to}];
    messages_.pop_back();
}

void Truth::sent(const std::string& text, client::MessageId id, bool may_expire)
{
    auto& message = messages_.back();
    message.id = id;
    message.may_expire = may_expire;
    by_id_[id] = messages_.size() - 1;
    by_text_[name_of(text)] = messages_.size() - 1;
}

void Truth::accepted(client::MessageId id)
{
    const auto found = by_id_.find(id);
    if (found == by_id_.end() || messages_[found->second].accepted) {
        fail("a message was settled that was not sent, or twice: " + std::to_string(id));
        return;
    }
    messages_[found->second].accepted = true;
    ++accepted_;
}

void Truth::shown(const std::string& user, const client::Message& message)
{
    const auto name = name_of(message.text);
    const auto found = by_text_.find(name);
    if (found == by_text_.end()) {
        fail(user + " was shown what nobody wrote: " + name);
        return;
    }
    auto& known = messages_[found->second];
    if (known.to != user || known.from != message.sender) {
        fail(user + " was shown a message of others: " + name);
    }
    if (known.id != message.id) {
        fail(name + " came under the MsgID " + std::to_string(message.id) + ", but was sent under "
            + std::to_string(known.id));
    }
    if (known.shown) {
        fail(name + " was shown twice");
        return;
    }
    known.shown = true;
    ++shown_;
    auto& last = last_shown_[{known.from, known.to}];
    if (known.number < last) {
        fail(name + " (MsgID " + std::to_string(known.id) + ") was shown behind number "
            + std::to_string(last));
    }
    last = known.number;
}

void Truth::fail(const std::string& what)
{
    if (failures_.size() < kMostFailures) {
        failures_.push_back(what);
    }
}

std::vector<std::string> Truth::missing() const
{
    std::vector<std::string> names;
    for (const auto& message : messages_) {
        if (!message.accepted) {
            names.push_back(message.text + " was not accepted");
        } else if (!message.shown && !message.may_expire) {
            names.push_back(
                message.text + " (MsgID " + std::to_string(message.id) + ") was accepted and is lost");
        }
    }
    return names;
}

} // namespace qz::torture
