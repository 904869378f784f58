#include "queue/MessageQueue.h"

#include "helpers/Frame.h"
#include "support/Conversation.h"
#include "support/OtherProgram.h"
#include "support/TestMachine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

using namespace std::chrono_literals;
using namespace qz;

namespace {

constexpr const char* kExpiration = "2026-03-02 09:15:00";

/// The queue of a started engine, with ada on line; ben comes and goes.
class MessageQueueTest : public testing::Test {
protected:
    void SetUp() override
    {
        host.start();
        ada = host.client_on_line("ada", "1", "192.0.2.1");
    }
    test::MemoryPeer log_on(const std::string& name) { return host.client_on_line(name, "2", "192.0.2.2"); }

    void put(double msg_id, const std::string& to = "ben", bool receipt = false)
    {
        queue().QueueMessage_Put({"ada", to, "text " + std::to_string(static_cast<int>(msg_id)), msg_id,
                                     "192.0.2.1", receipt, DateTime::parse(kExpiration).value(), {}},
            host.engine.connections.first_named(to) != nullptr);
    }
    /// One pass of what a tick does to the queue.
    void work()
    {
        queue().QueueMessage_PurgeExpired();
        queue().QueueMessage_MoveFromQueue(0);
        queue().QueueMessage_Send();
        queue().QueueMessage_Send_Confirmed_and_NotExpired();
        host.settle();
    }
    /// The bodies that a peer has received: keyword and body of each envelope, blanks substitutes shown as
    /// "_".
    static std::vector<std::string> bodies(test::MemoryPeer& peer)
    {
        std::vector<std::string> texts;
        for (const auto& unit : peer.take_units()) {
            const auto frame = helpers::parse_frame(unit);
            auto text = std::string(frame->chunk);
            text = text.substr(text.find('\n') + 1);
            text.pop_back();
            std::replace(text.begin(), text.end(), '\x1F', '_');
            texts.push_back(text);
        }
        return texts;
    }
    std::vector<std::string> logged()
    {
        auto lines = host.events.take_starting("Log ");
        std::erase_if(lines, [](const auto& line) { return line.starts_with("Log New connection"); });
        return lines;
    }
    /// The rows of `messages` as "MsgID Sent Delivered".
    std::vector<std::string> rows()
    {
        std::vector<std::string> texts;
        host.settle();
        for (const auto& row : test::rows_of(host.engine.database, store::tables::kMessages)) {
            texts.push_back(row["MsgID"].text() + " " + row["Sent"].text() + " " + row["Delivered"].text());
        }
        return texts;
    }
    queue::MessageQueue& queue() { return host.engine.message_queue; }

    void switch_on(const char* safeguard) { host.engine.ini.WriteIniValue("Safeguards", safeguard, "True"); }
    /// The engine starts anew, with nothing but what its database holds.
    void start_again()
    {
        host.settle();
        host.engine.status = server::ServerStatus::Arrested;
        host.engine.Server_Start();
        host.settle();
    }
    /// What ben is shown, by its text, in order.
    static std::vector<std::string> texts(test::MemoryPeer& peer)
    {
        auto shown = bodies(peer);
        std::erase_if(shown, [](const auto& text) { return !text.starts_with("msg "); });
        for (auto& text : shown) {
            text = text.substr(text.find("msg=text ") + 9);
        }
        return shown;
    }
    /// accepted, confirmed, expired as the table has them, and the number of rows in `queue`.
    std::vector<std::int64_t> counts()
    {
        host.settle();
        const auto rows = host.engine.database.query(store::statements::kSelectQueueCount);
        const auto row = rows.front();
        const auto waiting = host.engine.database.query(store::statements::kSelectQueue).size();
        return {row["Accepted"].integer(), row["Confirmed"].integer(), row["Expired"].integer(),
            static_cast<std::int64_t>(waiting)};
    }
    /// What ada writes to a room, for each of these.
    void put_to_room(const std::string& text, const std::vector<std::string>& members, double msg_id)
    {
        queue::NewMessage message{
            "ada", {}, text, msg_id, "192.0.2.1", false, DateTime::parse(kExpiration).value(), "attic"};
        message.text.set_several_recipients();
        for (const auto& member : members) {
            message.recipient = member;
            queue().QueueMessage_Put(message, true);
        }
    }
    /// The texts that are stored: those of rows in `queue`, then those of `queuetext`.
    std::vector<std::string> stored_texts()
    {
        std::vector<std::string> texts;
        host.settle();
        for (const auto* table : {&store::statements::kSelectQueue, &store::statements::kSelectQueueTexts}) {
            for (const auto& row : host.engine.database.query(*table)) {
                texts.push_back(row["Message"].text());
            }
        }
        return texts;
    }
    using Texts = std::vector<std::string>;
    using Counts = std::vector<std::int64_t>;

    test::TestEngine host;
    test::MemoryPeer ada{host.machine.loop(), nullptr};
};

} // namespace

TEST_F(MessageQueueTest, SendsToWhoIsOnLineAndWritesBack)
{
    auto ben = log_on("ben");
    put(7);
    EXPECT_EQ(rows(), std::vector<std::string>{"7 0 0"});
    work();
    EXPECT_EQ(bodies(ben),
        std::vector<std::string>{"msg screennamefrom=ada screennameto=ben receivedtime=2026-03-02_09:00:00 "
                                 "expirationtime=2026-03-02_09:15:00 receiptrequested=False msg=text 7"});
    EXPECT_EQ(rows(), std::vector<std::string>{"7 1 0"});
    EXPECT_EQ(queue().count(), 0U);
    EXPECT_EQ(
        logged(), std::vector<std::string>{"Log New message from ada to ben with MsgID 7 [ada, 192.0.2.1]"});
}

TEST_F(MessageQueueTest, KeepsOrderPerRecipientAndTriesEveryTenSeconds)
{
    put(1);
    put(2);
    put(3, "cleo");
    work();
    const std::vector<std::string> attempts{"Log User ben is offline (socket [0] status is 1) and there is a "
                                            "message (1) to be delivered to him! [ben, 127.0.0.1]",
        "Log User cleo is offline (socket [0] status is 1) and there is a message (3) to be delivered to "
        "him! [cleo, 127.0.0.1]"};
    auto lines = logged();
    lines.erase(lines.begin(), lines.begin() + 3);
    EXPECT_EQ(lines, attempts) << "only the oldest of each recipient";

    host.machine.clock().advance(10s);
    work();
    EXPECT_TRUE(logged().empty()) << "ten seconds are not more than ten";
    host.machine.clock().advance(1s);
    work();
    EXPECT_EQ(logged(), attempts);

    auto ben = log_on("ben");
    host.machine.clock().advance(11s);
    work();
    const auto received = bodies(ben);
    ASSERT_EQ(received.size(), 2U) << "the second goes out behind the first, in the same walk";
    EXPECT_TRUE(received[0].ends_with("msg=text 1"));
    EXPECT_TRUE(received[1].ends_with("msg=text 2"));
    EXPECT_EQ(queue().count(), 1U);
}

TEST_F(MessageQueueTest, ExpiresWhatWaitedTooLong)
{
    put(1);
    put(2);
    host.machine.clock().set_now(DateTime::parse(kExpiration).value());
    work();
    EXPECT_EQ(queue().count(), 2U) << "the second of the expiration is not past it";
    logged();
    host.machine.clock().advance(1s);
    work();
    EXPECT_EQ(queue().count(), 0U);
    EXPECT_EQ(logged(),
        (std::vector<std::string>{"Log Message expired 1 from ada to ben [ada, 127.0.0.1]",
            "Log Message expired 2 from ada to ben [ada, 127.0.0.1]"}));
    EXPECT_EQ(rows(), (std::vector<std::string>{"1 0 0", "2 0 0"}));
}

TEST_F(MessageQueueTest, SettlesConfirmationsInTheTableAndSendsReceipts)
{
    auto ben = log_on("ben");
    put(5, "ben", true);
    put(6);
    work();
    ada.take();
    logged();
    queue().QueueMessage_SetToDelivered(5);
    queue().QueueMessage_SetToDelivered(6);
    queue().QueueMessage_SetToDelivered(99);
    host.settle();
    EXPECT_EQ(bodies(ada), std::vector<std::string>{"receipt received=5 screennameto=ben"});
    EXPECT_EQ(logged(),
        (std::vector<std::string>{"Log Receipt for MsgID 5 sent to ada [ada, 127.0.0.1]",
            "Log No message found to confirm with MsgID 99"}));
    EXPECT_EQ(rows(), (std::vector<std::string>{"5 1 1", "6 1 1"}));

    put(5, "cleo");
    queue().QueueMessage_ClearQueue();
    logged();
    queue().QueueMessage_SetToDelivered(5);
    EXPECT_EQ(logged(),
        std::vector<std::string>{"Log Too many messages into the messages table to confirm with MsgID 5"});
}

TEST_F(MessageQueueTest, ConfirmsWhatStillWaits)
{
    put(5, "ben", true);
    queue().QueueMessage_SetToDelivered(5);
    host.settle();
    EXPECT_EQ(bodies(ada), std::vector<std::string>{"receipt received=5 screennameto=ben"});
    host.machine.clock().set_now(DateTime::parse(kExpiration).value().plus_seconds(1));
    logged();
    work();
    EXPECT_TRUE(logged().empty()) << "a message that was confirmed does not expire";
    EXPECT_EQ(rows(), std::vector<std::string>{"5 0 1"});
    EXPECT_EQ(queue().count(), 0U);
}

TEST_F(MessageQueueTest, AnAutomaticReplyMovesTheExpirationOfWhoIsOffLine)
{
    host.engine.auto_replies.Update_AutoReply("ben", "On holiday", true);
    host.engine.auto_replies.Update_AutoReply("ada", "Never heard", true);
    put(1);
    work();
    const auto waiting = queue().get_QueueMessages();
    ASSERT_EQ(waiting.size(), 1U);
    EXPECT_EQ(waiting[0].ExpirationTime.text(), "2026-04-02 09:00:00");
    const auto received = bodies(ada);
    ASSERT_EQ(received.size(), 1U) << "an automatic reply is not answered";
    EXPECT_TRUE(received[0].ends_with(
        "screennamefrom=ben screennameto=ada receivedtime=2026-03-02_09:00:00 "
        "expirationtime=2026-03-02_09:15:00 receiptrequested=False msg=On holiday ##The "
        "expiration date for the message you wrote has been moved from the IM server to "
        "2026-04-02 09:00:00 instead of 2026-03-02 09:15:00##"))
        << received[0];

    auto ben = log_on("ben");
    put(2);
    work();
    EXPECT_TRUE(bodies(ada).at(0).ends_with("msg=On holiday"))
        << "on line: nothing is moved, nothing is noted";
}

TEST_F(MessageQueueTest, AFailingStatementLosesNothingElse)
{
    auto ben = log_on("ben");
    host.machine.watch = [](const std::string& sql) {
        if (sql == "EDIT") {
            throw database_error(DatabaseError::Unspecified, "no");
        }
    };
    put(1);
    host.machine.watch = nullptr;
    EXPECT_EQ(queue().count(), 1U) << "a message that cannot be recorded is delivered all the same";
    EXPECT_EQ(host.events.take_starting("Error "),
        (std::vector<std::string>{
            "Error SaveMessage -2147467259 @", "Error SaveMessage -2147467259 @127.0.0.1"}));
    work(); // the entry leaves, though it has no row to be written back to
    put(2);
    work();
    EXPECT_EQ(texts(ben), (Texts{"1", "2"}));
    EXPECT_EQ(queue().count(), 0U);
    EXPECT_EQ(rows(), std::vector<std::string>{"2 1 0"});
}

TEST_F(MessageQueueTest, KeepsWhatIsSentUntilItIsConfirmed)
{
    switch_on("KeepUntilConfirmed");
    auto ben = log_on("ben");
    put(1);
    put(2);
    put(3);
    work();
    EXPECT_EQ(texts(ben), (Texts{"1", "2", "3"})) << "one that was sent holds nothing up";
    queue().QueueMessage_SetToDelivered(2, "cleo");
    work();
    EXPECT_EQ(queue().count(), 3U) << "only its recipient's confirmation counts";
    queue().QueueMessage_SetToDelivered(2, "ben");
    for (const auto& [pause, shown] : std::initializer_list<std::pair<std::chrono::seconds, Texts>>{
             {15s, {}}, {1s, {"1", "3"}}, {30s, {}}, {1s, {"1", "3"}}, {60s, {}}, {1s, {"1", "3"}}}) {
        host.machine.clock().advance(pause);
        work();
        EXPECT_EQ(texts(ben), shown) << host.machine.clock().now().text();
    }
    ben.vanish();
    host.settle();
    put(4);
    work();
    host.machine.clock().advance(1s);
    auto ben_again = log_on("ben");
    EXPECT_TRUE(queue().recipient_changed("ben"));
    work();
    EXPECT_EQ(texts(ben_again), (Texts{"1", "3", "4"})) << "at once, and what is older first";
    host.machine.clock().set_now(DateTime::parse(kExpiration).value().plus_seconds(1));
    work();
    EXPECT_EQ(queue().count(), 0U);
    EXPECT_EQ(rows(), (Texts{"1 1 0", "2 1 1", "3 1 0", "4 1 0"}));
}

TEST_F(MessageQueueTest, AFullConnectionIsGivenItsMessagesBitByBit)
{
    switch_on("KeepUntilConfirmed");
    auto ben = log_on("ben");
    const std::string text(20'000, 'x');
    for (int i = 1; i <= 100; ++i) {
        queue().QueueMessage_Put({"ada", "ben", text, static_cast<double>(i), "192.0.2.1", false,
                                     DateTime::parse(kExpiration).value(), {}},
            true);
    }
    std::size_t received = 0;
    for (int pass = 0; pass < 20; ++pass) {
        work();
        received += ben.take().size();
    }
    EXPECT_GT(received, 100 * text.size()) << "two megabytes at once would have ended the connection";
    EXPECT_FALSE(ben.ended());
}

TEST_F(MessageQueueTest, IsBackAfterARestart)
{
    switch_on("DurableQueue");
    switch_on("KeepUntilConfirmed");
    auto ben = log_on("ben");
    put(1, "ben", true);
    put(2);
    put(3, "cleo");
    work();
    queue().QueueMessage_SetToDelivered(2, "ben");
    const auto before = queue().get_QueueMessages();
    EXPECT_EQ(counts(), (Counts{3, 1, 0, 2}));
    start_again();
    EXPECT_EQ(queue().get_QueueMessages(), before);
    EXPECT_EQ(counts(), (Counts{3, 1, 0, 2}));

    ada = host.client_on_line("ada", "1", "192.0.2.1");
    put(4);
    put(1); // its sender does not know that it was accepted
    put(2); // nor this one, which is settled
    EXPECT_EQ(queue().count(), 3U);
    auto ben_again = log_on("ben");
    queue().recipient_changed("ben");
    work();
    EXPECT_EQ(texts(ben_again), (Texts{"1", "4"}));
    ada.take();
    queue().QueueMessage_SetToDelivered(1, "ben");
    EXPECT_EQ(counts(), (Counts{4, 2, 0, 2}));
    EXPECT_EQ(bodies(ada), Texts{"receipt received=1 screennameto=ben"});
    host.machine.clock().set_now(DateTime::parse(kExpiration).value().plus_seconds(1));
    work();
    EXPECT_EQ(counts(), (Counts{4, 2, 2, 0}));
    EXPECT_EQ(rows(), (Texts{"1 1 1", "2 1 1", "3 0 0", "4 1 0"}));

    host.events.list.clear();
    start_again();
    EXPECT_TRUE(host.events.take_starting("Log The counts of the queue").empty());
    host.machine.database().add(store::tables::kQueue, {{"UserName_To", "ben"}});
    start_again();
    EXPECT_EQ(host.events.take_starting("Log The counts of the queue").size(), 1U);
}

TEST_F(MessageQueueTest, KnowsRepeatedMessagesAmongManyOldOnesAndNewOnesByItself)
{
    switch_on("DurableQueue");
    for (const auto& [key, number] : {std::pair(1, 5), {1'000'001, 6}, {1'007'500, 7}}) {
        host.machine.database().add(store::tables::kMessages,
            {{"IDMessage", key}, {"UserName_From", "ada"}, {"UserName_To", "ben"}, {"MsgID", number}});
    }
    host.machine.database().add(store::tables::kMessages, {{"IDMessage", 1'001'000}, {"MsgID", "no number"}});
    start_again(); // reads the oldest of them
    int questions = 0;
    host.machine.watch = [&](const std::string& sql) {
        questions += sql.starts_with("SELECT IDMessage FROM messages") ? 1 : 0;
    };
    put(5);
    put(6);
    put(7);
    EXPECT_EQ(queue().count(), 0U);
    EXPECT_EQ(questions, 3);
    queue().read_numbers();
    put(7);
    put(8);
    EXPECT_EQ(questions, 5) << "the newest is not read yet";
    queue().read_numbers();
    put(6);
    put(7);
    EXPECT_EQ(questions, 7);
    for (int number = 100; number < 200; ++number) {
        put(number);
    }
    EXPECT_LE(questions, 8) << "a new number is hardly ever taken for a known one";
    EXPECT_EQ(queue().count(), 101U);
    host.machine.watch = nullptr;
}

TEST_F(MessageQueueTest, WhatIsNotStoredIsNeitherQueuedNorTold)
{
    switch_on("DurableQueue");
    switch_on("KeepUntilConfirmed");
    bool fails = false;
    const char* where = "";
    host.machine.watch = [&](const std::string& sql) {
        if (fails && sql.starts_with(where)) {
            throw database_error(DatabaseError::Unspecified, "no");
        }
    };
    const auto message = [](int number) {
        return test::envelope(
            "msg sessionidvalue=1 screennamefrom=ada screennameto=ben msg=text " + std::to_string(number),
            number);
    };
    host.engine.accounts.set_NewScreenName("ben", "", "", "", "x");
    int number = 0;
    for (const auto* each : {"END OF TURN", "EDIT", "INSERT INTO [LOG]", "TURN STORED"}) {
        SCOPED_TRACE(each);
        where = each;
        auto ben = log_on("ben");
        host.settle();
        ben.take();
        fails = true;
        ada.send(message(++number) + test::envelope("echo sessionidvalue=1 ", 77));
        host.settle();
        EXPECT_TRUE(ada.ended()) << "the sender must not take it for accepted";
        EXPECT_EQ(ada.take().find("echo"), std::string::npos);
        EXPECT_EQ(ben.take().find("text"), std::string::npos);
        EXPECT_EQ(queue().count(), 0U);
        fails = false;
        host.settle();
        ada = host.client_on_line("ada", "1", "192.0.2.1");
        if (ben.ended()) {
            ben = log_on("ben");
        }
        ada.send(message(number)); // again
        host.settle();
        EXPECT_EQ(texts(ben), Texts{std::to_string(number)});
        EXPECT_EQ(queue().count(), 1U);

        fails = true;
        where = "END OF TURN";
        ben.send(test::envelope("receipt sessionidvalue=2 msgid=" + std::to_string(number)));
        host.settle();
        EXPECT_TRUE(ben.ended()) << "so that it confirms again";
        EXPECT_EQ(queue().count(), 1U);
        fails = false;
        queue().QueueMessage_SetToDelivered(number, "ben");
        EXPECT_EQ(queue().count(), 0U);
        EXPECT_EQ(counts(), (Counts{number, number, 0, 0}));
    }
}

TEST_F(MessageQueueTest, WhatWentToAConnectionThatIsReplacedMeanwhileIsSentAgain)
{
    switch_on("DurableQueue");
    switch_on("KeepUntilConfirmed");
    auto ben = log_on("ben");
    host.settle();
    ben.take();
    put(1);
    put(2);
    host.machine.loop().set_events_slow(true);
    host.machine.loop().post([&] { queue().recipient_changed("ben"); }); // runs while 1 is being sent
    queue().QueueMessage_Send();
    host.machine.loop().set_events_slow(false);
    work();
    EXPECT_EQ(texts(ben), (Texts{"1", "1", "2"}));
}

/// The notice that ben is off line ends a turn while ada's message is being handled.
TEST_F(MessageQueueTest, AMessageIsAcceptedInOneTurnOrNotAtAll)
{
    switch_on("DurableQueue");
    switch_on("KeepUntilConfirmed");
    host.engine.accounts.set_NewScreenName("ben", "", "", "", "x");
    host.settle();
    int turns = 0;
    int lost = 0;
    host.machine.watch = [&](const std::string& sql) {
        if (sql == "END OF TURN" && ++turns == lost) {
            throw database_error(DatabaseError::Unspecified, "no");
        }
    };
    host.machine.loop().set_events_slow(true);
    for (lost = 1; lost <= 2; ++lost) { // in the middle, and at the end
        SCOPED_TRACE(lost);
        turns = 0;
        ada.send(test::envelope("msg sessionidvalue=1 screennamefrom=ada screennameto=ben msg=text 1", 1));
        host.settle();
        EXPECT_GE(turns, lost);
        EXPECT_TRUE(ada.ended()) << "so that it is sent again";
        EXPECT_EQ(queue().count(), 0U) << "behind what was lost before it";
        ada = host.client_on_line("ada", "1", "192.0.2.1");
    }
    host.machine.watch = nullptr;
}

TEST_F(MessageQueueTest, ATextForSeveralIsStoredOnceAndAsLongAsOneOfThemWaits)
{
    switch_on("DurableQueue");
    switch_on("KeepUntilConfirmed");
    put(1);
    put_to_room("text hello", {"ben", "cleo", "dora"}, 2);
    EXPECT_EQ(stored_texts(), (Texts{"text 1", "", "", "", "text hello"}));
    queue().QueueMessage_SetToDelivered(2, "cleo");
    start_again();
    ada = host.client_on_line("ada", "1", "192.0.2.1");
    auto ben = log_on("ben");
    queue().recipient_changed("ben");
    work();
    EXPECT_EQ(texts(ben), (Texts{"1", "hello"}));
    EXPECT_EQ(stored_texts(), (Texts{"text 1", "", "", "text hello"}));

    bool fails = false;
    host.machine.watch = [&](const std::string& sql) {
        if (fails && sql == "END OF TURN") {
            throw database_error(DatabaseError::Unspecified, "no");
        }
    };
    const auto in_a_lost_turn = [&](const std::function<void()>& work) {
        host.settle();
        fails = true;
        work();
        host.settle();
        fails = false;
        host.settle();
    };
    queue().QueueMessage_SetToDelivered(1, "ben");
    queue().QueueMessage_SetToDelivered(2, "ben");
    in_a_lost_turn([&] { queue().QueueMessage_SetToDelivered(2, "dora"); });
    EXPECT_EQ(stored_texts(), (Texts{"", "text hello"})) << "the last of them still waits";
    queue().QueueMessage_SetToDelivered(2, "dora");
    EXPECT_EQ(stored_texts(), Texts{});

    in_a_lost_turn([&] { put_to_room("text lost", {"cleo", "dora"}, 3); });
    EXPECT_EQ(stored_texts(), Texts{});
    put_to_room("text again", {"cleo", "dora"}, 4);
    EXPECT_EQ(stored_texts(), (Texts{"", "", "text again"}));
    EXPECT_EQ(counts(), (Counts{6, 4, 0, 2}));
    host.machine.watch = nullptr;
}

TEST_F(MessageQueueTest, ATextThatNoRowRefersToIsRemovedAtTheStart)
{
    switch_on("DurableQueue");
    put_to_room("text hello", {"ben", "cleo"}, 1);
    host.settle();
    host.machine.database().add(store::tables::kQueueText, {{"Message", "text of nobody"}});
    start_again();
    EXPECT_EQ(stored_texts(), (Texts{"", "", "text hello"}));
}

TEST_F(MessageQueueTest, WhatWaitsInOlderTablesIsDelivered)
{
    switch_on("DurableQueue");
    switch_on("KeepUntilConfirmed");
    host.settle();
    host.engine.database.ClosedbConnection();
    test::OtherProgram(host.machine.home() / "VELTO.db")
        .run("DROP TABLE queuetext; ALTER TABLE queue DROP COLUMN IDQueueText; PRAGMA user_version = 5;"
             "INSERT INTO queue (UserName_From, UserName_To, MsgID, Message, RoomName, ReceivedTime, "
             "ExpirationTime) VALUES "
             "('ada', 'ben', 1, 'text one', '', '2026-03-02 08:59:00', '2026-03-02 09:15:00'),"
             "('ada', 'ben', 2, 'text to all', 'attic', '2026-03-02 08:59:30', '2026-03-02 09:15:00'),"
             "('ada', 'cleo', 2, 'text to all', 'attic', '2026-03-02 08:59:30', '2026-03-02 09:15:00')");
    start_again();
    EXPECT_EQ(queue().count(), 3U);
    put_to_room("text new", {"ben", "cleo"}, 3);
    auto ben = log_on("ben");
    queue().recipient_changed("ben");
    work();
    EXPECT_EQ(texts(ben), (Texts{"one", "to all", "new"}));
    EXPECT_EQ(stored_texts(), (Texts{"text one", "text to all", "text to all", "", "", "text new"}));
}

TEST_F(MessageQueueTest, AConfirmationAfterTheExpirationCountsAsOne)
{
    switch_on("DurableQueue");
    switch_on("KeepUntilConfirmed");
    auto ben = log_on("ben");
    put(1);
    put(2);
    work();
    host.machine.clock().set_now(DateTime::parse(kExpiration).value().plus_seconds(1));
    work();
    EXPECT_EQ(counts(), (Counts{2, 0, 2, 0}));
    for (int times = 0; times < 2; ++times) { // a client that is not sure confirms again
        queue().QueueMessage_SetToDelivered(1, "ben");
        EXPECT_EQ(counts(), (Counts{2, 1, 1, 0}));
    }
}

TEST_F(MessageQueueTest, TellsTheLogOfAnOfflineRecipientNowAndThen)
{
    host.engine.ini.WriteIniValue("Safeguards", "OfflineLogMinutes", "60");
    const auto lines = [&] {
        auto all = logged();
        std::erase_if(all, [](const auto& line) { return line.find("is offline") == std::string::npos; });
        return all.size();
    };
    const auto wait = [&](std::chrono::seconds time) {
        host.machine.clock().advance(time);
        work();
        return lines();
    };
    queue().QueueMessage_Put(
        {"ada", "ben", "text", 1, "192.0.2.1", false, DateTime::parse("2026-03-03 09:00:00").value(), {}},
        false);
    put(2, "cleo");
    EXPECT_EQ(wait(0s), 2U) << "a line for each recipient";
    EXPECT_EQ(wait(11s), 0U);
    EXPECT_EQ(wait(3578s), 0U);
    EXPECT_EQ(wait(11s), 1U) << "ben still waits after an hour";
    auto ben = log_on("ben");
    EXPECT_EQ(wait(11s), 0U);
    ben.vanish();
    host.settle();
    queue().QueueMessage_Put(
        {"ada", "ben", "text", 3, "192.0.2.1", false, DateTime::parse("2026-03-03 09:00:00").value(), {}},
        false);
    EXPECT_EQ(wait(1s), 1U) << "anew when somebody was on line in between";
}
