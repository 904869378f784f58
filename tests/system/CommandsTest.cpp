// The administration commands of the real program: what they print, how they end, what they leave behind.
#include "system/ServerProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

using namespace std::chrono_literals;
using namespace qz;
using testing::HasSubstr;

namespace {

class CommandsTest : public testing::Test {
protected:
    /// Runs `status --json` until a figure has the value, for two seconds at most.
    nlohmann::json status_when(const std::string& figure, int value)
    {
        nlohmann::json status;
        for (int tries = 0; tries < 40; ++tries) {
            EXPECT_EQ(server.run({"status", "--json"}), 0) << server.output;
            status = nlohmann::json::parse(server.output, nullptr, false);
            if (status.value(figure, -1) == value) {
                return status;
            }
            std::this_thread::sleep_for(50ms); // the server writes its file once a second
        }
        ADD_FAILURE() << figure << " is not " << value << ": " << status;
        return status;
    }

    test::ServerProcess server;
};

} // namespace

TEST_F(CommandsTest, StatusTellsOfTheServerThatRunsNowAndOfNoOther)
{
    EXPECT_EQ(server.run({"status"}), 3);
    EXPECT_THAT(server.output, HasSubstr("no server runs in"));

    server.start();
    const auto first = status_when("accounts", 0);
    EXPECT_EQ(first.value("port", 0), server.port());
    EXPECT_THAT(first.value("database", ""), HasSubstr("VELTO.db"));
    ASSERT_EQ(server.run({"user", "add", "ada", "--password-stdin"}, "secret\n"), 0);
    status_when("accounts", 1);

    server.send_signal(SIGKILL); // the file of the killed server stays behind
    EXPECT_EQ(server.wait(), -1);
    EXPECT_EQ(server.run({"status", "--json"}), 3);
    EXPECT_THAT(server.output, HasSubstr("\"running\": false"));
    server.start();
    EXPECT_NE(status_when("accounts", 1).value("process", 0), first.value("process", 0));
}
