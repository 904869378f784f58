// The files that a user sends and receives in a chat.
#pragma once

#include "FileTexts.h"
#include "Line.h"
#include "client/transfer/Transfers.h"

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>

namespace velto {

class Files final : private qz::client::transfer::TransferEvents {
public:
    using Show = std::function<void(Line::Kind kind, std::string text)>;

    /// The references outlive this object.
    /// @param folder  for what is accepted without naming another.
    Files(qz::client::ClientCore& core, qz::helpers::Crypto& crypto, const qz::Clock& clock,
        qz::client::transfer::PortRange ports, std::filesystem::path folder, Show show);

    qz::client::transfer::Transfers& transfers() { return transfers_; }
    const qz::client::transfer::Transfers& transfers() const { return transfers_; }

    // Commands. A missing number names the only transfer that it can be, else the newest.
    void send(const std::string& to, const std::string& file);
    void accept(std::optional<int> number, const std::string& folder);
    void reject(std::optional<int> number);
    void cancel(std::optional<int> number);
    void list();

    /// What moves at present, to stand before the line that is typed; empty when nothing does.
    std::string progress();
    bool is_moving() const;
    /// Ends all, and tells the other sides.
    void cancel_all();

private:
    void offered(const qz::client::transfer::View& transfer) override;
    void started(const qz::client::transfer::View& transfer) override;
    void ended(
        const qz::client::transfer::View& transfer, const qz::client::transfer::Ending& ending) override;
    void not_understood(const std::string& from) override;
    std::optional<int> choose(std::optional<int> number, bool offers) const;
    void trouble(const std::string& text) { show_(Line::Kind::Trouble, text); }
    void news(const std::string& text) { show_(Line::Kind::News, text); }

    const qz::Clock& clock_;
    std::filesystem::path folder_;
    Show show_;
    std::map<int, Progress> progress_; // of those that move
    qz::client::transfer::Transfers transfers_;
};

/// A path as it was typed: ~ is the user's home.
std::filesystem::path typed_path(const std::string& text);

} // namespace velto
