// A mail server in a process of its own, which keeps what it is sent.
#pragma once

#include <cstdint>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>
#include <sys/types.h>

namespace qz::test {

class SmtpSink {
public:
    /// @param mode  "accept", "refuse", "slow" or "drop"; smtp_sink.py says what each does.
    explicit SmtpSink(const std::string& mode = "accept");
    SmtpSink(const SmtpSink&) = delete;
    SmtpSink& operator=(const SmtpSink&) = delete;
    ~SmtpSink();

    std::uint16_t port() const { return port_; }
    /// The next mail that it took; waits for it.
    nlohmann::json next_mail() { return next_line(); }

private:
    nlohmann::json next_line();

    pid_t process_ = 0;
    int input_ = -1;
    std::FILE* output_ = nullptr;
    std::uint16_t port_ = 0;
};

} // namespace qz::test
