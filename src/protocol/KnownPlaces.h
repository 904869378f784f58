// From which addresses each user has logged on: kept in a file of the home, so that a restart forgets nobody.
#pragma once

#include "base/Journal.h"

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace qz::protocol {

/// Users are accounts, and of each the latest addresses are kept, so the size is bounded by the accounts.
class KnownPlaces {
public:
    static constexpr std::size_t kMostPlaces = 16; // of one user

    /// @param file  one line for each new place: the address as it counts, a blank, the name in lower case.
    ///              Read when it is needed first. A file that cannot be read or written is logged once; the
    ///              places are kept in memory then.
    KnownPlaces(std::filesystem::path file, Journal& journal) : file_(std::move(file)), journal_(journal) { }

    bool knows(const std::string& name, const std::string& address);
    /// Whether any user has logged on from the address.
    bool has_users(const std::string& address);
    /// A user has logged on. Only a place that is new is written.
    void add(const std::string& name, const std::string& address);

private:
    using Places = std::vector<std::string>; // addresses as they count, the latest last

    void load_once();
    void read();
    bool remember(const std::string& name, const std::string& address);
    void append(const std::string& name, const std::string& address);
    void rewrite();
    template <typename Step> void with_file(Step&& step);

    std::filesystem::path file_;
    Journal& journal_;
    bool loaded_ = false;
    bool failure_logged_ = false;
    std::unordered_map<std::string, Places> places_;     // by name
    std::unordered_map<std::string, std::size_t> users_; // how many, by address
    std::size_t count_ = 0;                              // of all places
    std::size_t lines_ = 0;                              // of the file
};

} // namespace qz::protocol
