#include "config/SettingsFaults.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace qz::config;
using testing::AllOf;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

/// Each fault as "error 3 [Safeguards] Key: text (Meant)".
std::vector<std::string> faults(const std::string& file)
{
    std::vector<std::string> all;
    const IniDocument document(file);
    for (const auto& fault : faults_in(document)) {
        std::string text = fault.weight == SettingsFault::Weight::Error ? "error " : "warning ";
        text += std::to_string(fault.line) + " [" + fault.section + "] " + fault.key + ": " + fault.text;
        for (const auto* row : fault.meant) {
            text += " (" + std::string(row->section) + "/" + std::string(row->key) + ")";
        }
        all.push_back(text);
    }
    return all;
}

} // namespace

TEST(SettingsFaults, NameTheLineTheMistakeAndTheSettingThatIsMeant)
{
    const struct {
        const char* file;
        std::vector<const char*> parts; // of the only fault
    } cases[] = {
        {"[Safeguards]\n; c\n\nVerifySender=\n",
            {"error 4 [Safeguards] VerifySender: has no value; write True", "(Safeguards/VerifySender)"}},
        {"[Safeguards]\nVerifySender=\"\"\n", {"error 2", "has no value"}},
        {"[Safeguards]\nQueuedPerSender = \n", {"0 switches it off", "from 0 to 1000000"}},
        {"[Transport]\nListenAddress=\n", {"error", "a missing one means: all"}},
        {"[Transport]\nTLSKey=\n", {"error", "has no value"}},
        {"[Storage]\nDurability=\n", {"error", "process power"}},
        {"[General SetUp]\nListeningPort=\n", {"error", "from 1 to 65535", "means: 2001"}},
        {"[Policy]\nAllowFileTransfer=\n", {"error", "written exactly so"}},

        {"[Safeguards]\nVerifySender: True\n",
            {"error 2 [Safeguards] : the line has no \"=\"", "write VerifySender=VALUE",
                "(Safeguards/VerifySender)"}},
        {"[safeguards]\r\nverifysender True\r\n", {"no \"=\"", "(Safeguards/VerifySender)"}},
        {"[Safeguards]\nVerifySendr True\n", {"error", "(Safeguards/VerifySender)"}},
        {"[Safeguards]\nbe safe\n", {"error", "neither an entry"}},
        {"[General SetUp]\nClear log older than 90\n", {"error", "(General SetUp/Clear log older than)"}},
        {"[General SetUp]\nbe kind\n", {"warning", "neither an entry"}},
        {"[Policy]\nVerifySender: True\n", {"error", "(Safeguards/VerifySender)"}},
        {"VerifySender\n", {"error 1 [] ", "(Safeguards/VerifySender)"}},
        {"[Safeguards] VerifySender=True\n", {"error 1", "line of its own", "(Safeguards/VerifySender)"}},

        {"[Safeguards]\nVerifySendr=True\n",
            {"error 2 [Safeguards] VerifySendr: no such setting; VerifySender is meant?",
                "(Safeguards/VerifySender)"}},
        {"[Safeguards]\nVerfiySender=True\n", {"VerifySender is meant?"}},
        {"[Safeguards]\nQueuedPerPear=1\n", {"QueuedPerPair is meant?"}},
        {"[General SetUp]\nListeningPrt=2\n", {"error", "ListeningPort is meant?"}},
        {"[Safeguards]\nFence=True\n", {"error", "look for a misspelling"}},
        {"[General SetUp]\nFence=True\n", {"warning", "look for a misspelling"}},
        {"[Safeguards]\nMaxConnections=5\n", {"error", "its section [Transport]"}},
        {"[General SetUp]\nVerifySender=True\n", {"error", "its section [Safeguards]"}},
        {"[Fence]\nVerifySender=True\n", {"error", "its section [Safeguards]"}},
        {"ListeningPort=2002\n", {"error 1", "its section [General SetUp]"}},
        {"[Safeguards]\n#VerifySender=True\n",
            {"error", "comments begin with \";\"", "(Safeguards/VerifySender)"}},
        {"[Safeguards]\n# VerifySender True\n", {"error", "(Safeguards/VerifySender)"}},
        {"[Safeguards]\n# what a=b means\n", {"warning"}},
        {"[Other]\nProvider=x\n", {"warning", "look for a misspelling"}},

        {"[Safeguard]\nVerifySender=True\nx=1\n",
            {"error 1 [Safeguard]", "[Safeguards] is meant?", "(Safeguards/VerifySender)"}},
        {"[Safeguards]\n[Polcy]\n", {"error 2", "[Policy] is meant?"}},
        {"[Policy]\n[Safeguards\n",
            {"error 2 [Policy] : the line is no section header", "write [Safeguards]"}},
        {"[Policy]\nSafegards]\n", {"error", "write [Safeguards]"}},
        {"[Policy]\n[]\n", {"error", "write [NAME]"}},
        {"[UsersStatus]\n[Safeguards\n", {"error 2", "write [Safeguards]"}},

        {"[Safeguards]\nVerifySender=True\n\nverifysender=False\n",
            {"error 4", "in line 2 and in line 4, with different values", "(Safeguards/VerifySender)"}},
        {"[Safeguards]\nVerifySender=True\nVerifySender=True\n",
            {"warning 3", "in line 2 and in line 3; remove one"}},
        {"[Safeguards]\nVerifySender=True\n[safeguards]\nVerifySender=False\n",
            {"error 4", "different values"}},
        {"[Safeguards]\n[Policy]\n[Safeguards]\nVerifySender=True\n",
            {"error 4", "only the first counts", "(Safeguards/VerifySender)"}},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.file);
        const auto found = faults(each.file);
        ASSERT_EQ(found.size(), 1U) << testing::PrintToString(found);
        for (const auto* part : each.parts) {
            EXPECT_THAT(found.front(), HasSubstr(part));
        }
    }
}

TEST(SettingsFaults, FindNoneInWhatIsMeantAsItStands)
{
    std::string fresh;
    for (const auto& row : setting_table()) {
        if (!row.init.empty()) {
            IniDocument document(fresh);
            document.write(row.section, row.key, row.init);
            fresh = document.bytes();
        }
    }
    for (const std::string& file :
        {fresh, std::string(), std::string("; a\n[Safeguards] ; on\n\n;x=1\nverifysender = on\n"),
            std::string(
                "[UsersStatus]\nVerifySender=away\nAllowAOLIM=\nanna\n[OnLineInfo]\nx=1\n[Test]\nown=1\n"
                "[LastDateSentEmail_NewVersion]\nanna=1\n[DailyJobs]\n"),
            std::string("[General SetUp]\nAdminScreenName=\nClient Last Version=\n[DB SetUp]\ndbPassword=\n"),
            std::string("[Notes]\nbuy mail\n# tea\n")}) {
        EXPECT_THAT(faults(file), IsEmpty()) << file;
    }
}

TEST(SettingsFaults, CountLinesAlsoAfterAChange)
{
    IniDocument document(
        "; top\n\n[Policy]\nAllowAOLIM=True\n\n\n; about\n[Safeguards]\nVerifySender=True\nx=1");
    document.remove("Safeguards", "VerifySender");
    document.write("Transport", "MaxConnections", "");
    std::vector<std::size_t> lines;
    for (const auto& fault : faults_in(IniDocument(document.bytes()))) {
        lines.push_back(fault.line);
    }
    std::vector<std::size_t> changed;
    for (const auto& fault : faults_in(document)) {
        changed.push_back(fault.line);
    }
    EXPECT_EQ(changed, lines);
    EXPECT_THAT(lines, testing::ElementsAre(9U, 12U));
}
