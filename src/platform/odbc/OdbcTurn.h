// The transaction of one turn, in which a failing statement fails alone whatever the server makes of it.
#pragma once

#include "platform/odbc/OdbcLink.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace qz::platform {

/// Reads run outside a transaction as long as the turn has not written. Where a failing statement takes the
/// transaction with it, the turn's statements before it are run again in a new one.
/// Operations throw OdbcFailure when only their statement failed, and LinkLost.
class OdbcTurn {
public:
    /// @param link  must outlive the object.
    explicit OdbcTurn(OdbcLink& link, const OdbcTimes& times) : link_(link), times_(times) { }

    ResultSet read(const Step& step);
    /// @param again  gives what stands for the step when the turn has to be run again, by its outcome; the
    ///               step itself when empty.
    Outcome write(const Step& step, const std::function<Step(const Outcome&)>& again = {});
    /// Runs a step, keeps what it gave, and takes its changes back.
    ResultSet try_out(const Step& step);
    struct Ending {
        std::size_t done = 0; // steps
        std::optional<OdbcFailure> failure;
    };
    /// Steps that are joined with the end of the turn in one go. When one of them fails, or the commit
    /// itself, which counts as a step more, nothing is committed yet.
    Ending write_and_commit(const std::vector<Step>& steps);
    void commit();
    /// Gives up what was written.
    void rollback();

    /// True once after the server threw the turn's changes away.
    bool take_lost() { return std::exchange(lost_, false); }
    /// True once after the turn's statements were run again.
    bool take_repeated() { return std::exchange(repeated_, false); }

private:
    std::chrono::milliseconds deadline_of(const std::vector<Step>& steps) const;
    bool begins() const { return link_.facts().transactions && !open_; }
    void recover(const OdbcFailure& failure);
    void run_again();
    bool still_open();
    void end();

    OdbcLink& link_;
    OdbcTimes times_;
    bool open_ = false;
    bool lost_ = false;
    bool repeated_ = false;
    std::vector<Step> done_;
    /// Until then nobody waits for locks.
    std::chrono::steady_clock::time_point impatient_until_{};
    bool impatient_ = false;
};

} // namespace qz::platform
