#include "platform/asio/AsioEventLoop.h"
#include "platform/SystemClock.h"
#include "platform/asio/AsioTimer.h"
#include "support/LoopRunner.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

using namespace std::chrono_literals;
using qz::platform::AsioEventLoop;
using qz::platform::AsioTimer;
using qz::platform::TurnPhase;
using qz::test::LoopRunner;

namespace {

struct Note : qz::platform::TurnListener {
    Note(std::string& notes, char letter) : notes_(notes), letter_(letter) { }
    virtual ~Note() = default;
    void turn_ended() override { notes_.push_back(letter_); }
    std::string& notes_;
    char letter_;
};

struct Ticks : qz::platform::TimerEvents {
    virtual ~Ticks() = default;
    void timer_ticked() override
    {
        ++count;
        if (on_tick) {
            on_tick();
        }
    }
    int count = 0;
    std::function<void()> on_tick;
};

/// Holds the loop for longer than an event should.
void work_long()
{
    const auto end = std::chrono::steady_clock::now() + 25ms;
    while (std::chrono::steady_clock::now() < end) { }
}

struct AsioEventLoopTest : testing::Test {
    AsioEventLoop loop;
    std::string notes;
};

} // namespace

TEST_F(AsioEventLoopTest, EndsATurnWithCommitBeforeOutput)
{
    Note output(notes, 'o');
    Note commit(notes, 'c');
    loop.add_listener(output, TurnPhase::Output);
    loop.add_listener(commit, TurnPhase::Commit);
    for (const char letter : {'1', '2', '3'}) {
        loop.post([this, letter] { notes.push_back(letter); });
    }
    loop.post([this] { loop.stop(); });
    loop.run();
    EXPECT_EQ(notes, "123co") << "events that are ready together share a turn, and the last one ends too";
}

TEST_F(AsioEventLoopTest, ATurnIsBounded)
{
    Note output(notes, 'o');
    loop.add_listener(output, TurnPhase::Output);
    for (int i = 0; i < 5; ++i) {
        loop.post(work_long);
    }
    loop.post([this] { loop.stop(); });
    loop.run();
    EXPECT_EQ(notes.size(), 6U) << "work longer than a turn does not share it";
    notes.clear();
    for (int i = 0; i < 2000; ++i) {
        loop.post([] {});
    }
    loop.post([this] { loop.stop(); });
    loop.run();
    EXPECT_GE(notes.size(), 4U);
}

TEST_F(AsioEventLoopTest, YieldingEndsTheTurnAndRunsWhatIsPending)
{
    Note commit(notes, 'c');
    Note output(notes, 'o');
    loop.add_listener(commit, TurnPhase::Commit);
    loop.add_listener(output, TurnPhase::Output);
    loop.post([this] {
        loop.post([this] { notes += "p"; });
        notes += "[";
        loop.yield_to_pending_events();
        notes += "|";
        work_long();
        loop.yield_to_pending_events();
        notes += "]";
        loop.stop();
    });
    loop.run();
    EXPECT_EQ(notes, "[|cop]co") << "a short event yields to nobody";
}

TEST_F(AsioEventLoopTest, YieldingNestsOnce)
{
    loop.post([this] {
        loop.post([this] {
            loop.post([this] { notes += "b"; });
            notes += "(";
            work_long();
            loop.yield_to_pending_events();
            notes += ")";
        });
        notes += "[";
        work_long();
        loop.yield_to_pending_events();
        notes += "]";
        loop.post([this] { loop.stop(); });
    });
    loop.run();
    EXPECT_EQ(notes, "[()]b");
}

TEST_F(AsioEventLoopTest, StopsAndTakesWorkFromOtherThreads)
{
    std::thread other([this] {
        for (int i = 0; i < 1000; ++i) {
            loop.post([this] { notes.push_back('x'); });
        }
        loop.post([this] { loop.stop(); });
    });
    loop.run();
    other.join();
    EXPECT_EQ(notes.size(), 1000U);

    std::thread stopper([this] { loop.stop(); });
    stopper.join();
    loop.run(); // returns: the stop came before the run
}

TEST_F(AsioEventLoopTest, AListenerMayLeaveAtTheEndOfATurn)
{
    struct Leaving : qz::platform::TurnListener {
        explicit Leaving(AsioEventLoop& loop) : loop_(loop) { }
        virtual ~Leaving() = default;
        void turn_ended() override
        {
            ++calls_;
            loop_.remove_listener(*this);
        }
        AsioEventLoop& loop_;
        int calls_ = 0;
    } leaving(loop);
    Note after(notes, 'o');
    loop.add_listener(leaving, TurnPhase::Output);
    loop.add_listener(after, TurnPhase::Output);
    for (int turn = 0; turn < 2; ++turn) {
        loop.post([this] { loop.stop(); });
        loop.run();
    }
    EXPECT_EQ(leaving.calls_, 1);
    EXPECT_EQ(notes, "oo");
}

TEST_F(AsioEventLoopTest, TheTimerTicksWhileItIsEnabled)
{
    Ticks ticks;
    AsioTimer timer(loop, ticks);
    LoopRunner runner(loop);
    timer.set_enabled(true);
    runner.run_for(10ms);
    EXPECT_EQ(ticks.count, 0) << "no interval, no tick";
    timer.set_interval(2ms);
    EXPECT_TRUE(runner.until([&] { return ticks.count >= 3; }));
    timer.set_enabled(false);
    const auto count = ticks.count;
    runner.run_for(20ms);
    EXPECT_EQ(ticks.count, count);
    timer.set_enabled(true);
    EXPECT_TRUE(runner.until([&] { return ticks.count > count; }));
}

TEST_F(AsioEventLoopTest, ALateTickIsNotMadeUpFor)
{
    Ticks ticks;
    ticks.on_tick = [&] {
        if (ticks.count == 1) {
            std::this_thread::sleep_for(100ms);
        }
    };
    AsioTimer timer(loop, ticks);
    LoopRunner runner(loop);
    timer.set_interval(20ms);
    timer.set_enabled(true);
    EXPECT_TRUE(runner.until([&] { return ticks.count >= 2; }));
    runner.run_for(5ms);
    EXPECT_EQ(ticks.count, 2) << "five intervals have passed meanwhile";
}

TEST_F(AsioEventLoopTest, GoesOnAfterAnEventThatRanWhatItHadPosted)
{
    int ran = 0;
    loop.post([&] {
        for (int i = 0; i < 20; ++i) { // more than there is other work
            loop.post([&] { ++ran; });
        }
        std::this_thread::sleep_for(20ms);
        loop.yield_to_pending_events();
        loop.post([&] { loop.stop(); });
    });
    loop.run();
    EXPECT_EQ(ran, 20);
}

TEST_F(AsioEventLoopTest, ATimerMayGoInItsOwnTick)
{
    Ticks ticks;
    auto timer = std::make_unique<AsioTimer>(loop, ticks);
    ticks.on_tick = [&] {
        timer.reset();
    };
    timer->set_interval(1ms);
    timer->set_enabled(true);
    LoopRunner runner(loop);
    EXPECT_TRUE(runner.until([&] { return ticks.count == 1; }));
    runner.run_for(10ms);
    EXPECT_EQ(ticks.count, 1);
}

TEST(SystemClock, ShowsLocalTime)
{
    qz::platform::SystemClock clock;
    const auto before = std::time(nullptr);
    const auto shown = clock.now().civil();
    std::tm local{};
    localtime_r(&before, &local);
    const auto expected = qz::DateTime::from_civil(
        {local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec});
    EXPECT_LE(qz::seconds_between(expected, qz::DateTime::from_civil(shown)), 1);
    EXPECT_GE(clock.now(), expected);
}
