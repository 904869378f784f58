#include "platform/odbc/OdbcWorker.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace qz::platform {

struct OdbcWorker::Shared {
    std::mutex mutex;
    std::condition_variable given;
    std::condition_variable finished;
    std::deque<Work> work;
    OdbcStop stop;
    bool connects = true;
    bool works = false;
    bool ends = false;
    bool done = false;
};

namespace {

/// A session that can end does so in milliseconds.
constexpr std::chrono::milliseconds kTimeToEnd(500);

} // namespace

OdbcWorker::OdbcWorker(std::string connection_string, std::shared_ptr<StatementTrace> trace)
    : shared_(std::make_shared<Shared>()),
      thread_([shared = shared_, text = std::move(connection_string), trace = std::move(trace)] {
          serve(shared, text, trace);
      })
{
}

OdbcWorker::~OdbcWorker()
{
    std::unique_lock lock(shared_->mutex);
    shared_->ends = true;
    shared_->work.clear(); // whoever waits for it hears a broken promise
    shared_->given.notify_one();
    if (shared_->works) {
        give_up();
    }
    const bool done =
        !shared_->connects && shared_->finished.wait_for(lock, kTimeToEnd, [this] { return shared_->done; });
    lock.unlock();
    if (done) {
        thread_.join(); // a program that ended meanwhile would take the driver away from under it
    } else {
        thread_.detach(); // a server that never answers would otherwise hold up the end of the program
    }
}

std::optional<Outcome> OdbcWorker::run(std::vector<Step> steps, std::chrono::milliseconds deadline)
{
    auto outcome = start([steps = std::move(steps)](OdbcSession& session) { return session.run(steps); });
    if (outcome.wait_for(deadline) != std::future_status::ready) {
        give_up();
        return std::nullopt;
    }
    return outcome.get();
}

/// Lets the thread run no further statement. A server that does not answer may not answer to a cancellation
/// either, so that has a thread of its own.
void OdbcWorker::give_up()
{
    if (shared_->stop.stop()) {
        std::thread([shared = shared_] { shared->stop.cancel(); }).detach();
    }
}

void OdbcWorker::post(Work work)
{
    const std::lock_guard lock(shared_->mutex);
    shared_->work.push_back(std::move(work));
    shared_->given.notify_one();
}

void OdbcWorker::serve(const std::shared_ptr<Shared>& shared, const std::string& connection_string,
    const std::shared_ptr<StatementTrace>& trace)
{
    std::optional<OdbcSession> session;
    OdbcFailure failure;
    try {
        session.emplace(connection_string, std::shared_ptr<OdbcStop>(shared, &shared->stop), trace);
    } catch (const OdbcFailure& reason) {
        failure = reason;
    }
    std::unique_lock lock(shared->mutex);
    shared->connects = false;
    for (;;) {
        shared->given.wait(lock, [&] { return shared->ends || !shared->work.empty(); });
        if (shared->ends) {
            break;
        }
        const auto work = std::move(shared->work.front());
        shared->work.pop_front();
        shared->works = true;
        lock.unlock();
        work(session ? &*session : nullptr, failure);
        lock.lock();
        shared->works = false;
    }
    lock.unlock();
    session.reset(); // takes back what was not committed
    lock.lock();
    shared->done = true;
    shared->finished.notify_one();
}

} // namespace qz::platform
