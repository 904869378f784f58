// The thread that a session lives on, and the deadline for what it is asked.
#pragma once

#include "platform/odbc/OdbcSession.h"

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace qz::platform {

/// Work runs in the order in which it is given. The thread shares all that it touches with nobody but this
/// object, which may go at any time: no further statement is then run, the one that runs is cancelled, and
/// the thread ends as soon as the server lets it, and closes the link. So nothing of a transaction is stored
/// that was not being committed already.
class OdbcWorker {
public:
    /// Begins to connect.
    explicit OdbcWorker(std::string connection_string, std::shared_ptr<StatementTrace> trace = {});
    OdbcWorker(const OdbcWorker&) = delete;
    OdbcWorker& operator=(const OdbcWorker&) = delete;
    ~OdbcWorker();

    /// Runs steps on the session, once it is connected.
    /// @return nothing when the deadline has passed; the steps are then stopped, and the object is of no use
    /// any more.
    std::optional<Outcome> run(std::vector<Step> steps, std::chrono::milliseconds deadline);
    /// The same for what does not wait: the future gives the result, or OdbcFailure when the connection
    /// failed.
    template <typename Function>
    auto start(Function work) -> std::future<decltype(work(std::declval<OdbcSession&>()))>
    {
        using Result = decltype(work(std::declval<OdbcSession&>()));
        auto task = std::make_shared<std::packaged_task<Result(OdbcSession*, const OdbcFailure&)>>(
            [work = std::move(work)](OdbcSession* session, const OdbcFailure& failure) {
                if (session == nullptr) {
                    throw OdbcFailure(failure);
                }
                return work(*session);
            });
        auto future = task->get_future();
        post([task](OdbcSession* session, const OdbcFailure& failure) { (*task)(session, failure); });
        return future;
    }

private:
    struct Shared;
    /// Gets no session, but the reason, when there is none.
    using Work = std::function<void(OdbcSession*, const OdbcFailure&)>;
    void post(Work work);
    void give_up();
    static void serve(const std::shared_ptr<Shared>& shared, const std::string& connection_string,
        const std::shared_ptr<StatementTrace>& trace);

    std::shared_ptr<Shared> shared_;
    std::thread thread_;
};

} // namespace qz::platform
