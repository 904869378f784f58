// A client's request as its handler gets it.
#pragma once

#include <cstdint>
#include <string>

namespace qz::protocol {

struct Request {
    std::int16_t socket = 0;
    std::string parameters; // everything after the command
    std::string user;       // sender or owner that it names, in lower case; empty where it names nobody
    std::string remote_ip;
    double number = 0; // of the envelope: the MsgID of an instant message
    std::string first_word;
};

} // namespace qz::protocol
