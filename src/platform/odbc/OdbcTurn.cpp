#include "platform/odbc/OdbcTurn.h"

#include <algorithm>
#include <utility>

namespace qz::platform {

namespace {

using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;

/// Who has waited for a lock in vain does not wait with each of the next statements: a program that holds it
/// for long would otherwise stop the engine.
constexpr auto kImpatience = 10s;

bool is_lock(const OdbcFailure& failure)
{
    return failure.state == "55P03" || failure.native == 1205 || failure.native == 1222;
}

} // namespace

ResultSet OdbcTurn::read(const Step& step)
{
    auto outcome = link_.ask({step}, times_.answer);
    if (outcome.failure) {
        recover(*outcome.failure);
        throw OdbcFailure(*outcome.failure);
    }
    return std::move(outcome.result);
}

Outcome OdbcTurn::write(const Step& step, const std::function<Step(const Outcome&)>& again)
{
    if (impatient_ && SteadyClock::now() > impatient_until_) {
        impatient_ = false;
        link_.set_lock_patience(times_.lock);
    }
    std::vector<Step> steps;
    if (begins()) {
        steps.push_back({std::string(link_.server().begin)});
    }
    steps.push_back(step);
    auto outcome = link_.ask(steps, deadline_of(steps));
    open_ = open_ || (steps.size() == 2 && outcome.done > 0);
    if (outcome.failure) {
        recover(*outcome.failure);
        throw OdbcFailure(*outcome.failure);
    }
    if (open_) {
        done_.push_back(again ? again(outcome) : step);
    }
    return outcome;
}

ResultSet OdbcTurn::try_out(const Step& step)
{
    std::vector<Step> steps;
    if (begins()) {
        steps.push_back({std::string(link_.server().begin)});
    }
    steps.push_back({"SAVEPOINT velto"});
    steps.push_back(step);
    auto outcome = link_.ask(steps, times_.answer);
    open_ = open_ || (begins() && outcome.done > 0);
    if (outcome.failure) {
        recover(*outcome.failure);
        throw OdbcFailure(*outcome.failure);
    }
    if (const auto back = link_.ask({{"ROLLBACK TO SAVEPOINT velto"}}); back.failure) {
        recover(*back.failure);
        throw OdbcFailure(*back.failure);
    }
    return std::move(outcome.result);
}

OdbcTurn::Ending OdbcTurn::write_and_commit(const std::vector<Step>& steps)
{
    std::vector<Step> all;
    const std::size_t before = begins() ? 1 : 0;
    if (before == 1) {
        all.push_back({std::string(link_.server().begin)});
    }
    all.insert(all.end(), steps.begin(), steps.end());
    if (link_.facts().transactions) {
        all.push_back({std::string(link_.server().commit)});
    }
    const auto outcome = link_.ask(all, deadline_of(all));
    if (!outcome.failure) {
        end();
        return {steps.size(), std::nullopt};
    }
    open_ = open_ || (before == 1 && outcome.done > 0);
    const auto written = (std::min)(steps.size(), outcome.done - (std::min)(before, outcome.done));
    if (open_) {
        done_.insert(done_.end(), steps.begin(), steps.begin() + static_cast<std::ptrdiff_t>(written));
    }
    if (written < steps.size()) {
        recover(*outcome.failure);
    }
    return {written, outcome.failure};
}

void OdbcTurn::commit()
{
    if (!open_) {
        return;
    }
    if (const auto ending = write_and_commit({}); ending.failure) {
        rollback();
        throw OdbcFailure(*ending.failure);
    }
}

void OdbcTurn::rollback()
{
    if (open_) {
        link_.ask({{std::string(link_.server().rollback)}});
    }
    lost_ = false;
    end();
}

std::chrono::milliseconds OdbcTurn::deadline_of(const std::vector<Step>& steps) const
{
    auto deadline = times_.answer;
    for (const auto& step : steps) {
        if (step.may_take_long) {
            return times_.deletion;
        }
        deadline += 1ms * step.rows.size(); // what has waited for long may be much
    }
    return deadline;
}

/// After a failure: makes sure that what succeeded in this turn still stands.
void OdbcTurn::recover(const OdbcFailure& failure)
{
    const bool locked_out = is_lock(failure) && !impatient_;
    if (is_lock(failure)) {
        impatient_ = true;
        impatient_until_ = SteadyClock::now() + kImpatience;
    }
    const bool begin_anew = open_ && (locked_out || !still_open());
    if (begin_anew) {
        link_.ask({{std::string(link_.server().rollback)}});
    }
    if (locked_out) { // in a transaction that has failed some servers take no setting
        link_.set_lock_patience(1ms);
    }
    if (begin_anew) {
        run_again();
    }
}

void OdbcTurn::run_again()
{
    repeated_ = repeated_ || !done_.empty();
    std::vector<Step> steps{{std::string(link_.server().begin)}};
    steps.insert(steps.end(), done_.begin(), done_.end());
    if (link_.ask(steps, deadline_of(steps)).failure) {
        link_.ask({{std::string(link_.server().rollback)}});
        lost_ = lost_ || !done_.empty();
        end();
    }
}

bool OdbcTurn::still_open()
{
    if (link_.server().transaction_count.empty()) {
        return false;
    }
    const auto outcome = link_.ask({{std::string(link_.server().transaction_count)}});
    return !outcome.failure && outcome.result.rows.at(0).at(0).number() != 0;
}

void OdbcTurn::end()
{
    open_ = false;
    done_.clear();
}

} // namespace qz::platform
