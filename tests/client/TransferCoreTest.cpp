// Two sides of a direct connection without sockets and files: what the one says, the other hears in pieces.
#include "client/transfer/Bytes.h"
#include "client/transfer/Receiving.h"
#include "client/transfer/Sending.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>

using namespace qz::client::transfer;
namespace platform = qz::platform;

namespace {

struct MemorySource final : FileSource {
    std::uint64_t size() const override { return offered; }
    bool read(std::uint64_t at, std::span<char> buffer) override
    {
        if (at + buffer.size() > bytes.size()) {
            return false;
        }
        std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(at), buffer.size(), buffer.begin());
        read_bytes += buffer.size();
        return true;
    }
    bool is_unchanged() const override { return !changed; }

    std::string bytes;
    std::uint64_t offered = 0;
    std::uint64_t read_bytes = 0;
    bool changed = false;
};

struct MemorySink final : FileSink {
    std::uint64_t size() const override { return bytes.size(); }
    bool read(std::uint64_t at, std::span<char> buffer) override
    {
        std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(at), buffer.size(), buffer.begin());
        return true;
    }
    std::optional<Outcome> append(std::string_view more) override
    {
        if (bytes.size() + more.size() > room) {
            return Outcome::DiskFull;
        }
        bytes += more;
        return std::nullopt;
    }
    std::optional<Outcome> restart() override
    {
        bytes.clear();
        return std::nullopt;
    }
    std::optional<Outcome> commit() override
    {
        committed = true;
        return std::nullopt;
    }
    void discard() override { bytes.clear(); }

    std::string bytes;
    std::size_t room = std::string::npos;
    bool committed = false;
};

struct Keys {
    Keys()
    {
        const auto first = platform::make_key_pair();
        const auto second = platform::make_key_pair();
        const auto keys_of = [](const auto& shared) {
            return TransferKeys(shared.value(), "some id", 7, "name");
        };
        sender =
            std::make_unique<TransferKeys>(keys_of(platform::agree_on_keys(first, second.open_key, true)));
        receiver =
            std::make_unique<TransferKeys>(keys_of(platform::agree_on_keys(second, first.open_key, false)));
    }
    std::unique_ptr<TransferKeys> sender;
    std::unique_ptr<TransferKeys> receiver;
};

std::string pattern(std::size_t size)
{
    std::string bytes(size, '\0');
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>((i * 2'654'435'761U) >> 11U);
    }
    return bytes;
}

/// One direct connection. The sender connects.
struct Pair {
    Pair(const Keys& keys, MemorySource& source, MemorySink& sink, std::uint32_t attempt = 1)
        : out(Channel::connecting(*keys.sender, true, attempt)),
          in(Channel::listening(*keys.receiver, true, attempt)), sending(source, out),
          receiving(sink, source.size(), in)
    {
    }
    /// Everything that one side has to say reaches the other, until nothing moves or so many bytes have
    /// moved.
    void run(std::size_t piece, std::size_t most = std::string::npos)
    {
        for (bool any = true; any && moved < most;) {
            any = pass(out, in, receiving, receiving_begun, (std::min)(piece, most - moved));
            any = pass(in, out, sending, sending_begun, piece) || any;
            any = work(sending) || any;
            any = work(receiving) || any;
        }
    }
    bool pass(Channel& from, Channel& to, Conversation& hearer, bool& begun, std::size_t piece)
    {
        const std::string bytes(from.output().substr(0, piece));
        from.consume_output(bytes.size());
        moved += bytes.size();
        const auto begin = [&] {
            if (!begun && to.state() == Channel::State::Open) {
                begun = true;
                hearer.begin();
            }
        };
        to.received(bytes, [&](const Record& record) {
            begin();
            hearer.take(record);
            return !hearer.ending();
        });
        begin();
        return !bytes.empty();
    }
    static bool work(Conversation& each)
    {
        const bool any = each.has_work();
        if (any) {
            each.work();
        }
        return any;
    }

    Channel out;
    Channel in;
    Sending sending;
    Receiving receiving;
    bool sending_begun = false;
    bool receiving_begun = false;
    std::size_t moved = 0;
};

MemorySource source_of(std::size_t size)
{
    MemorySource source;
    source.bytes = pattern(size);
    source.offered = size;
    return source;
}

constexpr std::size_t kSome = 1'000'000; // more than a sender reads ahead

std::string number(std::uint64_t value)
{
    std::string bytes;
    append_number(bytes, value);
    return bytes;
}

} // namespace

TEST(TransferCore, MovesFilesOfEverySizeInWhateverPieces)
{
    for (const std::size_t size :
        {std::size_t{0}, std::size_t{1}, Channel::kMaxData, Channel::kMaxData + 1, kSome}) {
        for (const std::size_t piece : {std::size_t{1'000}, std::size_t{70'000}}) {
            Keys keys;
            auto source = source_of(size);
            MemorySink sink;
            Pair pair(keys, source, sink);
            pair.run(piece);
            ASSERT_TRUE(pair.sending.ending() && pair.receiving.ending()) << size;
            EXPECT_EQ(pair.sending.ending()->outcome, Outcome::Done);
            EXPECT_EQ(pair.receiving.ending()->outcome, Outcome::Done);
            EXPECT_TRUE(sink.committed);
            EXPECT_EQ(sink.bytes, source.bytes);
        }
    }
}

TEST(TransferCore, AfterACutItGoesOnFromWhatIsThereIfThatIsTheSame)
{
    for (const bool is_same : {true, false}) {
        Keys keys;
        auto source = source_of(kSome);
        MemorySink sink;
        Pair first(keys, source, sink);
        first.run(1'000, 200'500); // in the middle of a record
        ASSERT_FALSE(first.sending.ending() || first.receiving.ending());
        const auto arrived = sink.bytes.size();
        ASSERT_GT(arrived, 100'000U);
        sink.bytes[70'000] = static_cast<char>(sink.bytes[70'000] ^ (is_same ? 0 : 1));
        Pair second(keys, source, sink, 2);
        second.run(1'000);
        ASSERT_TRUE(second.receiving.ending());
        EXPECT_EQ(second.receiving.ending()->outcome, Outcome::Done);
        EXPECT_EQ(sink.bytes, source.bytes);
        EXPECT_EQ(second.moved < kSome, is_same) << "what is there is not sent again";
    }
}

TEST(TransferCore, EverythingThatGoesWrongIsToldOnBothSides)
{
    struct Case {
        const char* what;
        std::function<void(MemorySource&, MemorySink&)> before;
        std::function<void(Pair&, MemorySource&)> in_the_middle;
        Outcome outcome;
        bool found_by_sender;
    };
    const Case cases[] = {
        {"the disk is full", [](auto&, auto& sink) { sink.room = 150'000; }, {}, Outcome::DiskFull, false},
        {"the file changes", {}, [](auto&, auto& source) { source.changed = true; }, Outcome::FileChanged,
            true},
        {"the file gets shorter", {},
            [](auto&, auto& source) {
                source.bytes.resize(1);
                source.changed = true;
            },
            Outcome::FileChanged, true},
        {"the file cannot be read", [](auto& source, auto&) { source.offered += 1; }, {}, Outcome::CannotRead,
            true},
        {"the sender cancels", {}, [](auto& pair, auto&) { pair.sending.end({Outcome::Cancelled}); },
            Outcome::Cancelled, true},
        {"the receiver cancels", {}, [](auto& pair, auto&) { pair.receiving.end({Outcome::Cancelled}); },
            Outcome::Cancelled, false},
    };
    for (const auto& each : cases) {
        Keys keys;
        auto source = source_of(kSome);
        MemorySink sink;
        if (each.before) {
            each.before(source, sink);
        }
        Pair pair(keys, source, sink);
        pair.run(1'000, 30'000);
        if (each.in_the_middle) {
            each.in_the_middle(pair, source);
        }
        pair.run(1'000);
        ASSERT_TRUE(pair.sending.ending() && pair.receiving.ending()) << each.what;
        EXPECT_EQ(pair.sending.ending()->outcome, each.outcome) << each.what;
        EXPECT_EQ(pair.sending.ending()->at_peer, !each.found_by_sender) << each.what;
        EXPECT_EQ(pair.receiving.ending()->outcome, each.outcome) << each.what;
        EXPECT_EQ(pair.receiving.ending()->at_peer, each.found_by_sender) << each.what;
        EXPECT_FALSE(sink.committed) << each.what;
    }
}

TEST(TransferCore, AReceiverTakesNothingButWhatWasOffered)
{
    using Words = std::vector<std::pair<RecordType, std::string>>;
    struct Case {
        const char* what;
        Words words;
        Outcome outcome;
    };
    const std::string zero = number(0);
    const Case cases[] = {
        {"too many bytes",
            {{RecordType::Start, zero}, {RecordType::Data, "1234567"}, {RecordType::Data, "8"}},
            Outcome::Misbehaved},
        {"too few bytes",
            {{RecordType::Start, zero}, {RecordType::Data, "123456"},
                {RecordType::End, std::string(32, 'x')}},
            Outcome::Misbehaved},
        {"a wrong hash",
            {{RecordType::Start, zero}, {RecordType::Data, "1234567"},
                {RecordType::End, std::string(32, 'x')}},
            Outcome::WrongChecksum},
        {"data without a start", {{RecordType::Data, "1"}}, Outcome::Misbehaved},
        {"a start elsewhere", {{RecordType::Start, number(3)}}, Outcome::Misbehaved},
        {"two starts", {{RecordType::Start, zero}, {RecordType::Start, zero}}, Outcome::Misbehaved},
        {"the receiver's own words", {{RecordType::Stored, ""}}, Outcome::Misbehaved},
        {"an unknown reason", {{RecordType::Cancel, "\xFF"}}, Outcome::Cancelled},
    };
    for (const auto& each : cases) {
        Keys keys;
        auto source = source_of(7);
        MemorySink sink;
        Pair pair(keys, source, sink);
        pair.pass(pair.out, pair.in, pair.receiving, pair.receiving_begun, 1'000); // the greetings
        pair.out.received(pair.in.output(), [](const Record&) { return true; });   // the sender is not asked
        for (const auto& [type, body] : each.words) {
            pair.out.send(type, body);
        }
        pair.pass(pair.out, pair.in, pair.receiving, pair.receiving_begun, 1'000);
        ASSERT_TRUE(pair.receiving.ending()) << each.what;
        EXPECT_EQ(pair.receiving.ending()->outcome, each.outcome) << each.what;
        EXPECT_LE(sink.bytes.size(), 7U) << each.what;
        EXPECT_FALSE(sink.committed) << each.what;
    }
}

TEST(TransferCore, ASenderDoesNotReadBeyondItsFile)
{
    Keys keys;
    auto source = source_of(7);
    auto out = Channel::connecting(*keys.sender, true, 1);
    Sending sending(source, out);
    sending.take({RecordType::Resume, number(8) + std::string(32, 'x')});
    EXPECT_EQ(source.read_bytes, 0U);
    // The channel is not open in this test: nothing but the end counts.
    ASSERT_TRUE(sending.ending());
    EXPECT_EQ(sending.ending()->outcome, Outcome::Misbehaved);
}

TEST(TransferCore, StrangersAreTurnedAwayUnheard)
{
    const Keys keys;
    const Keys others;
    const auto greeting_of = [](const TransferKeys& by, bool sender_connects, std::uint32_t attempt) {
        return std::string(Channel::connecting(by, sender_connects, attempt).output());
    };
    const auto good = greeting_of(*keys.sender, true, 3);
    auto forged = good;
    forged[14] = static_cast<char>(forged[14] ^ 1); // a bit of the token
    auto renumbered = good;
    renumbered[11] = 4;
    struct Case {
        const char* what;
        std::string bytes;
        Channel::State state;
    };
    const Case cases[] = {
        {"the right one", good, Channel::State::Open},
        {"a later one", greeting_of(*keys.sender, true, 9), Channel::State::Open},
        {"one that was used before", greeting_of(*keys.sender, true, 2), Channel::State::Failed},
        {"the number 0", greeting_of(*keys.sender, true, 0), Channel::State::Failed},
        {"another number with the same token", renumbered, Channel::State::Failed},
        {"a forged token", forged, Channel::State::Failed},
        {"one's own token", greeting_of(*keys.receiver, true, 3), Channel::State::Failed},
        {"of the other direction", greeting_of(*keys.sender, false, 3), Channel::State::Failed},
        {"of another transfer", greeting_of(*others.sender, true, 3), Channel::State::Failed},
        {"another version", "VELTOFT2" + good.substr(8), Channel::State::Failed},
        {"a browser", "GET / HTTP/1.1\r\n", Channel::State::Failed},
        {"half a greeting", good.substr(0, good.size() - 1), Channel::State::Greeting},
    };
    for (const auto& each : cases) {
        auto channel = Channel::listening(*keys.receiver, true, 3);
        channel.received(each.bytes, [](const Record&) { return true; });
        EXPECT_EQ(channel.state(), each.state) << each.what;
        EXPECT_EQ(channel.output().empty(), each.state != Channel::State::Open) << each.what;
    }
}

TEST(TransferCore, WhatWasChangedOnTheWayIsNotTaken)
{
    const auto record = [](const std::function<void(std::string&)>& change) {
        const Keys keys;
        auto out = Channel::connecting(*keys.sender, true, 1);
        auto in = Channel::listening(*keys.receiver, true, 1);
        const auto nothing = [](const Record&) {
            return true;
        };
        in.received(out.output(), nothing);
        out.consume_output(out.output().size());
        out.send(RecordType::Data, "first");
        const auto first = out.output().size();
        out.send(RecordType::Data, "second");
        std::string bytes(out.output());
        const std::string swapped = bytes.substr(first) + bytes.substr(0, first);
        change(bytes);
        int taken = 0;
        in.received(bytes == "swap" ? swapped : bytes, [&taken](const Record&) { return ++taken > 0; });
        return std::to_string(taken) + (in.state() == Channel::State::Failed ? " failed" : " open");
    };
    EXPECT_EQ(record([](auto&) {}), "2 open");
    EXPECT_EQ(record([](auto& bytes) { bytes.back() = static_cast<char>(bytes.back() ^ 1); }), "1 failed");
    EXPECT_EQ(record([](auto& bytes) { bytes = "swap"; }), "0 failed");
    EXPECT_EQ(record([](auto& bytes) { bytes[0] = 1; }), "0 failed") << "longer than any record";
    EXPECT_EQ(record([](auto& bytes) { bytes = std::string(4, '\0'); }), "0 failed")
        << "shorter than any record";
    EXPECT_EQ(record([](auto& bytes) { bytes.pop_back(); }), "1 open") << "the rest may come";
}
