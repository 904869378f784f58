// Builds every object of one engine in dependency order, starts and stops it, and carries what the rooms tell
// upwards to where it belongs. The only object that knows all others.
#pragma once

#include "config/Deployment.h"
#include "config/IniFile.h"
#include "config/KeyFile.h"
#include "config/Settings.h"
#include "config/SettingsKeeper.h"
#include "helpers/MessageParser.h"
#include "helpers/SettingsCipher.h"
#include "net/Admission.h"
#include "net/ChunkStore.h"
#include "net/ConnectionTable.h"
#include "net/NetEvents.h"
#include "net/Policing.h"
#include "net/RateLimit.h"
#include "net/Receiver.h"
#include "net/Registration.h"
#include "net/RevokedSessions.h"
#include "net/Sender.h"
#include "net/SocketCloser.h"
#include "net/SocketNumbers.h"
#include "net/SocketPool.h"
#include "net/UnitReader.h"
#include "notify/InactivityJob.h"
#include "notify/LogOnAlarm.h"
#include "notify/Mail.h"
#include "notify/NoticeMails.h"
#include "notify/OncePerDay.h"
#include "notify/VersionMails.h"
#include "notify/VersionNotices.h"
#include "online/OnLineInfoWriter.h"
#include "platform/Machine.h"
#include "protocol/Announcements.h"
#include "protocol/AutoReplyRequests.h"
#include "protocol/BuddyRequests.h"
#include "protocol/Dispatcher.h"
#include "protocol/Handlers.h"
#include "protocol/KnownPlaces.h"
#include "protocol/LogOn.h"
#include "protocol/MessageRequests.h"
#include "protocol/Policy.h"
#include "protocol/Presence.h"
#include "protocol/PresenceLists.h"
#include "protocol/PresenceRequests.h"
#include "protocol/RoomRequests.h"
#include "protocol/TransferRequests.h"
#include "protocol/Welcome.h"
#include "queue/MessageQueue.h"
#include "server/ClockGuard.h"
#include "server/FigureSource.h"
#include "server/Housekeeping.h"
#include "server/LineQuota.h"
#include "server/Main.h"
#include "server/MainEvents.h"
#include "server/Nesting.h"
#include "server/ServerCommands.h"
#include "server/ServerJournal.h"
#include "store/Accounts.h"
#include "store/ActivityLog.h"
#include "store/AutoReplies.h"
#include "store/Buddies.h"
#include "store/Counters.h"
#include "store/Database.h"
#include "store/Directory.h"
#include "store/LastActivity.h"
#include "store/LastLogOns.h"
#include "store/RoomMembers.h"
#include "store/Rooms.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace qz::server {

class Engine final : private CommandActions,
                     private TickJobs,
                     private net::ConnectionEvents,
                     private protocol::PresenceListener,
                     private net::TrafficEvents,
                     private platform::TimerEvents,
                     private platform::ServerSocketEvents,
                     private platform::ClientSocketEvents,
                     private store::TurnOutcome {
public:
    /// Class_Initialize: settings, database connection, tables.
    Engine(platform::Machine& machine, MainEvents& events);
    /// Class_Terminate: the closing line, and the database is closed. Errors are ignored.
    ~Engine();
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;

    void Server_Start();
    void Server_End();
    void set_ListeningPort(std::uint16_t port);
    std::string get_ServerIP();
    /// An address on which the listening socket is reached.
    std::string listening_address();
    std::string server_time() const { return machine_.clock().now().text(); }

private:
    platform::Machine& machine_;
    MainEvents& events_;

public: // the rooms, for the members of Main that forward to them
    ServerJournal journal;
    helpers::MessageParser parser;
    config::IniFile ini;
    config::KeyFile key;
    helpers::SettingsCipher cipher;
    config::Settings settings;
    config::Deployment deployment;
    LineQuota line_quota;
    config::SettingsKeeper settings_keeper;

    store::Database database;
    store::ActivityLog activity_log;
    store::Counters counters;
    store::Directory directory;
    store::Accounts accounts;
    store::Buddies buddies;
    store::RoomMembers room_members;
    store::Rooms rooms;
    store::AutoReplies auto_replies;
    store::LastActivity last_activity;
    store::LastLogOns last_log_ons;

    net::ConnectionTable connections;
    net::ChunkStore chunks;
    net::Sender sender;
    net::SocketNumbers socket_numbers;
    net::SocketPool pool;
    net::SocketCloser closer;
    net::Admission admission;
    net::RateLimit rate_limit;

    notify::Mail mail;
    notify::NoticeMails notice_mails;
    notify::InactivityRule inactivity_rule;
    notify::InactivityJob inactivity_job;
    notify::VersionMails version_mails;
    notify::VersionNotices version_notices;
    notify::OncePerDay once_per_day;
    notify::LogOnAlarm log_on_alarm;

    queue::MessageQueue message_queue;

    protocol::Presence presence;
    protocol::PresenceLists presence_lists;
    protocol::Policy policy;
    net::Policing policing; // tells presence, so it comes after it
    net::RevokedSessions revoked_sessions;
    net::Registration registration;
    protocol::Welcome welcome;
    protocol::KnownPlaces known_places;
    protocol::LogonThrottle logon_throttle;
    protocol::LogOn log_on;
    protocol::PresenceRequests presence_requests;
    protocol::BuddyRequests buddy_requests;
    protocol::TransferRequests transfer_requests;
    protocol::MessageRequests message_requests;
    protocol::AutoReplyRequests auto_reply_requests;
    protocol::RoomRequests room_requests;
    protocol::Handlers handlers;
    protocol::SenderCheck sender_check;
    protocol::Dispatcher dispatcher;
    net::UnitReader units;
    net::Receiver receiver;
    protocol::Announcements announcements;
    online::OnLineInfoWriter on_line_info;

    ServerCommands commands;
    ClockGuard clock_guard;
    Housekeeping housekeeping;
    FigureSource figures;

    Nesting running; // entered while an event of the components is handled
    ServerStatus status = ServerStatus::Arrested;
    bool accept_incoming_connections = false;
    DateTime start_time;

private:
    // Steps of the start.
    void create_components();
    void begin_start_record();
    void reset_room_members();
    void prepare_data();
    void clear_old_log();
    void load_sockets();
    void open_listening_socket();
    void announce_ready();
    std::string ready_address() const;
    void require_nothing_encoded();
    std::unique_ptr<platform::Connection> create_connection() const;
    platform::ServerSocket& server_socket();

    // What the rooms and components tell upwards.
    void shut_down() override;
    void PropagatePolicy() override;
    void CloseAllConnections() override;
    void Send_RemoteCommand2All(const std::string& message, const std::string& remote_command) override;
    void Send_MessageToAllActive(const std::string& text) override;
    void log_off(const std::string& screen_name) override;
    void run_frequent_jobs() override;
    void CheckConnectionUp() override;
    void refresh_online_info() override;
    void ListAllUsers() override;
    void clean_up_buddies() override;
    void run_inactivity_job() override;
    void check_client_versions() override;
    void send_last_version() override;
    void send_queued_messages() override;
    void presence_changed() override;
    void released(const std::string& user, const std::string& address, std::int16_t socket) override;
    void left(std::int16_t socket) override;
    void close_finished() override;
    void traffic(net::Direction direction) override;
    void new_connection_requested(const std::string& address) override;
    void connection_requested(std::int32_t request) override;
    void data_arrived(std::int16_t socket, const std::string& unit) override;
    void closed(std::int16_t socket) override;
    void timer_ticked() override;
    void turn_ending() override;
    void turn_stored() override;
    void turn_lost() override;
    void close_incomplete();
    std::string stranger_on(std::int16_t socket) const;

    std::optional<config::IniFile::OneLook> look_;            // at the settings, in this turn
    bool clearing_log_ = false;                               // some more with each tick
    bool ready_ = false;                                      // the ready line was logged: it is logged once
    std::unique_ptr<platform::Timer> timer_;                  // QZ_Timer_1
    std::unique_ptr<platform::ServerSocket> server_socket_;   // QZ_WinSock_Server
    std::unique_ptr<platform::ClientSockets> client_sockets_; // QZ_WinSock_Client
};

} // namespace qz::server
