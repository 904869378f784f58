// The words and markers of the client protocol, of the settings file and of the server's own log lines.
#pragma once

#include <string>

namespace qz::helpers {

struct ProtocolKeywords {
    // Markers: single control characters, so no escaping is needed and no typed text can hold them.
    const std::string FrameStart = "\x01";
    const std::string FrameEnd = "\x04";
    const std::string FrameNumberMark = "\x11";
    const std::string MessageNumberMark = "\x12";
    const std::string ChunkIndexMark = "\x13";
    const std::string ChunkCountMark = "\x14";
    const std::string EnvelopeStart = "\x02";
    const std::string EnvelopeEnd = "\x03";
    const std::string NumberStart = "\x0E";
    const std::string NumberEnd = "\x0F";
    const std::string BlankSubstitute = "\x1F"; // stands for a blank inside a value
    const std::string RoomPrefix = "#";         // begins a recipient that is a room

    // Commands and replies.
    const std::string TypingNotice = "typing";
    const std::string InstantMessage = "msg";
    const std::string MessageReceipt = "receipt";
    const std::string LogOn = "logon";
    const std::string LastVersionRequest = "lastversion";
    const std::string WhereIsBuddy = "whereisbuddy";
    const std::string ActiveUsers = "activeusers";
    const std::string OnLineBuddies = "onlinebuddies";
    const std::string RoomList = "roomlist";
    const std::string AllBuddies = "allbuddies";
    const std::string FindBuddy = "findbuddy";
    const std::string StatusChange = "status";
    const std::string AddBuddy = "addbuddy";
    const std::string DeleteBuddy = "deletebuddy";
    const std::string ClientVersionReport = "clientversion";
    const std::string AutoReply = "autoreply";
    const std::string BuddyDetails = "buddydetails";
    const std::string BuddyKey = "buddykey";
    const std::string Room = "room";
    const std::string FileTransfer = "filetransfer";
    const std::string ScreenTransfer = "screentransfer";
    const std::string AdminScreenName = "adminscreenname";
    const std::string Echo = "echo";
    const std::string Notice = "notice";
    const std::string SessionOffer = "session";
    const std::string RemoteCommand = "remotecommand";
    const std::string PolicyFileTransfer = "policyfiletransfer";
    const std::string PolicyScreenShot = "policyscreenshot";
    const std::string PolicyAOLIM = "policyaolim";
    const std::string ExpirationTime = "expirationtime";

    // Values.
    const std::string AnswerAccepted = "accepted";
    const std::string AnswerYes = "yes";
    const std::string AnswerNo = "no";
    const std::string StatusOnLine = "online";
    const std::string StatusOffLine = "offline";
    const std::string TrueKeyword = "True";
    const std::string FalseKeyword = "False";

    // The server's own name and address in log lines.
    const std::string HostName = "VELTOServer";
    const std::string HostAddress = "127.0.0.1";
    const std::string ServerLogName = HostName;
    const std::string ServerLogAddress = HostAddress;
};

/// The one set of keywords.
inline const ProtocolKeywords& protocol_keywords()
{
    static const ProtocolKeywords kKeywords;
    return kKeywords;
}

} // namespace qz::helpers
