// The safeguard LogonThrottle: whoever fails to log on has to wait, longer each time.
#pragma once

#include "base/Clock.h"
#include "base/Journal.h"
#include "config/Deployment.h"
#include "protocol/KnownPlaces.h"

#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>

namespace qz::protocol {

/// Failures are counted by name and by address; and where the name has logged on from that address before, by
/// both together and not by address. A few are free; each further one doubles the wait, up to a longest one;
/// one is forgotten every ten minutes. An attempt during a wait is not judged and not counted, so a wait
/// always ends; and who comes from an address from which they have logged on before does not wait for what
/// others did. Whether a name exists makes no difference to any wait.
class LogonThrottle {
public:
    /// Most records kept; beyond it the one that was used longest ago is forgotten.
    static constexpr std::size_t kMostRecords = 10'000;

    LogonThrottle(
        KnownPlaces& places, const config::Deployment& deployment, const Clock& clock, Journal& journal)
        : places_(places), deployment_(deployment), clock_(clock), journal_(journal)
    {
    }

    enum class Failure { UnknownName, Disabled, Password, Early };

    /// How long a logon must wait before it is judged; nothing when it may be judged now.
    std::optional<std::chrono::seconds> wait(const std::string& name, const std::string& address);
    /// Counts a failed attempt and logs it: "Logon refused: address=… reason=… name=…".
    void failed(Failure failure, const std::string& name, const std::string& address);
    void succeeded(const std::string& name, const std::string& address);
    /// Whether one more mail about a failure may leave: ten at once, then one every six minutes.
    bool may_mail();

    std::size_t records() const { return records_.size(); }

private:
    using Time = std::chrono::steady_clock::time_point;
    struct Record {
        double failures = 0; // as far as they are not forgotten
        Time used;
        Time judged_from; // attempts before it must wait
    };
    struct Measure {
        double free;
        std::chrono::seconds longest;
    };
    static constexpr Measure kAddress{10, std::chrono::seconds(900)};
    // One from which users have logged on, as that of an office: a stranger there must not lock out
    // newcomers.
    static constexpr Measure kKnownAddress{100, std::chrono::seconds(60)};
    static constexpr Measure kName{5, std::chrono::seconds(60)};

    Record& record(const std::string& key);
    void forget(const std::string& key);
    void count(const std::string& key, const Measure& measure);
    std::chrono::seconds remaining(const std::string& key) const;

    KnownPlaces& places_;
    const config::Deployment& deployment_;
    const Clock& clock_;
    Journal& journal_;
    std::unordered_map<std::string, Record> records_;
    std::set<std::pair<Time, std::string>> by_use_; // keys of the records, longest unused first
    double mails_ = 0;                              // that may leave
    std::optional<Time> mails_filled_;
};

} // namespace qz::protocol
