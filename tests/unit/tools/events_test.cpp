// What changed from one look to the next, and what a look tells of the time before it.
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tools/client_events.h"

namespace events_test {

hbs_client client_of(uint8_t number, const char *host) {
    hbs_client client = {};
    client.client_id = number;
    client.mac[0] = 2;
    client.mac[5] = number;
    strcpy(client.host, host);
    return client;
}

std::string texts(const std::vector<client_event> &events) {
    std::string text;
    for (const client_event &event : events)
        text += event.client.substr(15) + " " + event.name + " " + event.field + " " + event.before + ">" +
                event.after + "\n";
    return text;
}

TEST(Events, ASecondLookLikeTheFirstHasNone) {
    EXPECT_TRUE(events_between({client_of(1, "tv")}, {client_of(1, "tv")}, 0).empty());
}

TEST(Events, EachFieldThatDiffersIsOne) {
    hbs_client after = client_of(1, "telly");
    after.flags = HBS_FLAG_ONLINE;
    after.ipv4[0] = 10;
    EXPECT_EQ(texts(events_between({client_of(1, "tv")}, {after}, 0)),
              "01 telly state offline>online\n01 telly ipv4 >10.0.0.0\n01 telly host tv>telly\n");
}

TEST(Events, PlaceMarksAndCountersAreNone) {
    hbs_client after = client_of(1, "tv");
    after.dbpos = 99;
    after.flags = HBS_CHANGED;
    after.join_req_count = 7;
    EXPECT_TRUE(events_between({client_of(1, "tv")}, {after}, 0).empty());
}

TEST(Events, ClientsThatComeAndGoAreOne) {
    const std::string text = texts(events_between({client_of(1, "tv")}, {client_of(2, "pc")}, 0));
    EXPECT_EQ(text.rfind("01 tv client there>\n02 pc client >there\n", 0), 0u) << text;
    EXPECT_NE(text.find("02 pc host >pc\n"), std::string::npos) << text;
}

TEST(Events, WithoutAMacTheNumberTellsThemApart) {
    hbs_client one = client_of(1, "tv"), other = client_of(2, "pc");
    memset(one.mac, 0, 6);
    memset(other.mac, 0, 6);
    EXPECT_TRUE(events_between({one, other}, {other, one}, 0).empty());
}

TEST(Events, OfTheTimeBeforeTellTheStateAndWhenItBegan) {
    hbs_client late = client_of(1, "late"), early = client_of(2, "early"), old = client_of(3, "old"),
               untold = client_of(4, "untold");
    late.online_time = 995;
    late.flags = HBS_FLAG_ONLINE;
    early.online_time = 950;
    old.online_time = 900;
    const auto events = events_since({late, early, old, untold}, 60, {5000, 1000});
    EXPECT_EQ(texts(events), "02 early state >offline\n01 late state >online\n");
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].when, 4950);
    EXPECT_EQ(events[1].when, 4995);
}

TEST(Events, OfATimeBeyondTheWrapOfTheClockAreToldToo) {
    hbs_client client = client_of(1, "tv");
    client.online_time = 0xFFFFFFFEu;
    EXPECT_EQ(events_since({client}, 60, {5000, 3}).size(), 1u);
}

} // namespace events_test
