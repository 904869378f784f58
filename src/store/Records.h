// The records of the in-memory directory. An absent value is the empty text.
#pragma once

#include "base/DateTime.h"

#include <cstdint>
#include <string>

namespace qz::store {

struct UserRecord {
    std::int32_t IDUserName = 0;
    std::string UserName;
    std::string Password; // as stored, possibly encoded
    std::string IMClientInUse;
    std::string FirstName;
    std::string LastName;
    std::string Email;
    bool AccountActive = false;
    DateTime CreationTime;
    std::string Phone;
    std::string Fax;
    std::string HomePage;
    std::string Country;
    bool operator==(const UserRecord&) const = default;
};

struct BuddyRecord {
    std::int32_t IDBuddies = 0;
    std::string Buddy;
    std::string key;
    std::string Comment;
    std::string Group;
    DateTime CreationTime;
    std::string UserName; // owner of the entry
    bool operator==(const BuddyRecord&) const = default;
};

struct RoomRecord {
    std::int32_t IDRoom = 0;
    std::string RoomName;
    DateTime CreationTime;
    std::string key;
    std::string UserName_Owner;
    bool operator==(const RoomRecord&) const = default;
};

struct RoomMember {
    std::string UserName;
    std::string RoomName;
    DateTime JoinTime;
    bool InUse = false;
};

} // namespace qz::store
