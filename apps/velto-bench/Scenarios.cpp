#include "Scenarios.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <random>
#include <thread>

namespace velto::bench {

namespace {

using SteadyClock = std::chrono::steady_clock;
using namespace std::chrono_literals;

const std::string kText = "The quick brown fox jumps over the lazy dog, and then over another one.";

/// Numbers of messages: different in every run, as those of clients are.
std::string fresh_number()
{
    static std::mt19937_64 source{std::random_device{}()};
    return std::to_string((source() & ((std::uint64_t{1} << 53U) - 1)) | 1U);
}

class Meter {
public:
    explicit Meter(const Process& measured) : process_(measured) { }
    Cost cost(double count) const
    {
        return {count, SteadyClock::now() - start_, process_.time() - measured_, own_time() - own_};
    }
    Seconds elapsed() const { return SteadyClock::now() - start_; }

private:
    const Process& process_;
    Seconds measured_ = process_.time();
    Seconds own_ = own_time();
    SteadyClock::time_point start_ = SteadyClock::now();
};

std::string send_message(Crowd& crowd, std::size_t from, const std::string& to, bool receipt)
{
    auto number = fresh_number();
    crowd.request(from, number, "msg",
        "screennamefrom=" + crowd.name(from) + " screennameto=" + to
            + (receipt ? " receiptrequested=True msg=" : " msg=") + kText);
    return number;
}

void confirm(Crowd& crowd, std::size_t recipient, std::string_view number)
{
    crowd.request(recipient, fresh_number(), "receipt", "msgid=" + std::string(number));
}

Latency latency_of(std::vector<double> times)
{
    if (times.empty()) {
        throw std::runtime_error("no message was delivered");
    }
    std::sort(times.begin(), times.end());
    return {times[times.size() / 2], times[times.size() * 99 / 100], times.back()};
}

} // namespace

Cost log_on_storm(const Process& measured, Crowd& crowd, std::size_t first, std::size_t count)
{
    const Meter meter(measured);
    crowd.log_on(first, count);
    return meter.cost(static_cast<double>(count));
}

Cost confirmed_messages(
    const Process& measured, Crowd& crowd, std::size_t pairs, std::size_t window, Seconds time)
{
    std::size_t confirmed = 0;
    std::size_t under_way = pairs * window;
    bool going_on = true;
    crowd.on_unit([&](std::size_t client, const Unit& unit) {
        if (unit.keyword == "msg") {
            confirm(crowd, client, unit.number);
        } else if (unit.keyword == "receipt") {
            ++confirmed;
            if (going_on) {
                send_message(crowd, client, crowd.name(client + 1), true);
            } else {
                --under_way;
            }
        }
    });
    const Meter meter(measured);
    for (std::size_t i = 0; i < pairs * window; ++i) {
        send_message(crowd, i % pairs * 2, crowd.name(i % pairs * 2 + 1), true);
    }
    crowd.poll_until([&] { return meter.elapsed() > time; });
    going_on = false;
    crowd.poll_until([&] { return under_way == 0; });
    return meter.cost(static_cast<double>(confirmed));
}

Latency latency_of_one_pair(Crowd& crowd, std::size_t messages)
{
    std::vector<double> times;
    SteadyClock::time_point sent;
    std::size_t receipts = 0;
    crowd.on_unit([&](std::size_t client, const Unit& unit) {
        if (unit.keyword == "msg") {
            times.push_back(Seconds(SteadyClock::now() - sent).count());
            confirm(crowd, client, unit.number);
        } else if (unit.keyword == "receipt" && ++receipts < messages) {
            sent = SteadyClock::now();
            send_message(crowd, 0, crowd.name(1), true);
        }
    });
    sent = SteadyClock::now();
    send_message(crowd, 0, crowd.name(1), true);
    crowd.poll_until([&] { return receipts == messages; });
    return latency_of(std::move(times));
}

Latency latency_at_rate(Crowd& crowd, std::size_t pairs, double rate, Seconds time)
{
    std::map<std::string, SteadyClock::time_point, std::less<>> scheduled;
    std::vector<double> times;
    crowd.on_unit([&](std::size_t client, const Unit& unit) {
        const auto found = unit.keyword == "msg" ? scheduled.find(unit.number) : scheduled.end();
        if (found != scheduled.end()) {
            times.push_back(Seconds(SteadyClock::now() - found->second).count());
            scheduled.erase(found);
            confirm(crowd, client, unit.number);
        }
    });
    const auto start = SteadyClock::now();
    const auto all = static_cast<std::size_t>(rate * time.count());
    const auto due = [&](std::size_t i) {
        return start
            + std::chrono::duration_cast<SteadyClock::duration>(Seconds(static_cast<double>(i) / rate));
    };
    for (std::size_t next = 0; next < all;) {
        for (; next < all && due(next) <= SteadyClock::now(); ++next) {
            const auto from = next % pairs * 2;
            scheduled.emplace(send_message(crowd, from, crowd.name(from + 1), false), due(next));
        }
        crowd.flush();
        crowd.poll(0ms); // turns on the spot: waking up late would count as the server's delay
    }
    crowd.poll_until([&] { return scheduled.empty(); });
    return latency_of(std::move(times));
}

void join_room(Crowd& crowd, std::size_t members)
{
    std::size_t joined = 0;
    crowd.on_unit(
        [&](std::size_t /*client*/, const Unit& unit) { joined += unit.keyword == "room" ? 1U : 0U; });
    for (std::size_t i = 0; i < members; ++i) {
        crowd.request(
            i, fresh_number(), "room", "screenname=" + crowd.name(i) + " action=join roomname=hall");
        crowd.poll_until([&] { return joined == i + 1; });
    }
}

Cost room(const Process& measured, Crowd& crowd, std::size_t members, std::size_t messages)
{
    std::size_t delivered = 0;
    std::size_t sent = 0;
    const auto write_one = [&] {
        ++sent;
        send_message(crowd, 0, "#hall", false);
    };
    crowd.on_unit([&](std::size_t client, const Unit& unit) {
        if (unit.keyword == "msg") {
            confirm(crowd, client, unit.number);
            if (++delivered % (members - 1) == 0 && sent < messages) {
                write_one();
            }
        }
    });
    const Meter meter(measured);
    write_one();
    write_one(); // one is on its way while another is handed out
    crowd.poll_until([&] { return delivered == messages * (members - 1); });
    return meter.cost(static_cast<double>(delivered));
}

Cost store_for_later(const Process& measured, Crowd& crowd, std::size_t first_recipient,
    std::size_t recipients, std::size_t count)
{
    constexpr std::size_t window = 32;
    std::size_t sent = 0;
    std::size_t taken = 0;
    const auto write_one = [&](std::size_t client) {
        if (sent < count) {
            send_message(crowd, client, account_name(first_recipient + sent++ % recipients), false);
        }
    };
    // The server tells the sender that the recipient is off line, and until when the message is kept.
    crowd.on_unit([&](std::size_t client, const Unit& unit) {
        if (unit.keyword == "notice") {
            ++taken;
            write_one(client);
        }
    });
    const Meter meter(measured);
    for (std::size_t i = 0; i < crowd.size() * window; ++i) {
        write_one(i % crowd.size());
    }
    crowd.poll_until([&] { return taken == count; });
    return meter.cost(static_cast<double>(taken));
}

Cost drain(const Process& measured, Crowd& crowd, std::size_t first_recipient, std::size_t recipients,
    std::size_t count)
{
    std::size_t delivered = 0;
    crowd.on_unit([&](std::size_t client, const Unit& unit) {
        if (unit.keyword == "msg") {
            ++delivered;
            confirm(crowd, client, unit.number);
        }
    });
    const Meter meter(measured);
    crowd.log_on(first_recipient, recipients);
    crowd.poll_until([&] { return delivered == count; });
    return meter.cost(static_cast<double>(delivered));
}

Cost idle(const Process& measured, Seconds time)
{
    const Meter meter(measured);
    std::this_thread::sleep_for(time);
    return meter.cost(time.count());
}

} // namespace velto::bench
