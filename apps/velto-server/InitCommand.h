// velto-server init: makes a home.
#pragma once

#include "Home.h"

namespace velto {

struct InitOptions {
    bool demo = false; // with a few accounts to try
};

void run_init(const Home& home, const InitOptions& options);

} // namespace velto
