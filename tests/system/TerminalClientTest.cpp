// velto against a running server: from scripts, and on a terminal of its own.
#include "system/Process.h"
#include "system/ServerProcess.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <csignal>
#include <poll.h>
#include <pty.h>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

using namespace std::chrono_literals;
using namespace qz::test;
using testing::HasSubstr;
using testing::Not;

namespace {

class TerminalClientTest : public testing::Test {
protected:
    void SetUp() override
    {
        for (const auto* name : {"ada", "ben", "cleo"}) {
            ASSERT_EQ(server.run({"user", "add", name, "--password-stdin"}, "secret\n"), 0) << server.output;
        }
        ASSERT_EQ(server.run({"room", "add", "lobby", "--owner", "ada"}), 0) << server.output;
        put_bytes(folder / "password", "secret\n");
        server.start();
    }

    std::vector<std::string> words(const std::string& user, const std::vector<std::string>& arguments) const
    {
        std::vector<std::string> all{VELTO_PROGRAM, "--server", "127.0.0.1:" + std::to_string(server.port()),
            "--user", user, "--password-file", (folder / "password").string()};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return all;
    }
    pid_t start(
        const std::string& user, const std::vector<std::string>& arguments, const std::string& input = {})
    {
        put_bytes(folder / (user + ".in").c_str(), input);
        return spawn(
            words(user, arguments), folder / (user + ".in").c_str(), folder / (user + ".out").c_str());
    }
    int run(const std::string& user, const std::vector<std::string>& arguments, const std::string& input = {})
    {
        return wait_for(start(user, arguments, input), 40s);
    }
    void await_on_line(const std::string& user)
    {
        do {
            ASSERT_EQ(run("cleo", {"who"}), 0) << output("cleo");
        } while (output("cleo").find(user) == std::string::npos);
    }
    std::string output(const std::string& user) const { return bytes_of(folder / (user + ".out").c_str()); }

    TemporaryFolder folder;
    ServerProcess server;
};

/// velto on a pseudo-terminal: keys go in, what it draws comes out.
class Typist {
public:
    explicit Typist(const std::vector<std::string>& words)
    {
        winsize size{24, 80, 0, 0};
        child_ = forkpty(&terminal_, nullptr, nullptr, &size);
        if (child_ == 0) {
            std::vector<char*> argv;
            for (const auto& word : words) {
                argv.push_back(const_cast<char*>(word.c_str()));
            }
            argv.push_back(nullptr);
            setenv("TERM", "xterm", 1);
            execv(argv[0], argv.data());
            _exit(127);
        }
    }
    Typist(const Typist&) = delete;
    Typist& operator=(const Typist&) = delete;
    ~Typist()
    {
        close(terminal_);
        wait_for(child_, 10s);
    }

    void type(const std::string& keys) const
    {
        ASSERT_EQ(::write(terminal_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }
    /// Waits until the text was drawn, then forgets what was drawn up to there.
    bool sees(const std::string& text)
    {
        const auto end = std::chrono::steady_clock::now() + 15s;
        while (drawn.find(text) == std::string::npos) {
            pollfd waiting{terminal_, POLLIN, 0};
            const auto left =
                std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
            if (left <= 0ms || ::poll(&waiting, 1, static_cast<int>(left.count())) <= 0) {
                return false;
            }
            char bytes[4096];
            const auto size = ::read(terminal_, bytes, sizeof bytes);
            if (size <= 0) {
                return false;
            }
            drawn.append(bytes, static_cast<std::size_t>(size));
            all.append(bytes, static_cast<std::size_t>(size));
        }
        drawn.erase(0, drawn.find(text) + text.size());
        return true;
    }
    int wait()
    {
        while (sees("\x1a")) { // what is still drawn
        }
        int status = 0;
        waitpid(child_, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    std::string drawn; // and not yet looked at
    std::string all;

private:
    pid_t child_ = 0;
    int terminal_ = -1;
};

} // namespace

TEST_F(TerminalClientTest, AScriptLearnsWhatBecameOfItsMessage)
{
    const auto listener = start("ben", {"listen", "--json", "--count", "2", "--timeout", "30"});
    // The listener may log on before or after: the message waits for it.
    EXPECT_EQ(run("ada", {"send", "ben", "Grüße \x1b[31m"}), 0) << output("ada");
    EXPECT_THAT(output("ada"), HasSubstr("delivered to ben"));
    EXPECT_EQ(run("ada", {"send", "ben", "-"}, "two\nlines\n"), 0) << output("ada");
    EXPECT_EQ(wait_for(listener, 40s), 0);
    std::vector<nlohmann::json> messages;
    std::istringstream lines(output("ben"));
    for (std::string line; std::getline(lines, line);) {
        const auto event = nlohmann::json::parse(line);
        if (event["event"] == "message") {
            messages.push_back(event);
        }
    }
    ASSERT_EQ(messages.size(), 2U) << output("ben");
    EXPECT_EQ(messages[0]["from"], "ada");
    EXPECT_EQ(messages[0]["text"], "Grüße \uFFFD[31m") << "no control character travels";
    EXPECT_EQ(messages[1]["text"], "two\nlines");

    EXPECT_EQ(run("ada", {"send", "--timeout", "1", "cleo", "later"}), 4) << output("ada");
    EXPECT_EQ(run("ada", {"send", "--no-wait", "cleo", "later still"}), 0) << output("ada");
    EXPECT_EQ(run("ada", {"send", "#lobby", "hello"}), 0) << output("ada");
    EXPECT_EQ(run("ada", {"send", "nobody", "hello"}), 1);
    EXPECT_THAT(output("ada"), HasSubstr("The buddy nobody doesn't exist!"));
    put_bytes(folder / "password", "guess\n");
    EXPECT_EQ(run("ada", {"send", "ben", "hello"}), 1);
    EXPECT_THAT(output("ada"), HasSubstr("refuses ada"));
    server.send_signal(SIGTERM);
    EXPECT_EQ(server.wait(), 0);
    EXPECT_EQ(run("ada", {"send", "ben", "hello"}), 3) << output("ada");
}

TEST_F(TerminalClientTest, LinesFromAPipeAreAllWorkedOn)
{
    const auto listener = start("cleo", {"listen", "--count", "1", "--timeout", "20"});
    EXPECT_EQ(run("ada", {}, "/rooms\n/msg cleo from a pipe\n/who"), 0) << output("ada");
    EXPECT_THAT(output("ada"), HasSubstr("#lobby, made by ada"));
    EXPECT_THAT(output("ada"), HasSubstr("ada (online)"));
    EXPECT_EQ(wait_for(listener, 30s), 0);
    EXPECT_THAT(output("cleo"), HasSubstr("ada: from a pipe"));
}

TEST_F(TerminalClientTest, ALineBeingTypedSurvivesWhatComes)
{
    Typist ben(words("ben", {}));
    ASSERT_TRUE(ben.sees("Logged on as ben"));
    ben.type("/msg ada\r");
    ASSERT_TRUE(ben.sees("goes to ada"));
    ben.type("half a sentence in Gr\xC3\xBC\xC3\x9F"
             "en");
    ASSERT_TRUE(ben.sees("sentence in Grüßen"));
    ASSERT_EQ(run("ada",
                  {"send", "ben",
                      "interrupting \xC2\x9B"
                      "31m \xE2\x80\xAE"}),
        0)
        << output("ada");
    ASSERT_TRUE(ben.sees("interrupting 31m "));
    EXPECT_TRUE(ben.sees("half a sentence in Grüßen")) << "drawn again below";
    EXPECT_THAT(ben.all, Not(HasSubstr("\xC2\x9B")));
    EXPECT_THAT(ben.all, Not(HasSubstr("\xE2\x80\xAE")));
    const auto listener = start("ada", {"listen", "--count", "1", "--timeout", "20"});
    await_on_line("ada");
    ben.type("\x01\x04\x04\x04\x04"
             "One\x05.\r");        // from the start, four letters less
    ASSERT_TRUE(ben.sees("ada:")); // its own line
    EXPECT_EQ(wait_for(listener, 30s), 0);
    EXPECT_THAT(output("ada"), HasSubstr("ben: One a sentence in Grüßen."));
    ben.type("\x04");
    EXPECT_EQ(ben.wait(), 0) << ben.all;
}

TEST_F(TerminalClientTest, FilesGoFromOneProgramToTheOther)
{
    const auto file = (folder / "photo.bin").string();
    const auto inbox = (folder / "inbox").string();
    const std::string bytes(3'000'000, '\x9c');
    put_bytes(file, bytes);
    std::filesystem::create_directory(inbox);

    EXPECT_EQ(run("ada", {"send-file", "ben", file}), 1);
    EXPECT_THAT(output("ada"), HasSubstr("The other user is not on line."));

    const auto receiver = start("ben", {"receive-file", "--from", "ada", "--into", inbox, "--once"});
    await_on_line("ben");
    EXPECT_EQ(run("cleo", {"send-file", "ben", file}), 1) << "not from her";
    EXPECT_THAT(output("cleo"), HasSubstr("The other user refused the file."));
    EXPECT_EQ(run("ada", {"send-file", "ben", file}), 0) << output("ada");
    EXPECT_EQ(wait_for(receiver, 20s), 0) << output("ben");
    EXPECT_THAT(output("ben"), HasSubstr(inbox + "/photo.bin"));
    EXPECT_TRUE(bytes_of(inbox + "/photo.bin") == bytes);

    Typist ben(words("ben", {"--into", inbox}));
    ASSERT_TRUE(ben.sees("Logged on as ben"));
    const auto sender = start("ada", {"send-file", "ben", file});
    ASSERT_TRUE(ben.sees("ada offers photo.bin (3.0 MB)"));
    ben.type("/accept\r");
    EXPECT_TRUE(ben.sees("photo (2).bin")) << "nothing is replaced";
    EXPECT_EQ(wait_for(sender, 20s), 0) << output("ada");
    EXPECT_TRUE(bytes_of(inbox + "/photo (2).bin") == bytes);
    ben.type("\x04");

    ASSERT_EQ(server.run({"config", "set", "Policy/AllowFileTransfer", "False"}), 0) << server.output;
    EXPECT_EQ(run("ada", {"send-file", "ben", file}), 1);
    EXPECT_THAT(output("ada"), HasSubstr("The administrator's policy forbids file transfer."));
}
