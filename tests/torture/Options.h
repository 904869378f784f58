// The options of the command line.
#pragma once

#include <chrono>
#include <cstdint>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace qz::torture {

struct Options {
    std::string program = VELTO_SERVER_PROGRAM;
    std::string provider = "embedded";
    std::uint64_t seed = std::random_device{}();
    int kills = 200;
    std::chrono::seconds longest = std::chrono::minutes(15);
};

/// @throws std::exception for words that mean nothing.
inline Options options_in(const std::vector<std::string>& words)
{
    Options options;
    for (std::size_t i = 0; i + 1 < words.size(); i += 2) {
        const auto& value = words[i + 1];
        if (words[i] == "--server") {
            options.program = value;
        } else if (words[i] == "--provider") {
            options.provider = value;
        } else if (words[i] == "--seed") {
            options.seed = std::stoull(value);
        } else if (words[i] == "--kills") {
            options.kills = std::stoi(value);
        } else if (words[i] == "--minutes") {
            options.longest = std::chrono::minutes(std::stoi(value));
        } else {
            throw std::invalid_argument(words[i]);
        }
    }
    if (words.size() % 2 != 0) {
        throw std::invalid_argument(words.back());
    }
    return options;
}

} // namespace qz::torture
