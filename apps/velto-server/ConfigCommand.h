// velto-server config: lists, shows and changes settings.
#pragma once

#include "Home.h"
#include "ListForm.h"

#include <optional>
#include <string>

namespace velto {

void run_config_list(const Home& home, ListForm form);
/// @param name  "Section/Key", letter case aside.
void run_config_get(const Home& home, const std::string& name);
/// @param value  nothing for a secret, which is read from standard input or asked for.
void run_config_set(const Home& home, const std::string& name, const std::optional<std::string>& value);

} // namespace velto
