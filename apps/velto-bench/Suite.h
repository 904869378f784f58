// The measurements of a run, one after another, each on a server of its own.
#pragma once

#include "Home.h"
#include "Process.h"
#include "Report.h"
#include "Scenarios.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace velto::bench {

struct SuiteOptions {
    std::filesystem::path server;
    std::filesystem::path scratch;
    std::vector<std::string> only; // names of measurements; all when empty
    double seconds = 1;            // for which messages are exchanged in a round
};

class Suite {
public:
    explicit Suite(const SuiteOptions& options);

    /// The names of the measurements, in their order.
    static std::vector<std::string> names();
    /// @return false when one could not be made to its end; the figures of the others are there.
    bool run();
    const Report& report() const { return report_; }

private:
    struct Measured {
        std::uint16_t port;
        std::unique_ptr<Process> process;
        Seconds start_time{0};
    };
    struct Measurement {
        std::string name;
        void (Suite::*work)();
    };
    static const std::vector<Measurement>& measurements();
    void measure(const std::string& name, void (Suite::*work)());

    Measured start_server(const std::vector<std::string>& settings = {}, std::size_t rows = 0) const;
    Measured start_relay() const;
    /// Measures the same on the server and on the relay.
    void both(const std::function<void(Measured&, bool is_server)>& work);
    /// The figure of the server, or the relay's value of it.
    void put(bool is_server, Figure figure);
    double message_cost(Measured& measured, Crowd& crowd, std::size_t pairs, std::size_t window) const;

    void measure_logons();
    void measure_messages();
    void measure_messages_with_window(Measured& measured, Crowd& crowd, bool is_server, std::size_t window);
    void measure_safeguards();
    void measure_latency();
    void measure_memory();
    void measure_room();
    void measure_off_line();
    void measure_startup();
    void measure_users();
    void measure_rows();
    void measure_databases();
    void measure_database(const std::string& provider, const std::string& title);

    SuiteOptions options_;
    PreparedHome home_;
    Report report_;
    bool complete_ = true;
};

} // namespace velto::bench
