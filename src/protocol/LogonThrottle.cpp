#include "protocol/LogonThrottle.h"

#include "base/Text.h"
#include "net/AddressKey.h"

#include <algorithm>
#include <cmath>

namespace qz::protocol {

namespace {

constexpr double kForgetSeconds = 600;
constexpr double kMostDoublings = 10; // 2^10 seconds are longer than any wait
constexpr double kMostMails = 10;
constexpr double kSecondsPerMail = 360;
constexpr std::size_t kCountedCharacters = 100; // of a name, which may be as long as a message
constexpr std::size_t kShownCharacters = 50;    // the width of a user name in the tables

// A name cannot forge the key of another kind.
std::string address_record(const std::string& address)
{
    return "a" + net::address_key(address);
}

std::string name_record(const std::string& name)
{
    return "n" + lower(first_characters(name, kCountedCharacters));
}

std::string pair_record(const std::string& name, const std::string& address)
{
    return "p" + net::address_key(address) + " " + lower(first_characters(name, kCountedCharacters));
}

const char* word_for(LogonThrottle::Failure failure)
{
    switch (failure) {
    case LogonThrottle::Failure::UnknownName:
        return "unknown";
    case LogonThrottle::Failure::Disabled:
        return "disabled";
    case LogonThrottle::Failure::Password:
        return "password";
    case LogonThrottle::Failure::Early:
        return "early";
    }
    return "";
}

double seconds(std::chrono::steady_clock::duration time)
{
    return std::chrono::duration<double>(time).count();
}

} // namespace

std::optional<std::chrono::seconds> LogonThrottle::wait(const std::string& name, const std::string& address)
{
    if (!deployment_.logon_throttle()) {
        return std::nullopt;
    }
    const auto time = places_.knows(name, address)
        ? remaining(pair_record(name, address))
        : (std::max)(remaining(address_record(address)), remaining(name_record(name)));
    return time > std::chrono::seconds::zero() ? std::optional(time) : std::nullopt;
}

/// Unknown names are counted like others: waits must not tell which names exist.
void LogonThrottle::failed(Failure failure, const std::string& name, const std::string& address)
{
    if (!deployment_.logon_throttle()) {
        return;
    }
    if (failure != Failure::Early) {
        count(name_record(name), kName);
        if (places_.knows(name, address)) {
            count(pair_record(name, address), kName);
        } else {
            count(address_record(address), places_.has_users(address) ? kKnownAddress : kAddress);
        }
    }
    journal_.log_own("Logon refused: address=" + address + " reason=" + word_for(failure)
        + " name=" + printable(first_characters(name, kShownCharacters)));
}

void LogonThrottle::succeeded(const std::string& name, const std::string& address)
{
    if (deployment_.logon_throttle()) {
        places_.add(name, address);
        forget(pair_record(name, address));
    }
}

bool LogonThrottle::may_mail()
{
    if (!deployment_.logon_throttle()) {
        return true;
    }
    const auto now = clock_.steady();
    mails_ = mails_filled_ ? (std::min)(kMostMails, mails_ + seconds(now - *mails_filled_) / kSecondsPerMail)
                           : kMostMails;
    mails_filled_ = now;
    if (mails_ < 1) {
        return false;
    }
    mails_ -= 1;
    return true;
}

/// The record of a key, with what is forgotten by now taken off; a new one where there is none.
LogonThrottle::Record& LogonThrottle::record(const std::string& key)
{
    const auto now = clock_.steady();
    const auto [entry, is_new] = records_.try_emplace(key);
    auto& found = entry->second;
    if (!is_new) {
        by_use_.erase({found.used, key});
        found.failures = (std::max)(0.0, found.failures - seconds(now - found.used) / kForgetSeconds);
    }
    found.used = now;
    if (records_.size() > kMostRecords) { // never the one just made: it is not in the list yet
        records_.erase(by_use_.begin()->second);
        by_use_.erase(by_use_.begin());
    }
    by_use_.emplace(now, key);
    return found;
}

void LogonThrottle::forget(const std::string& key)
{
    if (const auto found = records_.find(key); found != records_.end()) {
        by_use_.erase({found->second.used, key});
        records_.erase(found);
    }
}

void LogonThrottle::count(const std::string& key, const Measure& measure)
{
    auto& counted = record(key);
    counted.failures = (std::min)(counted.failures + 1, measure.free + 1 + kMostDoublings);
    const auto beyond = counted.failures - measure.free;
    if (beyond <= 0) {
        return;
    }
    const auto wait =
        std::chrono::seconds(static_cast<std::int64_t>(std::ceil(std::exp2((std::max)(0.0, beyond - 1)))));
    counted.judged_from = clock_.steady() + (std::min)(wait, measure.longest);
}

std::chrono::seconds LogonThrottle::remaining(const std::string& key) const
{
    const auto found = records_.find(key);
    const auto time = found == records_.end() ? std::chrono::steady_clock::duration::zero()
                                              : found->second.judged_from - clock_.steady();
    return std::chrono::ceil<std::chrono::seconds>(time);
}

} // namespace qz::protocol
