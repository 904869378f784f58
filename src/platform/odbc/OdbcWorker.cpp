#include "platform/odbc/OdbcWorker.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace qz::platform {

struct OdbcWorker::Shared {
    std::mutex mutex;
    std::condition_variable given;
    std::deque<Work> work;
    bool ends = false;
};

OdbcWorker::OdbcWorker(std::string connection_string) : shared_(std::make_shared<Shared>())
{
    // Detached: a server that never answers would otherwise hold up the end of the program.
    std::thread([shared = shared_, text = std::move(connection_string)] { serve(shared, text); }).detach();
}

OdbcWorker::~OdbcWorker()
{
    const std::lock_guard lock(shared_->mutex);
    shared_->ends = true;
    shared_->work.clear(); // whoever waits for it hears a broken promise
    shared_->given.notify_one();
}

std::optional<Outcome> OdbcWorker::run(std::vector<Step> steps, std::chrono::milliseconds deadline)
{
    auto outcome = start([steps = std::move(steps)](OdbcSession& session) { return session.run(steps); });
    if (outcome.wait_for(deadline) != std::future_status::ready) {
        return std::nullopt;
    }
    return outcome.get();
}

void OdbcWorker::post(Work work)
{
    const std::lock_guard lock(shared_->mutex);
    shared_->work.push_back(std::move(work));
    shared_->given.notify_one();
}

void OdbcWorker::serve(const std::shared_ptr<Shared>& shared, const std::string& connection_string)
{
    std::optional<OdbcSession> session;
    OdbcFailure failure;
    try {
        session.emplace(connection_string);
    } catch (const OdbcFailure& reason) {
        failure = reason;
    }
    std::unique_lock lock(shared->mutex);
    for (;;) {
        shared->given.wait(lock, [&] { return shared->ends || !shared->work.empty(); });
        if (shared->ends) {
            break;
        }
        const auto work = std::move(shared->work.front());
        shared->work.pop_front();
        lock.unlock();
        work(session ? &*session : nullptr, failure);
        lock.lock();
    }
    lock.unlock();
    // The session goes with this thread, and takes back what was not committed.
}

} // namespace qz::platform
