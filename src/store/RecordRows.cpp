#include "store/RecordRows.h"

namespace qz::store {

void read(const Row& row, UserRecord& user)
{
    user.IDUserName = row["IDUserName"].integer();
    user.UserName = row["UserName"].text();
    user.Password = row["Password"].text();
    user.IMClientInUse = row["IMClientInUse"].text();
    user.FirstName = row["FirstName"].text();
    user.LastName = row["LastName"].text();
    user.Email = row["Email"].text();
    user.AccountActive = row["AccountActive"].boolean();
    user.CreationTime = row["CreationTime"].date();
    user.Phone = row["Phone"].text();
    user.Fax = row["Fax"].text();
    user.HomePage = row["HomePage"].text();
    user.Country = row["Country"].text();
}

void read(const Row& row, BuddyRecord& buddy)
{
    buddy.IDBuddies = row["IDBuddies"].integer();
    buddy.Buddy = row["Buddy"].text();
    buddy.key = row["key"].text();
    buddy.Comment = row["Comment"].text();
    buddy.Group = row["Group"].text();
    buddy.CreationTime = row["CreationTime"].date();
    buddy.UserName = row["UserName"].text();
}

void read(const Row& row, RoomRecord& room)
{
    room.IDRoom = row["IDRoom"].integer();
    room.RoomName = row["RoomName"].text();
    room.CreationTime = row["CreationTime"].date();
    room.key = row["key"].text();
    room.UserName_Owner = row["UserName_Owner"].text();
}

} // namespace qz::store
