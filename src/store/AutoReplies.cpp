#include "store/AutoReplies.h"

#include "base/Guarded.h"
#include "store/Statements.h"

namespace qz::store {

bool AutoReplies::Retrieve_AutoReply(const std::string& user_name)
{
    return guarded(journal_, "Retrieve_AutoReply", no_address, false, [&] {
        auto row = database_.open(statements::kSelectAutoReplyEnabled, {user_name});
        return !row.AtEnd() && row.Fields("Enabled").boolean();
    });
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
