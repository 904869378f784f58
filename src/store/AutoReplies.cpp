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
        attempt([&] { mark = database_.connection().change_mark(tables::kAutoReply); });
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
    auto row = database_.open(statements::kSelectAutoReplyEnabled, {user_name});
    return !row.AtEnd() && row.Fields("Enabled").boolean();
}

std::string AutoReplies::Retrieve_AutoReplyMessage(const std::string& user_name)
{
    return guarded(journal_, "Retrieve_AutoReplyMessage", no_address, std::string{}, [&] {
        auto row = database_.open(statements::kSelectAutoReplyMessage, {user_name});
        return row.AtEnd() ? std::string{} : row.Fields("Message").text();
    });
}

bool AutoReplies::Update_AutoReply(const std::string& user_name, const std::string& message, bool enabled)
{
    return guarded(journal_, "Update_AutoReply", no_address, false, [&] {
        auto row = database_.open(statements::kSelectAutoReply, {user_name});
        if (row.RecordCount() < 1) {
            row.AddNew();
            row.SetField("UserName", user_name);
        }
        row.SetField("Message", message);
        row.SetField("Enabled", enabled);
        row.Update();
        return true;
    });
}

} // namespace qz::store
