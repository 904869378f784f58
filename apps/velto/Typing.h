// Who is typing.
#pragma once

#include "client/Reassembly.h"

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace velto {

class Typing {
public:
    using TimePoint = qz::client::TimePoint;
    /// Least time between two notices that this user types.
    static constexpr std::chrono::seconds kTellAgain{4};
    /// How long others are shown to type after their last notice.
    static constexpr std::chrono::seconds kShown{6};
    /// Most names that are kept: they come from outside.
    static constexpr std::size_t kMostNames = 20;

    /// @return whether the one to whom this line will go is to be told now.
    bool tells(std::string_view line, TimePoint now)
    {
        const bool changed = line != line_;
        line_ = line;
        if (!changed || line.empty() || line.starts_with("/") || (told_ && now < *told_ + kTellAgain)) {
            return false;
        }
        told_ = now;
        return true;
    }
    /// The line was sent: the next one is told at once.
    void line_sent()
    {
        line_.clear();
        told_.reset();
    }

    void heard(const std::string& name, TimePoint now)
    {
        if (until_.size() < kMostNames || until_.count(name) != 0) {
            until_[name] = now + kShown;
        }
    }
    void stopped(const std::string& name) { until_.erase(name); }
    void expire(TimePoint now)
    {
        std::erase_if(until_, [now](const auto& each) { return each.second <= now; });
    }
    std::optional<TimePoint> next_deadline() const
    {
        std::optional<TimePoint> first;
        for (const auto& [name, until] : until_) {
            first = first ? (std::min)(*first, until) : until;
        }
        return first;
    }
    /// "ben is typing", "ben and cleo are typing"; empty when nobody does.
    std::string text() const
    {
        std::string names;
        for (const auto& [name, until] : until_) {
            names.append(names.empty() ? "" : " and ").append(name);
        }
        return names.empty() ? names : names + (until_.size() == 1 ? " is typing" : " are typing");
    }

private:
    std::string line_;
    std::optional<TimePoint> told_;
    std::map<std::string, TimePoint> until_;
};

} // namespace velto
