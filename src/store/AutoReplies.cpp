#include "store/AutoReplies.h"

#include "base/Guarded.h"
#include "store/Statements.h"

#include <cstddef>

namespace qz::store {

namespace {

constexpr std::size_t kMostKept = 10'000;

} // namespace

bool AutoReplies::Retrieve_AutoReply(const std::string& user_name)
{
    return guarded(journal_, "Retrieve_AutoReply", no_address, false, [&] {
        std::optional<std::uint64_t> mark; // none on a closed connection: the query reports what is wrong
        attempt([&] { mark = database_.change_mark(tables::kAutoReply); });
        if (!mark || mark != mark_ || enabled_.size() > kMostKept) {
            enabled_.clear();
            mark_ = mark;
        }
        const auto known = enabled_.find(user_name);
        return known != enabled_.end() ? known->second
                                       : enabled_.emplace(user_name, is_enabled(user_name)).first->second;
    });
}

bool AutoReplies::is_enabled(const std::string& user_name)
{
    const auto rows = database_.query(statements::kSelectAutoReplyEnabled, Quoted{user_name});
    return !rows.empty() && rows.front()["Enabled"].boolean();
}

std::string AutoReplies::Retrieve_AutoReplyMessage(const std::string& user_name)
{
    return guarded(journal_, "Retrieve_AutoReplyMessage", no_address, std::string{}, [&] {
        const auto rows = database_.query(statements::kSelectAutoReplyMessage, Quoted{user_name});
        return rows.empty() ? std::string{} : rows.front()["Message"].text();
    });
}

bool AutoReplies::Update_AutoReply(const std::string& user_name, const std::string& message, bool enabled)
{
    return guarded(journal_, "Update_AutoReply", no_address, false, [&] {
        const auto rows = database_.query(statements::kSelectAutoReply, Quoted{user_name});
        if (rows.empty()) {
            database_.insert(
                tables::kAutoReply, {{"UserName", "Message", "Enabled"}, {user_name, message, enabled}});
        } else {
            database_.update(
                tables::kAutoReply, rows.front().key(), {{"Message", "Enabled"}, {message, enabled}});
        }
        return true;
    });
}

} // namespace qz::store
