#include "net/ConnectionTable.h"

#include "base/Text.h"
#include "helpers/MessageParser.h"
#include "helpers/ProtocolKeywords.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace qz::net {

namespace {

const std::vector<std::int32_t> kNoRecords;

template <typename Index, typename Key> void add(Index& index, const Key& key, std::int32_t number)
{
    auto& numbers = index[key];
    numbers.insert(std::lower_bound(numbers.begin(), numbers.end(), number), number);
}

template <typename Index, typename Key> void remove(Index& index, const Key& key, std::int32_t number)
{
    const auto found = index.find(key);
    std::erase(found->second, number);
    if (found->second.empty()) {
        index.erase(found);
    }
}

template <typename Index, typename Key>
const std::vector<std::int32_t>& numbers_in(const Index& index, const Key& key)
{
    const auto found = index.find(key);
    return found == index.end() ? kNoRecords : found->second;
}

} // namespace

void ConnectionTable::reset(std::int32_t upper_bound)
{
    const auto size = (std::max)(upper_bound, 0) + 1;
    records_.assign(static_cast<std::size_t>(size), {});
    count_on_line_ = 0;
    std::vector<std::int32_t> numbers(static_cast<std::size_t>(size));
    std::iota(numbers.begin(), numbers.end(), 0);
    free_ = decltype(free_)(std::greater<>{}, std::move(numbers));
    by_name_.clear();
    by_session_id_.clear();
    by_address_.clear();
    by_socket_.clear();
    repeated_names_.clear();
}

std::int32_t ConnectionTable::fill(const std::string& user_name, const std::string& session_id,
    std::int16_t socket, const std::string& remote_ip, DateTime now)
{
    if (free_.empty()) {
        free_.push(static_cast<std::int32_t>(records_.size()));
        records_.emplace_back();
    }
    const auto number = free_.top();
    free_.pop();
    records_[static_cast<std::size_t>(number)] = {
        user_name, socket, 0, remote_ip, now, session_id, true, helpers::protocol_keywords().StatusOnLine};
    enter(number);
    return number;
}

std::string ConnectionTable::release(std::int16_t socket, DateTime now)
{
    std::string last_name;
    const auto numbers = numbers_in(by_socket_, socket); // a copy: leave() changes the list
    for (const auto number : numbers) {
        leave(number);
        auto& record = records_[static_cast<std::size_t>(number)];
        last_name = record.UserName;
        record = {};
        record.Status = 1;
        record.ChangeTime = now;
        free_.push(number);
    }
    return last_name;
}

void ConnectionTable::set_status_text(std::string_view user_name, const std::string& status)
{
    for (const auto number : named(user_name)) {
        records_[static_cast<std::size_t>(number)].StatusText = status;
    }
}

const std::vector<std::int32_t>& ConnectionTable::named(std::string_view user_name) const
{
    return numbers_in(by_name_, user_name);
}

const ConnectionRecord* ConnectionTable::first_named(std::string_view user_name) const
{
    const auto& numbers = named(user_name);
    return numbers.empty() ? nullptr : &records_[static_cast<std::size_t>(numbers.front())];
}

std::int16_t ConnectionTable::Retrieve_UserSocket(std::string_view user_name) const
{
    const auto* record = user_name.empty() ? nullptr : first_named(user_name);
    return record == nullptr ? std::int16_t{0} : record->Socket;
}

const ConnectionRecord* ConnectionTable::first_on(std::int16_t socket) const
{
    const auto& numbers = numbers_in(by_socket_, socket);
    return numbers.empty() ? nullptr : &records_[static_cast<std::size_t>(numbers.front())];
}

const ConnectionRecord* ConnectionTable::last_on(std::int16_t socket) const
{
    const auto& numbers = numbers_in(by_socket_, socket);
    return numbers.empty() ? nullptr : &records_[static_cast<std::size_t>(numbers.back())];
}

std::string ConnectionTable::Retrieve_ScreenNameBySocket(std::int16_t socket) const
{
    const auto* record = first_on(socket);
    return record == nullptr ? std::string{} : record->UserName;
}

bool ConnectionTable::is_logged_on(std::string_view user_name, std::int16_t socket) const
{
    const auto& numbers = numbers_in(by_socket_, socket);
    return !user_name.empty() && std::any_of(numbers.begin(), numbers.end(), [&](std::int32_t number) {
        return equal_ignoring_case(records_[static_cast<std::size_t>(number)].UserName, user_name);
    });
}

bool ConnectionTable::UserIsOnline(const std::string& user_name) const
{
    constexpr std::int32_t released = 1;
    const auto* record = first_named(helpers::MessageParser::transform(user_name));
    return record != nullptr && record->Status != released;
}

std::vector<std::string> ConnectionTable::names_on_line_more_than_once() const
{
    std::vector<std::string> names(repeated_names_.begin(), repeated_names_.end());
    std::sort(names.begin(), names.end(),
        [&](const auto& left, const auto& right) { return named(left).front() < named(right).front(); });
    return names;
}

std::string ConnectionTable::get_UserName_byIPAddress(const std::string& remote_ip) const
{
    const auto& numbers = numbers_in(by_address_, remote_ip);
    return numbers.empty() ? "NOSCREENNAMEFOUND"
                           : records_[static_cast<std::size_t>(numbers.front())].UserName;
}

void ConnectionTable::enter(std::int32_t number)
{
    const auto& record = records_[static_cast<std::size_t>(number)];
    add(by_name_, record.UserName, number);
    add(by_session_id_, record.SessionID, number);
    add(by_address_, record.RemoteIP, number);
    add(by_socket_, record.Socket, number);
    if (named(record.UserName).size() == 2) {
        repeated_names_.insert(record.UserName);
    }
    ++count_on_line_;
}

void ConnectionTable::leave(std::int32_t number)
{
    const auto& record = records_[static_cast<std::size_t>(number)];
    remove(by_name_, record.UserName, number);
    remove(by_session_id_, record.SessionID, number);
    remove(by_address_, record.RemoteIP, number);
    remove(by_socket_, record.Socket, number);
    if (named(record.UserName).size() == 1) {
        repeated_names_.erase(record.UserName);
    }
    --count_on_line_;
}

} // namespace qz::net
