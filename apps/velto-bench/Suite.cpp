#include "Suite.h"

#include "DatabaseHome.h"

#include <algorithm>
#include <array>
#include <iostream>

namespace velto::bench {

namespace {

constexpr std::size_t kAccounts = 10000;
constexpr std::size_t kPairs = 100;
constexpr double kMicro = 1e6;
constexpr double kMilli = 1e3;

Goal at_most(double value)
{
    return {Goal::Kind::AtMost, value};
}

Goal at_least(double value)
{
    return {Goal::Kind::AtLeast, value};
}

double each(Seconds time, const Cost& cost)
{
    return time.count() * kMicro / cost.count;
}

/// What the measured program does in a second when it has its core for itself: that the generator waits, or
/// somebody else works on the machine, does not count.
double rate(const Cost& cost)
{
    return cost.count / cost.measured.count();
}

/// The middle one of several rounds, by what the measured program did. A round is long enough for the
/// server's own recurring work; what others do on the machine meets some rounds only.
template <typename Round> Cost middle_of(Round round)
{
    std::array<Cost, 5> costs;
    std::generate(costs.begin(), costs.end(), round);
    const auto middle = costs.begin() + costs.size() / 2;
    std::nth_element(costs.begin(), middle, costs.end(),
        [](const Cost& left, const Cost& right) { return rate(left) > rate(right); });
    return *middle;
}

} // namespace

const std::vector<Suite::Measurement>& Suite::measurements()
{
    static const std::vector<Measurement> kAll{{"startup", &Suite::measure_startup},
        {"logon", &Suite::measure_logons}, {"messages", &Suite::measure_messages},
        {"safeguards", &Suite::measure_safeguards}, {"latency", &Suite::measure_latency},
        {"memory", &Suite::measure_memory}, {"room", &Suite::measure_room},
        {"offline", &Suite::measure_off_line}, {"users", &Suite::measure_users},
        {"rows", &Suite::measure_rows}, {"databases", &Suite::measure_databases}};
    return kAll;
}

std::vector<std::string> Suite::names()
{
    std::vector<std::string> names;
    for (const auto& measurement : measurements()) {
        names.push_back(measurement.name);
    }
    return names;
}

Suite::Suite(const SuiteOptions& options)
    : options_(options), home_(options.server, options.scratch, kAccounts)
{
}

bool Suite::run()
{
    pin_to_core(1);
    raise_file_limit();
    const auto& only = options_.only;
    for (const auto& [name, work] : measurements()) {
        if (only.empty() || std::find(only.begin(), only.end(), name) != only.end()) {
            std::cerr << name << "\n";
            measure(name, work);
        }
    }
    return complete_;
}

/// One that cannot be made does not take the others with it.
void Suite::measure(const std::string& name, void (Suite::*work)())
{
    try {
        (this->*work)();
    } catch (const std::exception& error) {
        std::cerr << "  " << name << " was not measured to its end: " << error.what() << "\n";
        complete_ = false;
    }
}

Suite::Measured Suite::start_server(const std::vector<std::string>& settings, std::size_t rows) const
{
    Measured measured{free_port(), nullptr};
    const auto home = home_.copy(measured.port, settings);
    PreparedHome::grow(home, rows);
    measured.process = std::make_unique<Process>(
        std::vector{home_.server().string(), std::string("run"), std::string("--home"), home.string()},
        home_.output());
    measured.start_time = measured.process->wait_for_port(measured.port);
    return measured;
}

Suite::Measured Suite::start_relay() const
{
    Measured measured{free_port(), nullptr};
    const auto self = std::filesystem::read_symlink("/proc/self/exe").string();
    measured.process = std::make_unique<Process>(
        std::vector{self, std::string("relay"), std::string("--port"), std::to_string(measured.port)},
        home_.output());
    measured.start_time = measured.process->wait_for_port(measured.port);
    return measured;
}

void Suite::both(const std::function<void(Measured&, bool is_server)>& work)
{
    {
        auto server = start_server();
        work(server, true);
    }
    auto relay = start_relay();
    work(relay, false);
}

void Suite::put(bool is_server, Figure figure)
{
    if (is_server) {
        report_.add(std::move(figure));
    } else {
        report_.add_relay(figure.name, figure.server);
    }
}

void Suite::measure_startup()
{
    constexpr int kTimes = 5;
    const auto median = [](std::vector<double> times) {
        std::sort(times.begin(), times.end());
        return times[times.size() / 2];
    };
    std::vector<double> server;
    std::vector<double> relay;
    for (int i = 0; i < kTimes; ++i) {
        server.push_back(start_server().start_time.count() * kMilli);
        relay.push_back(start_relay().start_time.count() * kMilli);
    }
    put(true,
        {"start with 10,000 accounts, until it accepts", "ms", median(server), median(relay), at_most(50)});
}

void Suite::measure_logons()
{
    both([&](Measured& measured, bool is_server) {
        Crowd crowd(measured.port);
        crowd.log_on(0, 200); // caches fill
        const auto cost = log_on_storm(*measured.process, crowd, 200, 4800);
        put(is_server, {"logon", "CPU us", each(cost.measured, cost), {}, {}});
        put(is_server, {"logons a second of CPU", "1/s", rate(cost), {}, at_least(5000)});
        put(is_server, {"logons a second as they came", "1/s", cost.count / cost.wall.count(), {}, {}});
    });
}

void Suite::measure_messages()
{
    both([&](Measured& measured, bool is_server) {
        Crowd crowd(measured.port);
        crowd.log_on(0, kPairs * 2);
        for (const std::size_t window : {1U, 16U}) {
            measure_messages_with_window(measured, crowd, is_server, window);
        }
    });
}

void Suite::measure_messages_with_window(Measured& measured, Crowd& crowd, bool is_server, std::size_t window)
{
    const auto title = ", window " + std::to_string(window);
    const Seconds time(options_.seconds);
    confirmed_messages(*measured.process, crowd, kPairs, window, time / 2); // caches fill
    const auto cost =
        middle_of([&] { return confirmed_messages(*measured.process, crowd, kPairs, window, time); });
    put(is_server,
        {"confirmed message" + title, "CPU us", each(cost.measured, cost), {},
            at_most(window == 1 ? 60 : 25)});
    put(is_server, {"messages a second" + title, "1/s", cost.count / cost.wall.count(), {}, {}});
    put(is_server, {"generator's own work a message" + title, "CPU us", each(cost.generator, cost), {}, {}});
    if (!is_server) {
        put(true, {"ceiling of the generator" + title, "1/s", cost.count / cost.generator.count(), {}, {}});
    }
}

double Suite::message_cost(Measured& measured, Crowd& crowd, std::size_t pairs, std::size_t window) const
{
    const Seconds time(options_.seconds);
    confirmed_messages(*measured.process, crowd, pairs, window, time / 4);
    const auto cost =
        middle_of([&] { return confirmed_messages(*measured.process, crowd, pairs, window, time); });
    return each(cost.measured, cost);
}

void Suite::measure_safeguards()
{
    const auto cost = [&](const std::string& value, std::size_t window) {
        auto server =
            start_server({"Safeguards/DurableQueue", value, "Safeguards/KeepUntilConfirmed", value});
        Crowd crowd(server.port);
        crowd.log_on(0, kPairs * 2);
        return message_cost(server, crowd, kPairs, window);
    };
    for (const std::size_t window : {1U, 16U}) {
        const auto title = ", window " + std::to_string(window);
        const auto off = cost("False", window);
        put(true, {"message without durability safeguards" + title, "CPU us", off, {}, {}});
        put(true,
            {"cost of the durability safeguards" + title, "CPU us", cost("True", window) - off, {}, {}});
    }
}

void Suite::measure_latency()
{
    both([&](Measured& measured, bool is_server) {
        const auto add = [&](const std::string& title, const Latency& latency) {
            put(is_server, {"delivery" + title + ", median", "us", latency.median * kMicro, {}, {}});
            put(is_server,
                {"delivery" + title + ", 99 of 100", "us", latency.percentile_99 * kMicro, {}, {}});
            put(is_server, {"delivery" + title + ", slowest", "us", latency.worst * kMicro, {}, {}});
        };
        Crowd crowd(measured.port);
        crowd.log_on(0, kPairs * 2);
        latency_of_one_pair(crowd, 1000);
        add(" of one pair", latency_of_one_pair(crowd, 5000));
        add(" at 2,000 messages/s", latency_at_rate(crowd, kPairs, 2000, Seconds(3)));
    });
}

void Suite::measure_memory()
{
    both([&](Measured& measured, bool is_server) {
        Crowd crowd(measured.port);
        crowd.log_on(0, 100);
        // The database keeps pages that logons have read; that part is not the users'.
        auto before = static_cast<double>(measured.process->memory());
        double users = 100;
        for (const std::size_t all : {std::size_t{2000}, kAccounts}) {
            crowd.log_on(crowd.size(), all - crowd.size());
            const auto memory = static_cast<double>(measured.process->memory());
            put(is_server,
                {"memory of an idle user, up to " + std::to_string(all), "KiB",
                    (memory - before) / 1024 / (static_cast<double>(all) - users), {}, at_most(4)});
            before = memory;
            users = static_cast<double>(all);
        }
        put(is_server, {"memory with 10,000 users", "MiB", before / 1024 / 1024, {}, {}});
        const auto cost = idle(*measured.process, Seconds(4));
        put(is_server,
            {"work for 10,000 idle users", "CPU ms/s", cost.measured.count() * kMilli / cost.count, {}, {}});
    });
}

void Suite::measure_room()
{
    both([&](Measured& measured, bool is_server) {
        constexpr std::size_t kMembers = 200;
        Crowd crowd(measured.port);
        crowd.log_on(0, kMembers);
        join_room(crowd, kMembers);
        const auto cost = middle_of([&] { return room(*measured.process, crowd, kMembers, 250); });
        put(is_server, {"delivery in a room of 200, confirmed", "CPU us", each(cost.measured, cost), {}, {}});
        put(is_server,
            {"deliveries in a room of 200 a second of CPU", "1/s", rate(cost), {}, at_least(60000)});
    });
}

void Suite::measure_off_line()
{
    constexpr std::size_t kSenders = 50;
    constexpr std::size_t kRecipients = 100;
    constexpr std::size_t kMessages = 100000;
    constexpr double kTicksPerSecond = 2;
    const auto server = start_server();
    Crowd crowd(server.port);
    crowd.log_on(0, kSenders);
    const auto stored = store_for_later(*server.process, crowd, kSenders, kRecipients, kMessages);
    put(true, {"message for somebody off line", "CPU us", each(stored.measured, stored), {}, {}});
    put(true, {"messages for people off line a second of CPU", "1/s", rate(stored), {}, at_least(20000)});
    const auto waiting = idle(*server.process, Seconds(11)); // every message is tried again after ten
    put(true,
        {"tick with 100,000 messages queued", "CPU ms",
            waiting.measured.count() * kMilli / (waiting.count * kTicksPerSecond), {}, at_most(1)});
    const auto drained = drain(*server.process, crowd, kSenders, kRecipients, kMessages);
    put(true, {"handing out a queued message", "CPU us", each(drained.measured, drained), {}, {}});
}

void Suite::measure_users()
{
    Curve curve{"cost of a message by users on line", "users on line", "CPU us", {}};
    for (const std::size_t users : {10U, 100U, 1000U, 10000U}) {
        auto server = start_server(); // a new one: rows are the other curve's
        Crowd crowd(server.port);
        crowd.log_on(0, users);
        curve.points.push_back({static_cast<double>(users), message_cost(server, crowd, 5, 16)});
    }
    report_.add(std::move(curve));
}

void Suite::measure_rows()
{
    Curve curve{"cost of a message by rows in messages and log", "rows", "CPU us", {}};
    for (const std::size_t rows : {0U, 10000U, 100000U, 1000000U}) {
        auto server = start_server({}, rows);
        Crowd crowd(server.port);
        crowd.log_on(0, kPairs * 2);
        curve.points.push_back({static_cast<double>(rows), message_cost(server, crowd, kPairs, 16)});
    }
    report_.add(std::move(curve));
}

void Suite::measure_databases()
{
    for (const auto& [provider, title] :
        {std::pair("postgresql", "PostgreSQL"), std::pair("mariadb", "MariaDB")}) {
        if (const auto reason = qz::test::reason_against(provider); !reason.empty()) {
            std::cerr << "  " << title << " was not measured: " << reason << "\n";
            continue;
        }
        measure_database(provider, title);
    }
}

void Suite::measure_database(const std::string& provider, const std::string& title)
{
    const PreparedHome home(options_.server, options_.scratch / provider, kPairs * 2);
    const DatabaseHome database(home, provider);
    const auto port = free_port();
    const Process process(
        {home.server().string(), "run", "--home", database.copy(port).string()}, home.output());
    process.wait_for_port(port);
    Crowd crowd(port);
    crowd.log_on(0, kPairs * 2);
    for (const std::size_t window : {1U, 16U}) {
        const auto what = " on " + title + ", window " + std::to_string(window);
        const Seconds time(2 * options_.seconds);
        confirmed_messages(process, crowd, kPairs, window, time / 2); // plans and caches settle
        const auto before = database.time();
        const auto cost = confirmed_messages(process, crowd, kPairs, window, time);
        put(true, {"confirmed message" + what, "CPU us", each(cost.measured, cost), {}, {}});
        put(true,
            {"the database's work on it" + what, "CPU us", each(database.time() - before, cost), {}, {}});
        put(true, {"messages a second" + what, "1/s", cost.count / cost.wall.count(), {}, {}});
    }
}

} // namespace velto::bench
