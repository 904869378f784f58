#include "protocol/UserSearch.h"

#include "base/Text.h"

namespace qz::protocol {

ListText UserSearch::find(std::string_view text)
{
    ListText list;
    const auto wanted = lower(text);
    if (wanted.empty() || wanted.find('\0') != std::string::npos) { // no name holds a NUL
        return list;
    }
    if (version_ != directory_.version_of_names()) {
        read_names();
    }
    auto user = users_.begin();
    for (auto at = names_.find(wanted); at != std::string::npos; at = names_.find(wanted, user->end)) {
        while (user->end <= at) {
            ++user;
        }
        if (user->record->AccountActive) {
            list.add_entry(user->entry);
        }
    }
    return list;
}

void UserSearch::read_names()
{
    version_ = directory_.version_of_names();
    names_.clear();
    users_.clear();
    users_.reserve(directory_.users().size());
    for (const auto& user : directory_.users()) {
        for (const auto* name : {&user.UserName, &user.FirstName, &user.LastName}) {
            names_ += lower(*name);
            names_ += '\0';
        }
        ListText entry;
        entry.add({user.UserName, user.FirstName, user.LastName});
        users_.push_back({&user, names_.size(), entry.text()});
    }
}

} // namespace qz::protocol
