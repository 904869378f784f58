// An open link to a server that the provider knows, and what was found out about it.
#pragma once

#include "platform/odbc/OdbcWorker.h"
#include "platform/odbc/ServerDatabase.h"

#include <chrono>
#include <cstdint>
#include <future>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace qz::platform {

/// Times that a provider waits.
struct OdbcTimes {
    std::chrono::milliseconds connecting{10'000};
    /// For an answer; a server that takes longer is taken for frozen, and its link is given up.
    std::chrono::milliseconds answer{10'000};
    /// For an answer to a text of the catalogue that deletes, which may have a whole table to go through.
    std::chrono::milliseconds deletion{60'000};
    /// For a lock of another session.
    std::chrono::milliseconds lock{2'000};
    std::chrono::milliseconds first_retry{1'000};
    std::chrono::milliseconds longest_retry{30'000};
};

struct ServerColumn {
    enum class Kind { Whole, Real, Date, Text };
    std::string name;
    Kind kind = Kind::Text;
};

struct ServerFacts {
    const ServerDatabase* server = nullptr;
    std::string version;
    std::string session;    // its name, by which a later session finds it; empty where none can
    int schema_version = 0; // 0 also for tables that somebody made by hand
    bool counts_changes = false;
    /// False where a rollback leaves changes behind, or where that cannot be tried: then every statement is
    /// committed at once.
    bool transactions = false;
    std::map<std::string, std::vector<ServerColumn>, std::less<>> columns; // by table, in lower case
};

/// The link is gone, or the server did not answer in time. The object that threw is of no use any more.
struct LinkLost {
    std::string reason;
    DatabaseError kind = DatabaseError::Unspecified;
};

EngineError to_error(const OdbcFailure& failure);

class OdbcLink {
public:
    /// Begins to connect and to find out the facts.
    /// @param former  name of the session that was lost before, if any: it is ended first, so that nothing it
    /// was committing is stored later than this link is open.
    /// @param trace   see OdbcSession.
    explicit OdbcLink(const std::string& connection_string, const OdbcTimes& times,
        const std::string& former = {}, std::shared_ptr<StatementTrace> trace = {});

    /// Waits until the link is open.
    /// @throws LinkLost also when it never came about.
    void wait();
    bool is_ready() const;

    /// Of an open link.
    const ServerFacts& facts() const { return facts_; }
    const ServerDatabase& server() const { return *facts_.server; }

    /// Runs steps up to the first that fails.
    /// @throws LinkLost
    Outcome ask(std::vector<Step> steps, std::chrono::milliseconds deadline);
    Outcome ask(std::vector<Step> steps) { return ask(std::move(steps), times_.answer); }
    /// For how long statements wait for a lock from now on.
    void set_lock_patience(std::chrono::milliseconds patience);
    /// Gives the session the local time of this machine, which may have changed.
    void follow_time_zone();
    /// Finds the facts out anew, for instance after tables were made.
    void look_again();

private:
    OdbcTimes times_;
    OdbcWorker worker_;
    std::chrono::steady_clock::time_point began_ = std::chrono::steady_clock::now();
    std::future<ServerFacts> greeting_;
    ServerFacts facts_;
    std::string time_zone_;
};

} // namespace qz::platform
