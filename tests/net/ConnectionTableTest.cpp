// The table against the scans that it stands for, with random operations.
#include "net/ConnectionTable.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

using qz::DateTime;
using qz::net::ConnectionRecord;
using qz::net::ConnectionTable;

namespace {

/// Every question as a scan from the first record to the last.
struct Scans {
    explicit Scans(std::int32_t upper_bound) : records(static_cast<std::size_t>(upper_bound) + 1) { }

    template <typename Condition> std::vector<std::int32_t> where(Condition condition) const
    {
        std::vector<std::int32_t> numbers;
        for (std::size_t i = 0; i < records.size(); ++i) {
            if (records[i].OnLine && condition(records[i])) {
                numbers.push_back(static_cast<std::int32_t>(i));
            }
        }
        return numbers;
    }
    std::int32_t fill(const ConnectionRecord& record)
    {
        const auto free =
            std::find_if(records.begin(), records.end(), [](const auto& each) { return !each.OnLine; });
        const auto number = static_cast<std::int32_t>(free - records.begin());
        if (free == records.end()) {
            records.push_back(record);
        } else {
            *free = record;
        }
        return number;
    }
    std::string release(std::int16_t socket, DateTime now)
    {
        std::string last;
        for (auto& record : records) {
            if (record.OnLine && record.Socket == socket) {
                last = record.UserName;
                record = {};
                record.Status = 1;
                record.ChangeTime = now;
            }
        }
        return last;
    }

    std::vector<ConnectionRecord> records;
};

bool same(const ConnectionRecord& a, const ConnectionRecord& b)
{
    return a.UserName == b.UserName && a.Socket == b.Socket && a.Status == b.Status
        && a.RemoteIP == b.RemoteIP && a.ChangeTime == b.ChangeTime && a.SessionID == b.SessionID
        && a.OnLine == b.OnLine && a.StatusText == b.StatusText;
}

class Comparison {
public:
    explicit Comparison(unsigned seed) : random_(seed) { table_.reset(kUpperBound); }

    void step()
    {
        now_ = now_.plus_seconds(1);
        const auto socket = static_cast<std::int16_t>(any(6));
        const auto name = std::string(1, static_cast<char>('a' + any(4)));
        if (any(10) < 6) {
            const auto session = std::to_string(any(8));
            const auto address = "192.0.2." + std::to_string(any(3));
            EXPECT_EQ(table_.fill(name, session, socket, address, now_),
                scans_.fill({name, socket, 0, address, now_, session, true, "online"}));
        } else if (any(10) < 7) {
            EXPECT_EQ(table_.release(socket, now_), scans_.release(socket, now_));
        } else {
            table_.set_status_text(name, session_text());
            for (const auto number : scans_.where([&](const auto& each) { return each.UserName == name; })) {
                scans_.records[static_cast<std::size_t>(number)].StatusText = session_text();
            }
        }
        compare(socket, name);
    }

private:
    static constexpr std::int32_t kUpperBound = 3;

    unsigned any(unsigned limit) { return std::uniform_int_distribution<unsigned>(0, limit - 1)(random_); }
    std::string session_text() const { return "status at " + now_.text(); }
    const ConnectionRecord* record(std::int32_t number) const
    {
        return &table_.records()[static_cast<std::size_t>(number)];
    }
    void compare(std::int16_t socket, const std::string& name)
    {
        const auto named = scans_.where([&](const auto& each) { return each.UserName == name; });
        const auto on = scans_.where([&](const auto& each) { return each.Socket == socket; });
        EXPECT_EQ(table_.named(name), named);
        EXPECT_EQ(table_.first_named(name), named.empty() ? nullptr : record(named.front()));
        EXPECT_EQ(table_.Retrieve_UserSocket(name), named.empty() ? 0 : record(named.front())->Socket);
        EXPECT_EQ(table_.first_on(socket), on.empty() ? nullptr : record(on.front()));
        EXPECT_EQ(table_.last_on(socket), on.empty() ? nullptr : record(on.back()));
        const auto session = std::to_string(any(8));
        EXPECT_EQ(table_.is_session_id_used(session),
            !scans_.where([&](const auto& each) { return each.SessionID == session; }).empty());
        const auto address = "192.0.2." + std::to_string(any(3));
        const auto from = scans_.where([&](const auto& each) { return each.RemoteIP == address; });
        EXPECT_EQ(table_.get_UserName_byIPAddress(address),
            from.empty() ? "NOSCREENNAMEFOUND" : record(from.front())->UserName);
        EXPECT_EQ(static_cast<std::size_t>(table_.count_on_line()),
            scans_.where([](const auto&) { return true; }).size());
        EXPECT_TRUE(std::equal(table_.records().begin(), table_.records().end(), scans_.records.begin(),
            scans_.records.end(), same));
    }

    std::mt19937 random_;
    DateTime now_ = DateTime::parse("2026-03-02 09:00:00").value();
    ConnectionTable table_;
    Scans scans_{kUpperBound};
};

} // namespace

TEST(ConnectionTable, AnswersAsAScanWould)
{
    for (unsigned round = 0; round < 20; ++round) {
        const auto seed = std::random_device{}();
        SCOPED_TRACE("seed " + std::to_string(seed));
        Comparison comparison(seed);
        for (int step = 0; step < 300 && !testing::Test::HasFailure(); ++step) {
            comparison.step();
        }
    }
}

TEST(ConnectionTable, NobodyHasTheEmptyName)
{
    ConnectionTable table;
    table.reset(0);
    table.fill("", "1", 3, "192.0.2.1", {});
    EXPECT_EQ(table.Retrieve_UserSocket(""), 0);
    EXPECT_EQ(table.last_on(3)->SessionID, "1");
    table.reset(-1);
    EXPECT_EQ(table.count_on_line(), 0);
    EXPECT_EQ(table.last_on(3), nullptr);
}
