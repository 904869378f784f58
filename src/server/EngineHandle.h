// The engine as Main holds it: what would destroy running parts of it waits until they have ended.
#pragma once

#include "platform/Machine.h"
#include "server/MainEvents.h"

#include <memory>

namespace qz::server {

class Engine;

/// While the engine works, its host may ask for a restart or give the engine up, inside an event or inside a
/// call that yields. Both are then carried out at the end of the turn in which nothing of the engine runs any
/// more. An engine that was given up raises no further events.
class EngineHandle {
    class Holder;

public:
    EngineHandle(platform::Machine& machine, MainEvents& host);
    /// Gives the engine up. When it has to go on to the end of the turn, the machine must live until then.
    ~EngineHandle();
    EngineHandle(const EngineHandle&) = delete;
    EngineHandle& operator=(const EngineHandle&) = delete;

    /// A call of the host: the engine lives at least until it has returned.
    class Call {
    public:
        explicit Call(std::shared_ptr<Holder> holder);
        ~Call();
        Call(const Call&) = delete;
        Call& operator=(const Call&) = delete;
        Engine* operator->() const;

    private:
        std::shared_ptr<Holder> holder_;
    };
    Call operator->() const { return Call(holder_); }

    /// Starts the engine, later when an arrested engine still works.
    void Server_Start();
    /// Ends the engine; a start that still waits is forgotten.
    void Server_End();

private:
    std::shared_ptr<Holder> holder_;
};

} // namespace qz::server
