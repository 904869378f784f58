#include "store/RecordRows.h"

namespace qz::store {

void read(Row& row, UserRecord& user)
{
    user.IDUserName = row.Fields("IDUserName").integer();
    user.UserName = row.Fields("UserName").text();
    user.Password = row.Fields("Password").text();
    user.IMClientInUse = row.Fields("IMClientInUse").text();
    user.FirstName = row.Fields("FirstName").text();
    user.LastName = row.Fields("LastName").text();
    user.Email = row.Fields("Email").text();
    user.AccountActive = row.Fields("AccountActive").boolean();
    user.CreationTime = row.Fields("CreationTime").date();
    user.Phone = row.Fields("Phone").text();
    user.Fax = row.Fields("Fax").text();
    user.HomePage = row.Fields("HomePage").text();
    user.Country = row.Fields("Country").text();
}

void read(Row& row, BuddyRecord& buddy)
{
    buddy.IDBuddies = row.Fields("IDBuddies").integer();
    buddy.Buddy = row.Fields("Buddy").text();
    buddy.key = row.Fields("key").text();
    buddy.Comment = row.Fields("Comment").text();
    buddy.Group = row.Fields("Group").text();
    buddy.CreationTime = row.Fields("CreationTime").date();
    buddy.UserName = row.Fields("UserName").text();
}

void read(Row& row, RoomRecord& room)
{
    room.IDRoom = row.Fields("IDRoom").integer();
    room.RoomName = row.Fields("RoomName").text();
    room.CreationTime = row.Fields("CreationTime").date();
    room.key = row.Fields("key").text();
    room.UserName_Owner = row.Fields("UserName_Owner").text();
}

} // namespace qz::store
