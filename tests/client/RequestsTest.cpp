#include "client/Requests.h"

#include "client/Conversation.h"

#include <gtest/gtest.h>

using namespace std::string_literals;
using namespace qz::client;

namespace {

std::string composed(const Request& request)
{
    qz::test::CountingCrypto crypto;
    const qz::helpers::MessageParser parser(crypto);
    const auto parameters = compose_parameters(parser, {"42", "ann", "10.0.0.7"}, request);
    return parameters ? request.keyword + " " + *parameters : "none";
}

} // namespace

TEST(Requests, EachHasItsFields)
{
    const auto time = qz::DateTime::parse("2026-03-09 07:05:01").value();
    const std::pair<Request, std::string> cases[] = {
        {requests::message({"bob", " hi, key=x ", true, time}),
            "msg sessionidvalue=42 screennamefrom=ann screennameto=bob receiptrequested=True "
            "expirationend=03/09/2026_07.05.01 msg= hi, key=x "},
        {requests::message({"#My Attic", "Hi"}),
            "msg sessionidvalue=42 screennamefrom=ann screennameto=#my\x1F"
            "attic msg=Hi"},
        {requests::typing("bob"), "typing sessionidvalue=42 screennamefrom=ann screennameto=bob"},
        {requests::receipt(kGreatestMessageId), "receipt sessionidvalue=42 msgid=9007199254740991"},
        {requests::last_version(), "lastversion sessionidvalue=42"},
        {requests::where_is_buddy("bob"), "whereisbuddy sessionidvalue=42 screennametofind=bob"},
        {requests::active_users(), "activeusers sessionidvalue=42"},
        {requests::on_line_buddies(), "onlinebuddies sessionidvalue=42 screenname=ann"},
        {requests::room_list(), "roomlist sessionidvalue=42 screenname=ann"},
        {requests::all_buddies(), "allbuddies sessionidvalue=42"},
        {requests::find_user("van Gogh"), "findbuddy sessionidvalue=42 screennametofind=van Gogh"},
        {requests::set_status("out to lunch"),
            "status sessionidvalue=42 screenname=ann status=out\x1Fto\x1Flunch"},
        {requests::add_buddy("bob", "My Friends"),
            "addbuddy sessionidvalue=42 screenname=ann newbuddy=bob group=My\x1F"
            "Friends"},
        {requests::delete_buddy("bob"), "deletebuddy sessionidvalue=42 screenname=ann screenname2delete=bob"},
        {requests::report_version("1.5.0"),
            "clientversion sessionidvalue=42 screenname=ann clientversion=1.5.0"},
        {requests::check_auto_reply(), "autoreply sessionidvalue=42 screenname=ann action=check"},
        {requests::save_auto_reply(true, "back soon"),
            "autoreply sessionidvalue=42 screenname=ann action=update status=True message=back\x1Fsoon"},
        {requests::buddy_details("bob"),
            "buddydetails sessionidvalue=42 screenname=ann action=get buddy=bob"},
        {requests::update_buddy_details("bob", "g", "a b", "k"),
            "buddydetails sessionidvalue=42 screenname=ann action=update buddy=bob group=g comment=a\x1F"
            "b key=k"},
        {requests::buddy_key("bob"), "buddykey sessionidvalue=42 screenname=ann action=get buddy=bob"},
        {requests::update_buddy_key("bob", "k"),
            "buddykey sessionidvalue=42 screenname=ann action=update buddy=bob key=k"},
        {requests::join_room("My Attic"),
            "room sessionidvalue=42 screenname=ann action=join roomname=my\x1F"
            "attic"},
        {requests::leave_room("lobby"), "room sessionidvalue=42 screenname=ann action=leave roomname=lobby"},
        {requests::room_guests("lobby"), "room sessionidvalue=42 screenname=ann action=guest roomname=lobby"},
        {requests::joined_rooms(), "room sessionidvalue=42 screenname=ann action=whereiam"},
        {requests::create_room("lobby", "k l"),
            "room sessionidvalue=42 screenname=ann action=createnew roomname=lobby encryptionkey=k\x1Fl"},
        {requests::delete_room("lobby"),
            "room sessionidvalue=42 screenname=ann action=delete roomname=lobby"},
        {requests::ask_for_transfer(TransferKind::File, "bob"),
            "filetransfer sessionidvalue=42 screennamefrom=ann action=request screennameto=bob"},
        {requests::answer_transfer(TransferKind::Screen, "bob", false),
            "screentransfer sessionidvalue=42 screennamefrom=ann action=answer filetransfer=denied "
            "screennameto=bob"},
        {requests::administrator(), "adminscreenname sessionidvalue=42 screenname=ann"},
        {requests::echo(), "echo sessionidvalue=42"},
    };
    for (const auto& [request, expected] : cases) {
        EXPECT_EQ(composed(request), expected);
    }
}

TEST(Requests, NoValueForgesAKey)
{
    EXPECT_EQ(composed(requests::find_user("x screenname=root")), "none");
    EXPECT_EQ(composed(requests::delete_buddy("bob msg=")), "none");
    EXPECT_EQ(composed(requests::update_buddy_key("bob", "k action=get")), "none");
    EXPECT_EQ(composed({"x", {}, {{"buddy", ""}, {"sessionidvalue", "43"}}}), "none")
        << "the session is ours";
    EXPECT_EQ(composed({"x", {}, {{"msg", "a"}, {"buddy", "b"}}}), "none") << "msg stands last";
    EXPECT_EQ(composed({"x", {}, {{"buddy", "b"}, {"colour", "red"}}}), "none") << "no key of the protocol";
    EXPECT_EQ(composed(requests::find_user("a colour=red")),
        "findbuddy sessionidvalue=42 screennametofind=a colour=red")
        << "harmless";
    EXPECT_EQ(composed(requests::set_status("x screenname=root")),
        "status sessionidvalue=42 screenname=ann status=x\x1Fscreenname=root")
        << "its blanks are substituted, so nothing is forged";
}

TEST(Requests, TypedAddressFieldsArrive)
{
    // The server takes the client's own address out of a body by its text.
    EXPECT_EQ(composed(requests::message({"bob", "set myIP=1.2.3.4 first"})),
        "msg sessionidvalue=42 myIP=10.0.0.7 screennamefrom=ann screennameto=bob msg=set myIP=1.2.3.4 first");
    EXPECT_EQ(composed(requests::message({"bob", "set myIP=10.0.0.7 first"})), "none")
        << "this would arrive changed";
}
