// velto-server user: the accounts of a home. A running server sees every change.
#pragma once

#include "Home.h"
#include "ListForm.h"
#include "common/Console.h"

#include <string>

namespace velto {

struct NewUser {
    std::string name;
    std::string email;
    std::string first_name;
    std::string last_name;
};

// All throw CommandError 1 when there is no such account.

/// @throws CommandError 1 also when the name is taken.
void run_user_add(const Home& home, const NewUser& user, const PasswordSource& password);
void run_user_list(const Home& home, ListForm form);
void run_user_show(const Home& home, const std::string& name, bool json);
void run_user_password(const Home& home, const std::string& name, const PasswordSource& password);
void run_user_enable(const Home& home, const std::string& name, bool enabled);

} // namespace velto
