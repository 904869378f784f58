// A journal that keeps what it is told.
#pragma once

#include "base/Journal.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qz::test {

class RecordingJournal : public Journal {
public:
    virtual ~RecordingJournal() = default;

    struct Line {
        std::string message;
        std::string user_name; // empty for a line of the server itself
        std::string remote_ip;
    };
    struct Failure {
        std::string routine;
        std::int32_t number;
        std::string source;
        std::string description;
        std::string address;
        bool logged; // false when only the Error event was raised
    };

    void Log(const std::string& message, const std::string& user_name, const std::string& remote_ip) override
    {
        lines.push_back({message, user_name, remote_ip});
    }
    void log_own(const std::string& message) override { lines.push_back({message, {}, {}}); }
    void ReportError(std::string_view routine, const EngineError& error, const std::string& address) override
    {
        keep(routine, error, address, true);
    }
    void raise_error(std::string_view routine, const EngineError& error, const std::string& address) override
    {
        keep(routine, error, address, false);
    }

    std::vector<Line> lines;
    std::vector<Failure> failures;

private:
    void keep(std::string_view routine, const EngineError& error, const std::string& address, bool logged)
    {
        failures.push_back(
            {std::string(routine), error.number(), error.source(), error.description(), address, logged});
    }
};

} // namespace qz::test
