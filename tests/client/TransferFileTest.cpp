// Names and files that come from somebody else.
#include "client/transfer/FileName.h"
#include "client/transfer/NegotiationText.h"
#include "client/transfer/PartFile.h"
#include "client/transfer/SourceFile.h"
#include "platform/sodium/SodiumCrypto.h"
#include "support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

using namespace qz::client::transfer;
using qz::test::bytes_of;
using qz::test::put_bytes;

namespace {

std::unique_ptr<PartFile> open_part(
    const std::filesystem::path& folder, std::uint64_t size = 10, const char* from = "ann")
{
    auto opened = PartFile::open(folder, {from, "report.pdf", size});
    EXPECT_EQ(opened.index(), 0U);
    return std::get<0>(std::move(opened));
}

} // namespace

TEST(TransferFile, NamesOfOthersDoNoHarm)
{
    const std::pair<const char*, std::string> cases[] = {
        {"report.pdf", "report.pdf"},
        {"Jahresbericht für März.pdf", "Jahresbericht für März.pdf"},
        {"/etc/passwd", "passwd"},
        {"..\\..\\boot.ini", "boot.ini"},
        {"../..", ""},
        {"", ""},
        {" . ", ""},
        {"folder/", ""},
        {".bashrc", "bashrc"},
        {"-rf", "_rf"},
        {"~", "_"},
        {"a\x1b[2Jb\nc\x7f", "a_[2Jb_c_"},
        {"invoice\u202Efdp.exe", "invoice_fdp.exe"},
        {"\u0085x\xff", "_x\uFFFD"},
        {"what? <now>|*.txt", "what_ _now___.txt"},
        {"report.pdf. . ", "report.pdf"},
        {"con", "_con"},
        {"Lpt1.txt", "_Lpt1.txt"},
        {"console", "console"},
    };
    for (const auto& [name, safe] : cases) {
        EXPECT_EQ(safe_file_name(name), safe) << name;
        EXPECT_EQ(safe_file_name(safe), safe) << "again: " << name;
    }
    std::string umlauts;
    for (int i = 0; i < 300; ++i) {
        umlauts += "ü";
    }
    const auto cut = safe_file_name(umlauts + ".tar");
    EXPECT_LE(cut.size(), kMaxNameBytes);
    EXPECT_TRUE(cut.ends_with("ü.tar")) << "no half characters, and the extension stays";
    EXPECT_EQ(numbered_file_name("a.tar", 2), "a (2).tar");
    EXPECT_EQ(numbered_file_name("a", 3), "a (3)");
}

TEST(TransferFile, OnlyWholeNegotiationTextsAreTaken)
{
    qz::platform::SodiumCrypto crypto;
    const std::string id = "AAECAwQFBgcICQoLDA0ODw";
    const auto key = crypto.to_base64url(std::string(32, 'k'));
    const std::string offer = "velto-file/1 offer id=" + id + " key=" + key;
    const auto accepts = [&](const std::string& text) {
        const auto read = read_negotiation(crypto, text);
        EXPECT_TRUE(!read || write_negotiation(crypto, *read) == text) << text;
        return read.has_value();
    };
    const std::string good[] = {offer + " size=0 name=a b - c", offer + " size=9007199254740991 name=a",
        "velto-file/1 accept id=" + id + " key=" + key + " port=65535",
        "velto-file/1 listen id=" + id + " port=1024", "velto-file/1 cancel id=" + id + " reason=2"};
    for (const auto& text : good) {
        EXPECT_TRUE(accepts(text)) << text;
        EXPECT_FALSE(accepts(" " + text)) << text;
        EXPECT_FALSE(accepts(text.substr(0, text.rfind('=') + 1))) << text;
    }
    const std::string bad[] = {"velto-file/2 cancel id=" + id + " reason=1", "velto-file/1 ",
        "velto-file/1 greet id=" + id, offer + " size=9007199254740992 name=a", offer + " size=-1 name=a",
        offer + " size=1x name=a", offer + " name=a size=1", offer + " size=1 name=" + std::string(766, 'a'),
        "velto-file/1 accept id=" + id + " key=" + key + " port=1023",
        "velto-file/1 accept id=" + id + " key=" + key + " port=65536",
        "velto-file/1 accept id=" + id + " key=" + key.substr(1) + " port=2000",
        "velto-file/1 listen id=" + id.substr(1) + " port=2000",
        "velto-file/1 listen id=" + id + " port=2000 ", "velto-file/1 listen id=" + id + " port=2000 more"};
    for (const auto& text : bad) {
        EXPECT_FALSE(accepts(text)) << text;
    }
}

TEST(TransferFile, AReceivedFileGetsItsNameWhenItIsWholeAndReplacesNothing)
{
    const qz::test::TemporaryFolder folder;
    put_bytes(folder / "report.pdf", "mine");
    auto first = open_part(folder.path());
    auto second = open_part(folder.path()); // the same offer once more, at the same time
    EXPECT_FALSE(first->append("first"));
    EXPECT_FALSE(second->append("second"));
    put_bytes(folder / "report (2).pdf", "made meanwhile");
    EXPECT_FALSE(first->commit());
    EXPECT_FALSE(second->commit());
    EXPECT_EQ(bytes_of(folder / "report.pdf"), "mine");
    EXPECT_EQ(bytes_of(folder / "report (2).pdf"), "made meanwhile");
    EXPECT_EQ(first->path(), folder / "report (3).pdf");
    EXPECT_EQ(bytes_of(first->path()), "first");
    EXPECT_EQ(bytes_of(second->path()), "second");
    EXPECT_EQ(folder.file_count(), 4) << "nothing unfinished is left";
    struct stat status { };
    ASSERT_EQ(::stat(first->path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0077U, 0U);
}

TEST(TransferFile, AnUnfinishedFileIsGoneOnWithByTheSameOfferAlone)
{
    const qz::test::TemporaryFolder folder;
    EXPECT_FALSE(open_part(folder.path())->append("half "));
    EXPECT_EQ(open_part(folder.path(), 11)->size(), 0U) << "another size";
    EXPECT_EQ(open_part(folder.path(), 10, "ben")->size(), 0U) << "another sender";
    EXPECT_EQ(folder.file_count(), 2) << "those without a byte are gone";
    std::filesystem::create_hard_link(folder / "report.pdf.part", folder / "laid out by somebody");
    EXPECT_EQ(open_part(folder.path())->size(), 0U) << "the bytes would go there, too";
    std::filesystem::remove(folder / "laid out by somebody");
    auto again = open_part(folder.path());
    EXPECT_EQ(again->size(), 5U);
    EXPECT_FALSE(again->append("done."));
    EXPECT_FALSE(again->commit());
    EXPECT_EQ(bytes_of(folder / "report.pdf"), "half done.");
    EXPECT_EQ(folder.file_count(), 1);
}

TEST(TransferFile, WhatCannotWorkIsSaidBefore)
{
    const qz::test::TemporaryFolder folder;
    const auto outcome_in = [](const std::filesystem::path& path, std::uint64_t size) {
        const auto opened = PartFile::open(path, {"ann", "report.pdf", size});
        return opened.index() == 0 ? Outcome::Done : std::get<1>(opened).outcome;
    };
    EXPECT_EQ(outcome_in(folder / "missing", 1), Outcome::CannotWrite);
    EXPECT_EQ(outcome_in(folder.path(), kMaxFileSize), Outcome::DiskFull);
    EXPECT_EQ(folder.file_count(), 0);
    EXPECT_EQ(SourceFile::open(folder.path()).index(), 1U) << "a folder is no file";
    EXPECT_EQ(SourceFile::open(folder / "missing").index(), 1U);
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(SourceFile::open(folder / "pipe").index(), 1U)
        << "nor is a pipe, and nobody waits for its other end";
}
