// velto send-file, velto receive-file: files from scripts.
#pragma once

#include "LogOnOptions.h"
#include "client/transfer/DirectConnection.h"
#include "common/Exit.h"

#include <string>

namespace velto {

/// Reads PORT or FIRST-LAST; any port when the text is empty.
/// @throws CommandError 2 for anything else.
qz::client::transfer::PortRange ports_of(const std::string& text);

struct SendFileOptions {
    std::string to;
    std::string file;
    std::string ports;
    int timeout = 600; // seconds until the other user has to take it
    bool quiet = false;
};

/// @return Done when the file is whole and safe at the other side, else Failed.
Exit run_send_file(const LogOnOptions& log_on, const SendFileOptions& options);

struct ReceiveFileOptions {
    std::string from;       // empty: from everybody
    std::string into = "."; // folder
    std::string ports;
    int timeout = 0; // seconds without any transfer after which it ends; 0 for no end
    bool once = false;
    bool quiet = false;
};

/// Prints the path of every file that has arrived.
/// @return Done, with `once` only when the file has arrived.
Exit run_receive_file(const LogOnOptions& log_on, const ReceiveFileOptions& options);

} // namespace velto
