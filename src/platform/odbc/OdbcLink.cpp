#include "platform/odbc/OdbcLink.h"

#include "base/Text.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <random>
#include <thread>

namespace qz::platform {

namespace {

Outcome run_all(OdbcSession& session, const std::vector<Step>& steps)
{
    auto outcome = session.run(steps);
    if (outcome.failure) {
        throw OdbcFailure(*outcome.failure);
    }
    return outcome;
}

/// The same for a question that an older or foreign database cannot answer.
std::optional<ResultSet> try_to_read(OdbcSession& session, const std::string& sql)
{
    auto outcome = session.run({{sql}});
    if (outcome.failure && outcome.failure->link_lost) {
        throw OdbcFailure(*outcome.failure);
    }
    return outcome.failure ? std::nullopt : std::optional(std::move(outcome.result));
}

std::string number_in(std::string_view text, std::int64_t number)
{
    return replace_all(text, "{}", std::to_string(number));
}

std::string lock_patience_of(const ServerDatabase& server, std::chrono::milliseconds patience)
{
    const auto number = server.lock_patience_in_seconds ? patience.count() / 1000 : patience.count();
    return number_in(server.lock_patience, number);
}

std::string local_offset()
{
    const auto now = std::time(nullptr);
    std::tm local{};
    std::tm universal{};
#ifdef _WIN32
    localtime_s(&local, &now);
    gmtime_s(&universal, &now);
#else
    localtime_r(&now, &local);
    gmtime_r(&now, &universal);
#endif
    const auto moment = [](const std::tm& tm) {
        return DateTime::from_civil({tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, 0});
    };
    const auto minutes = static_cast<int>(seconds_between(moment(universal), moment(local)) / 60);
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%c%02d:%02d", minutes < 0 ? '-' : '+', std::abs(minutes) / 60,
        std::abs(minutes) % 60);
    return text.data();
}

ServerColumn::Kind kind_named(const std::string& type)
{
    const auto name = lower(type);
    const auto holds = [&](std::string_view part) {
        return name.find(part) != std::string::npos;
    };
    if (holds("date") || holds("timestamp")) {
        return ServerColumn::Kind::Date;
    }
    if (holds("int") || holds("bit") || holds("bool")) {
        return ServerColumn::Kind::Whole;
    }
    return holds("double") || holds("float") || holds("real") || holds("numeric") || holds("decimal")
        ? ServerColumn::Kind::Real
        : ServerColumn::Kind::Text;
}

auto columns_in(const ResultSet& rows)
{
    decltype(ServerFacts::columns) columns;
    for (const auto& row : rows.rows) {
        columns[lower(row.at(0).text())].push_back({row.at(1).text(), kind_named(row.at(2).text())});
    }
    return columns;
}

/// Tries whether a rollback takes a change back: some kinds of tables, and some drivers, do not.
bool rolls_back(OdbcSession& session, const ServerDatabase& server)
{
    const auto name = "self-test " + std::to_string(std::random_device{}());
    const Step look{"SELECT COUNT(*) FROM velto_changes WHERE name = ?", {{name}}};
    const auto outcome = session.run(
        {{std::string(server.begin)}, {"INSERT INTO velto_changes (name, changes) VALUES (?, 0)", {{name}}},
            {std::string(server.rollback)}, look});
    const bool gone = !outcome.failure && outcome.result.rows.at(0).at(0).number() == 0;
    if (!gone) {
        session.run({{std::string(server.rollback)}});
        session.run({{"DELETE FROM velto_changes WHERE name = ?", {{name}}}});
    }
    return gone;
}

/// The name by which a later session finds this one.
std::string name_of(OdbcSession& session, const ServerDatabase& server)
{
    if (server.name_session.empty()) {
        return {};
    }
    std::random_device random;
    const auto own = std::to_string(random()) + "-" + std::to_string(random());
    const auto named = try_to_read(session, replace_all(server.name_session, "{}", own));
    return named && !named->rows.empty() ? named->rows[0].at(0).text() : std::string();
}

/// Ends the session with a name and waits until it has ended: a server may have lost its client without
/// having noticed, and may be in the middle of a commit.
void end_session(OdbcSession& session, const ServerDatabase& server, const std::string& name)
{
    using namespace std::chrono_literals;
    constexpr auto kTimeToEnd = 5s;
    const auto deadline = std::chrono::steady_clock::now() + kTimeToEnd;
    const auto find = [&] {
        return run_all(session, {{std::string(server.find_session), {{Value(name)}}}}).result;
    };
    for (auto found = find(); !found.rows.empty(); found = find()) {
        if (std::chrono::steady_clock::now() > deadline) {
            OdbcFailure failure;
            failure.description = "the database server does not end the session that was lost";
            throw OdbcFailure(failure);
        }
        // It may have ended by itself by now; a failure to end it shows in that it stays.
        session.run(
            {{number_in(server.end_session, static_cast<std::int64_t>(found.rows[0].at(0).number()))}});
        std::this_thread::sleep_for(10ms); // on the thread of the link
    }
}

ServerFacts greet(OdbcSession& session, const OdbcTimes& times, const std::string& former)
{
    ServerFacts facts;
    facts.server = server_database(session.server_name());
    if (facts.server == nullptr) {
        OdbcFailure failure;
        failure.description = "\"" + session.server_name()
            + "\" is connected, which this program does not know; it works with PostgreSQL, MariaDB and SQL "
              "Server";
        throw OdbcFailure(failure);
    }
    facts.version = session.server_version();
    std::vector<Step> steps;
    for (const auto text : facts.server->session) {
        steps.push_back({std::string(text)});
    }
    steps.push_back({lock_patience_of(*facts.server, times.lock)});
    run_all(session, steps);
    facts.session = name_of(session, *facts.server);
    if (!former.empty() && !facts.session.empty()) {
        end_session(session, *facts.server, former);
    }
    if (const auto version = try_to_read(session, "SELECT version FROM velto_schema");
        version && !version->rows.empty()) {
        facts.schema_version = version->rows[0].at(0).integer();
    }
    facts.columns = columns_in(run_all(session, {{std::string(facts.server->columns)}}).result);
    facts.counts_changes = try_to_read(session, "SELECT name, changes FROM velto_changes").has_value();
    facts.transactions = facts.counts_changes && rolls_back(session, *facts.server);
    return facts;
}

} // namespace

EngineError to_error(const OdbcFailure& failure)
{
    auto description = failure.description;
    if (failure.kind == DatabaseError::MissingTable) {
        description += " (velto-server db init makes the tables)";
    }
    return database_error(failure.kind, description);
}

OdbcLink::OdbcLink(const std::string& connection_string, const OdbcTimes& times, const std::string& former,
    std::shared_ptr<StatementTrace> trace)
    : times_(times), worker_(connection_string, std::move(trace)),
      greeting_(
          worker_.start([times, former](OdbcSession& session) { return greet(session, times, former); }))
{
}

void OdbcLink::wait()
{
    if (greeting_.wait_until(began_ + times_.connecting) != std::future_status::ready) {
        throw LinkLost{"the database server does not answer"};
    }
    try {
        facts_ = greeting_.get();
    } catch (const OdbcFailure& failure) {
        throw LinkLost{failure.description, failure.kind};
    }
    follow_time_zone();
}

bool OdbcLink::is_ready() const
{
    return greeting_.wait_for(std::chrono::seconds(0)) == std::future_status::ready
        || std::chrono::steady_clock::now() > began_ + times_.connecting;
}

Outcome OdbcLink::ask(std::vector<Step> steps, std::chrono::milliseconds deadline)
{
    auto outcome = worker_.run(std::move(steps), deadline);
    if (!outcome) {
        const auto waited = std::chrono::duration_cast<std::chrono::seconds>(deadline);
        throw LinkLost{
            "the database server did not answer within " + std::to_string(waited.count()) + " seconds"};
    }
    if (outcome->failure && outcome->failure->link_lost) {
        throw LinkLost{outcome->failure->description};
    }
    return std::move(*outcome);
}

void OdbcLink::set_lock_patience(std::chrono::milliseconds patience)
{
    ask({{lock_patience_of(server(), patience)}});
}

void OdbcLink::follow_time_zone()
{
    const auto zone = local_offset();
    if (!server().time_zone.empty() && zone != time_zone_) {
        ask({{replace_all(server().time_zone, "{}", zone)}});
    }
    time_zone_ = zone;
}

void OdbcLink::look_again()
{
    began_ = std::chrono::steady_clock::now();
    greeting_ = worker_.start([times = times_](OdbcSession& session) { return greet(session, times, {}); });
    wait();
}

} // namespace qz::platform
