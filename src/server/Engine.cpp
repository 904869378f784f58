#include "server/Engine.h"

#include "base/Guarded.h"
#include "helpers/ProtocolKeywords.h"
#include "helpers/ServerCommandNames.h"
#include "server/HomeFiles.h"
#include "store/Overrides.h"

#include <algorithm>
#include <filesystem>

namespace qz::server {

using helpers::protocol_keywords;

namespace {

constexpr const char* kClosingText = "VELTOServer is shutting down, please reconnect in a few of minutes";

std::string with_port(const std::string& address, std::uint16_t port)
{
    const bool is_ipv6 = address.find(':') != std::string::npos;
    return (is_ipv6 ? "[" + address + "]" : address) + ":" + std::to_string(port);
}

} // namespace

Engine::Engine(platform::Machine& machine, MainEvents& events)
    : machine_(machine), events_(events), journal(events), parser(machine.crypto()),
      ini(machine.home() / kSettingsFile, machine.clock()),
      key(machine.home() / kKeyFile, machine.crypto(), [this] { require_nothing_encoded(); }),
      cipher(machine.crypto(), key), settings(ini, cipher, journal), deployment(ini),
      line_quota(deployment, machine.clock()), settings_keeper(ini, deployment, machine.clock(), journal),
      database([this] { return create_connection(); }, settings, deployment, journal),
      activity_log(database, settings, parser, journal), counters(database, journal),
      directory(database, counters, journal), accounts(database, directory, parser, cipher, journal),
      buddies(database, directory, accounts, parser, journal),
      rooms(database, directory, room_members, parser, machine.clock(), journal),
      auto_replies(database, journal), last_activity(database, journal),
      last_log_ons(database, deployment, machine.clock(), journal), chunks(deployment),
      sender(parser, machine.loop(), *this, journal), socket_numbers(deployment, machine.clock()),
      pool(connections, socket_numbers, sender, parser, *this, journal),
      closer(connections, pool, chunks, machine.clock(), *this, journal),
      admission(connections, deployment, machine.clock(), journal),
      rate_limit(deployment, machine.clock(), journal),
      mail([this](platform::MailerEvents& listener) { return machine_.create_mailer(listener); }, accounts,
          settings, deployment, journal),
      notice_mails(mail, accounts, settings, machine.clock()),
      inactivity_rule(last_activity, last_log_ons, settings, deployment, machine.clock()),
      inactivity_job({inactivity_rule, database, activity_log}, settings, accounts, notice_mails,
          machine.clock(), journal),
      version_mails(
          {database, accounts, inactivity_rule}, ini, settings, notice_mails, machine.clock(), journal),
      version_notices(settings, connections, sender, journal), once_per_day(deployment, ini, machine.clock()),
      log_on_alarm(notice_mails, accounts, settings, deployment, machine.clock()),
      message_queue(database, queue::Delivery(connections, pool, sender, journal), auto_replies,
          {settings, deployment}, parser, machine.clock(), journal),
      presence(connections, directory, sender, journal, *this, journal),
      presence_lists(connections, directory, room_members, presence, sender, journal),
      policy(connections, sender, settings, journal),
      policing(connections, sender, closer, accounts, presence, journal),
      revoked_sessions(connections, {directory, accounts, cipher}, {sender, closer}, deployment, journal),
      registration(connections, policing, revoked_sessions, pool, machine.clock()),
      welcome(presence, presence_lists, policy, version_notices, directory, journal),
      known_places(machine.home() / kKnownPlacesFile, journal),
      logon_throttle(known_places, deployment, machine.clock(), journal),
      log_on({registration, welcome, log_on_alarm, presence, logon_throttle, last_log_ons, message_queue},
          accounts, cipher, parser, sender, journal),
      presence_requests({presence, presence_lists, accounts, version_notices, settings, deployment},
          connections, parser, sender, journal),
      buddy_requests({buddies, directory, accounts}, connections, parser, sender, journal),
      transfer_requests(connections, parser, sender, journal),
      message_requests({accounts, rooms, auto_replies, presence, connections}, {message_queue, sender, pool},
          {settings, deployment}, parser, machine.clock(), journal),
      auto_reply_requests(auto_replies, parser, sender, journal),
      room_requests({rooms, directory, deployment}, connections, parser, sender, journal),
      handlers({log_on, presence_requests, buddy_requests, transfer_requests, message_requests,
                   auto_reply_requests, room_requests},
          sender),
      sender_check(connections, deployment),
      dispatcher(handlers, parser, pool, sender, {sender_check, settings}, journal),
      units(chunks, dispatcher, deployment, machine.clock(), journal),
      receiver(connections, units, sender, closer, parser, {dispatcher, *this}, journal),
      announcements(connections, sender, journal),
      on_line_info(ini, connections, directory, presence, machine.clock(), journal),
      commands(database, parser, *this, journal), clock_guard(deployment, machine.clock(), journal),
      housekeeping(settings, *this, journal),
      figures(connections, pool, message_queue, database, counters, ini)
{
    journal.attach(activity_log, line_quota);
    database.tell(*this);
    machine_.loop().add_listener(database, platform::TurnPhase::Commit);
    machine_.loop().add_listener(on_line_info, platform::TurnPhase::Commit);
    database.BuildConnectionString();
    connections.reset(counters.get_BuddiesCount());
    reset_room_members();
}

Engine::~Engine()
{
    mail.finish(); // while its failures can still be logged
    journal.tell_unwritten(line_quota.end_all());
    settings_keeper.finish();
    attempt([&] {
        journal.Log("Service is now closing " + with_port(listening_address(), settings.get_ListeningPort()),
            protocol_keywords().HostName, ready_address());
    });
    database.ClosedbConnection();
    machine_.loop().remove_listener(on_line_info);
    machine_.loop().remove_listener(database);
}

/// What is encoded already needs the key that it was encoded with: beside a new one it would be lost.
/// Accounts of the embedded database that cannot be read count as encoded; those of a server may not have
/// tables yet.
void Engine::require_nothing_encoded()
{
    const auto entries = ini.entries();
    const bool embedded = deployment.provider() == platform::Provider::Embedded;
    bool encoded = std::any_of(entries.begin(), entries.end(), [](const config::IniEntry& entry) {
        return entry.value.starts_with(helpers::SettingsCipher::Marker);
    });
    if (database.is_open()) {
        const bool read = attempt([&] { encoded = encoded || database.an_encoded_password(); });
        encoded = encoded || (embedded && !read);
    } else if (embedded) {
        std::error_code ignored;
        encoded = encoded || std::filesystem::exists(machine_.home() / kDatabaseFile, ignored);
    }
    if (encoded) {
        throw runtime_error(RuntimeError::FileAccess,
            key.path().string()
                + ": the key file is missing, and there are settings or passwords that were encoded with it; "
                  "put it back from a backup");
    }
}

void Engine::Server_Start()
{
    if (status != ServerStatus::Arrested) {
        journal.log_own("VELTO Server already started");
        return;
    }
    try {
        create_components();
        database.BuildConnectionString();
        housekeeping.set_ServerSpeed(settings.get_ServerSpeedRead());
        status = ServerStatus::Started;
        begin_start_record();
        prepare_data();
        load_sockets();
        chunks.clear();
        units.clear();
        journal.log_own("Update frequency " + std::to_string(housekeeping.ticks_per_second()) + " Hz");
        open_listening_socket();
        announce_ready();
        housekeeping.run();
        timer_->set_enabled(true);
    } catch (...) { // not guarded(): the failure is logged as well as reported
        const auto error = current_error();
        journal.ReportError("Server_Start", error, no_address);
        journal.log_own("Error during Server_Start: " + error.description());
    }
}

void Engine::create_components()
{
    timer_ = machine_.create_timer(*this);
    server_socket_ = machine_.create_server_socket(*this);
    client_sockets_ = machine_.create_client_sockets(*this);
    housekeeping.use(timer_.get());
    sender.use(client_sockets_.get());
    pool.use(client_sockets_.get());
    pool.set_own_address(deployment.local_address());
    closer.use(client_sockets_.get());
    rate_limit.use(client_sockets_.get());
    admission.clear();
}

void Engine::begin_start_record()
{
    start_time = machine_.clock().now();
    if (!ready_ && clock_guard.is_on()) {
        clock_guard.begin(activity_log.time_of_newest_earlier_row());
    }
    connections.reset(counters.get_BuddiesCount());
    reset_room_members();
    message_queue.QueueMessage_ClearQueue();
    message_queue.load();
    const auto logs = machine_.home() / kLogsFolder;
    attempt([&] { std::filesystem::create_directory(logs); }); // it may be there already
}

/// As many slots as there are accounts, and one; a deployment may ask for more.
void Engine::reset_room_members()
{
    room_members.reset((std::max)(counters.get_BuddiesCount(), deployment.room_slots() - 1));
}

/// Commands from before the start are discarded, plain passwords encoded, and the tables copied into memory.
void Engine::prepare_data()
{
    clear_old_log();
    commands.delete_ServerCommand(0);
    accounts.EncryptDBPasswords();
    accept_incoming_connections = true;
    directory.ListAllUsers();
    directory.SetMyBuddies();
    directory.SetRooms();
    directory.SetUsers();
}

/// With the daily jobs the log is cleared by and by, on the ticks.
void Engine::clear_old_log()
{
    clearing_log_ = deployment.daily_jobs_once_per_day();
    if (clearing_log_) {
        return;
    }
    if (clock_guard.holds_daily_jobs()) {
        journal.log_own("The activity log is not cleared at this start: the clock is in doubt");
        return;
    }
    activity_log.ClearOldLog();
}

/// The pool grows only to 757 by its own rule; a deployment that wants more has the sockets made at the
/// start.
void Engine::load_sockets()
{
    constexpr std::int16_t initial = 100;
    pool.LoadSockets(initial, false);
    if (const auto wanted = deployment.max_connections().value_or(initial); wanted > initial) {
        pool.LoadSockets(static_cast<std::int16_t>(wanted - initial), false);
    }
}

void Engine::open_listening_socket()
{
    server_socket_->close();
    server_socket_->set_local_address(deployment.listen_address());
    server_socket_->set_local_port(settings.get_ListeningPort());
    server_socket_->listen();
}

void Engine::announce_ready()
{
    status = ServerStatus::Started;
    if (!ready_) {
        journal.Log("Service is now ready on " + with_port(listening_address(), settings.get_ListeningPort()),
            protocol_keywords().HostName, ready_address());
    }
    if (!ready_) {
        events_.ServerStart();
    }
    ready_ = true;
    machine_.loop().yield_to_pending_events();
}

std::string Engine::ready_address() const
{
    return protocol_keywords().HostAddress + " by " + start_time.text();
}

void Engine::Server_End()
{
    guarded(journal, "Server_End", no_address, [&] {
        if (status != ServerStatus::Started) {
            events_.ShutDown();
            return;
        }
        announcements.Send_MessageToAllActive(kClosingText);
        commands.set_ServerCommand(helpers::server_command_names().ShutDownCommand, {});
    });
}

void Engine::shut_down()
{
    announcements.Send_MessageToAllActive(kClosingText);
    journal.log_own("VELTOServer is shutting down because of shutdown command...");
    CloseAllConnections();
    journal.log_own("VELTOServer now is closing");
    events_.ShutDown();
}

void Engine::PropagatePolicy()
{
    policy.PropagatePolicy();
}

void Engine::CloseAllConnections()
{
    policing.CloseAllConnections();
}

void Engine::Send_RemoteCommand2All(const std::string& message, const std::string& remote_command)
{
    announcements.Send_RemoteCommand2All(message, remote_command);
}

void Engine::Send_MessageToAllActive(const std::string& text)
{
    announcements.Send_MessageToAllActive(text);
}

void Engine::log_off(const std::string& screen_name)
{
    policing.log_off(screen_name);
}

void Engine::set_ListeningPort(std::uint16_t port)
{
    guarded(journal, "set_ListeningPort", no_address, [&] {
        if (port == settings.get_ListeningPort()) {
            journal.log_own("Listening port not updated!");
            return;
        }
        settings.write_ListeningPort(port);
        server_socket().set_local_port(port);
        journal.log_own("Service is now close on " + protocol_keywords().HostAddress + ":"
            + std::to_string(settings.get_ListeningPort()));
    });
}

std::string Engine::get_ServerIP()
{
    return guarded(journal, "get_ServerIP", no_address, std::string{}, [&] {
        auto stated = deployment.local_address();
        return stated.empty() ? server_socket().local_address() : stated;
    });
}

std::string Engine::listening_address()
{
    auto address = deployment.listen_address();
    return address.empty() || address == "0.0.0.0" || address == "::" ? get_ServerIP() : address;
}

platform::ServerSocket& Engine::server_socket()
{
    if (!server_socket_) {
        server_socket_ = machine_.create_server_socket(*this);
    }
    return *server_socket_;
}

std::unique_ptr<platform::Connection> Engine::create_connection() const
{
    return machine_.create_connection({deployment.provider(), deployment.durability(),
        machine_.home() / kDatabaseFile, store::all_overrides()});
}

void Engine::run_frequent_jobs()
{
    journal.tell_unwritten(line_quota.end_minutes());
    settings_keeper.look();
    policing.UserIsOnlineHowManyTimes();
    revoked_sessions.end_revoked();
    while (const auto socket = admission.next_overdue()) {
        const Journal::Cause cause(journal, stranger_on(*socket));
        closer.SocketClosing(*socket);
    }
    rate_limit.go_on();
    commands.CheckServerCommand();
    chunks.sweep(machine_.clock().now());
    close_incomplete();
    if (!clock_guard.holds_expiry()) {
        message_queue.QueueMessage_PurgeExpired();
    }
    message_queue.QueueMessage_MoveFromQueue(0);
    message_queue.read_numbers();
    clearing_log_ = clearing_log_ && (clock_guard.holds_daily_jobs() || activity_log.clear_some());
    message_queue.shrink();
    events_.TimerActivity();
}

void Engine::CheckConnectionUp()
{
    closer.CheckConnectionUp();
}

void Engine::refresh_online_info()
{
    on_line_info.WriteOnLineInfo();
    journal.ReportOnLineUsers(connections.count_on_line());
}

void Engine::send_queued_messages()
{
    message_queue.QueueMessage_Send();
    message_queue.QueueMessage_Send_Confirmed_and_NotExpired();
}

void Engine::ListAllUsers()
{
    directory.ListAllUsers();
}

void Engine::clean_up_buddies()
{
    journal.log_own("Removing buddies duplicated...");
    buddies.RemoveDuplicatedBuddies();
    directory.SetMyBuddies();
}

/// Also starts the daily clearing of the log, which goes on with the ticks.
void Engine::run_inactivity_job()
{
    if (deployment.daily_jobs_once_per_day() && !clock_guard.holds_daily_jobs()
        && once_per_day.may_run("ClearLog")) {
        clearing_log_ = true;
    }
    if (!clock_guard.holds_inactivity() && once_per_day.may_run("Inactivity")) {
        inactivity_job.run();
    }
}

void Engine::check_client_versions()
{
    if (!clock_guard.holds_daily_jobs() && once_per_day.may_run("ClientVersions")) {
        version_mails.CheckOldVersions();
    }
}

void Engine::send_last_version()
{
    version_notices.send_to_all();
}

void Engine::presence_changed()
{
    on_line_info.WriteOnLineInfo();
}

void Engine::released(const std::string& user, const std::string& address, std::int16_t socket)
{
    // What went to this connection and is not confirmed goes to the next one in its order. That one may be
    // there already, when two logons of one user have met, so that no logon follows.
    message_queue.recipient_changed(user);
    room_requests.UnscribeFromRooms(user);
    presence.Update_Status(protocol_keywords().StatusOffLine, user, socket, address);
}

void Engine::left(std::int16_t socket)
{
    admission.left(socket);
    rate_limit.left(socket);
    units.left(socket);
}

void Engine::close_finished()
{
    presence.RefreshActiveUsersMenu();
}

void Engine::traffic(net::Direction direction)
{
    events_.SocketActivity(
        direction == net::Direction::Ingoing ? SocketActivity::Ingoing : SocketActivity::Outgoing);
}

void Engine::new_connection_requested(const std::string& address)
{
    events_.NewConnectionRequested(address);
}

void Engine::connection_requested(std::int32_t request)
{
    const Nesting::Scope scope(running);
    const Journal::Cause own(journal, {}); // what is refused is logged together, and always
    const auto address = client_sockets_->request_address(request);
    if (!accept_incoming_connections || !admission.admits(address)) {
        return;
    }
    const Journal::Cause stranger(journal, address);
    const auto socket = pool.connection_requested(request);
    if (pool.is_connected(socket)) { // it may have gone while the offer was being sent
        admission.entered(socket, address);
    }
}

/// The address of a connection on which nobody is logged on; empty for a user's.
std::string Engine::stranger_on(std::int16_t socket) const
{
    return connections.first_on(socket) == nullptr ? client_sockets_->remote_address(socket) : std::string();
}

void Engine::data_arrived(std::int16_t socket, const std::string& unit)
{
    const Nesting::Scope scope(running);
    guarded(journal, "SocketX_Receive", no_address, [&] {
        if (!look_) {
            look_.emplace(ini);
        }
        const Journal::Cause cause(journal, stranger_on(socket));
        pool.touch(socket);
        rate_limit.arrived(socket);
        receiver.DataIncoming(socket, unit);
        close_incomplete();
    });
}

/// A client of whose message a part was dropped must not go on: the answer to its next request would tell it
/// that the message was accepted.
void Engine::close_incomplete()
{
    for (const auto socket : chunks.take_incomplete()) {
        if (deployment.durable_queue()) {
            closer.SocketClosing(socket);
        }
    }
}

void Engine::closed(std::int16_t socket)
{
    const Nesting::Scope scope(running);
    const Journal::Cause cause(journal, stranger_on(socket));
    closer.SocketClosing(socket);
}

void Engine::timer_ticked()
{
    const Nesting::Scope scope(running);
    const Journal::Cause cause(journal, {});
    housekeeping.timer_ticked();
}

void Engine::turn_ending()
{
    message_queue.turn_ending();
}

void Engine::turn_stored()
{
    message_queue.turn_stored();
    look_.reset();
}

/// What was said in the turn must not be heard, and those who asked must not take it for done: their
/// connections break, and they ask again.
void Engine::turn_lost()
{
    message_queue.turn_lost();
    if (client_sockets_ && deployment.durable_queue()) {
        client_sockets_->drop_turn();
    }
    look_.reset();
}

} // namespace qz::server
