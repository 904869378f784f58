#include "protocol/KnownPlaces.h"

#include "base/EngineError.h"
#include "base/Text.h"
#include "net/AddressKey.h"
#include "platform/AtomicFile.h"

#include <algorithm>
#include <fstream>
#include <utility>

namespace qz::protocol {

namespace {

using std::filesystem::perms;

constexpr std::size_t kSpareLines = 10'000; // that may be out of date before the file is written anew
constexpr perms kOwnerOnly = perms::owner_read | perms::owner_write;

std::string line_of(const std::string& name, const std::string& address)
{
    return address + " " + name + "\n";
}

} // namespace

bool KnownPlaces::knows(const std::string& name, const std::string& address)
{
    load_once();
    const auto found = places_.find(lower(name));
    return found != places_.end()
        && std::find(found->second.begin(), found->second.end(), net::address_key(address))
        != found->second.end();
}

bool KnownPlaces::has_users(const std::string& address)
{
    load_once();
    return users_.contains(net::address_key(address));
}

void KnownPlaces::add(const std::string& name, const std::string& address)
{
    load_once();
    const auto key = net::address_key(address);
    const auto user = lower(name);
    if (remember(user, key) && printable(user) == user) { // a name with a line break stays in memory
        append(user, key);
    }
}

/// @return whether the place is new.
bool KnownPlaces::remember(const std::string& name, const std::string& address)
{
    auto& places = places_[name];
    if (const auto known = std::find(places.begin(), places.end(), address); known != places.end()) {
        std::rotate(known, known + 1, places.end());
        return false;
    }
    places.push_back(address);
    ++users_[address];
    ++count_;
    if (places.size() > kMostPlaces) {
        if (const auto oldest = users_.find(places.front()); --oldest->second == 0) {
            users_.erase(oldest);
        }
        places.erase(places.begin());
        --count_;
    }
    return true;
}

void KnownPlaces::load_once()
{
    if (!std::exchange(loaded_, true)) {
        with_file([this] { read(); });
    }
}

void KnownPlaces::read()
{
    const auto content = platform::AtomicFile(file_).read();
    if (!content) {
        return;
    }
    std::string_view rest = content->bytes;
    while (!rest.empty()) {
        const auto end = (std::min)(rest.find('\n'), rest.size());
        const auto line = rest.substr(0, end);
        rest.remove_prefix((std::min)(end + 1, rest.size()));
        ++lines_;
        const auto blank = line.find(' ');
        if (blank != std::string_view::npos && end > blank + 1) {
            remember(std::string(line.substr(blank + 1)), std::string(line.substr(0, blank)));
        }
    }
}

void KnownPlaces::append(const std::string& name, const std::string& address)
{
    with_file([&] {
        if (lines_ > count_ * 2 + kSpareLines) {
            rewrite();
            return;
        }
        platform::AtomicFile(file_).create({}, kOwnerOnly); // unless it is there
        std::ofstream file(file_, std::ios::app | std::ios::binary);
        file << line_of(name, address) << std::flush;
        if (!file) {
            throw runtime_error(RuntimeError::FileAccess, file_.string() + " cannot be written");
        }
        ++lines_;
    });
}

void KnownPlaces::rewrite()
{
    std::string bytes;
    for (const auto& [name, places] : places_) {
        for (const auto& address : places) {
            bytes += printable(name) == name ? line_of(name, address) : "";
        }
    }
    const platform::AtomicFile file(file_);
    platform::AtomicFile::replace(file.lock(), bytes, kOwnerOnly);
    lines_ = count_;
}

/// A logon does not fail because of the file.
template <typename Step> void KnownPlaces::with_file(Step&& step)
{
    try {
        std::forward<Step>(step)();
    } catch (...) {
        if (!std::exchange(failure_logged_, true)) {
            journal_.ReportError("KnownPlaces", current_error(), {});
        }
    }
}

} // namespace qz::protocol
