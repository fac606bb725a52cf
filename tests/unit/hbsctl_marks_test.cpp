// What a live table marks as new, changed and gone.
#include <chrono>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tools/change_marks.h"

namespace {

using namespace std::chrono_literals;
using time_point = change_marks::time_point;

hbs_client client_of(uint8_t number) {
    hbs_client client = {};
    client.client_id = number;
    client.mac[0] = 2;
    client.mac[5] = number;
    return client;
}

std::string signs(const std::vector<marked_client> &clients) {
    std::string text;
    for (const auto &row : marked_table(clients).rows)
        text += row[0].text.empty() ? "." : row[0].text;
    return text;
}

TEST(ChangeMarks, AtTheFirstLookNothingIsMarked) {
    change_marks marks(5s);
    EXPECT_EQ(signs(marks.update({client_of(1), client_of(2)}, time_point())), "..");
}

TEST(ChangeMarks, ANewOneAChangedOneAndOneThatWentAreMarkedForAWhile) {
    change_marks marks(5s);
    const time_point start;
    (void)marks.update({client_of(1), client_of(2), client_of(3)}, start);
    hbs_client changed = client_of(2);
    strcpy(changed.host, "renamed");
    const std::vector<hbs_client> later = {client_of(1), changed, client_of(4)};
    EXPECT_EQ(signs(marks.update(later, start + 1s)), ".*+-");
    EXPECT_EQ(signs(marks.update(later, start + 5s)), ".*+-");
    EXPECT_EQ(signs(marks.update(later, start + 6s)), "...");
}

TEST(ChangeMarks, OneThatComesBackIsNew) {
    change_marks marks(5s);
    const time_point start;
    (void)marks.update({client_of(1)}, start);
    EXPECT_EQ(signs(marks.update({}, start + 1s)), "-");
    EXPECT_EQ(signs(marks.update({client_of(1)}, start + 2s)), "+");
}

TEST(ChangeMarks, PlaceAndChangeMarksOfTheRecordDoNotCount) {
    hbs_client before = client_of(1);
    hbs_client now = before;
    now.next = 99;
    now.prev = 98;
    now.dbpos = 52;
    now.flags |= 0x001F0000;
    EXPECT_FALSE(client_changed(before, now));
    now.flags |= HBS_FLAG_ONLINE;
    EXPECT_TRUE(client_changed(before, now));
}

TEST(ChangeMarks, ClientsWithoutAMacAreToldApartByNumber) {
    change_marks marks(5s);
    hbs_client first = client_of(1), second = client_of(2);
    memset(first.mac, 0, 6);
    memset(second.mac, 0, 6);
    EXPECT_EQ(signs(marks.update({first, second}, time_point())), "..");
    EXPECT_EQ(signs(marks.update({second}, time_point() + 1s)), ".-");
}

TEST(ChangeMarks, AMarkedRowIsOfOneColour) {
    const text_table table = marked_table({{client_of(1), mark::changed}, {client_of(2), mark::none}});
    for (const table_cell &cell : table.rows[0])
        EXPECT_EQ(cell.look, style::changed);
    EXPECT_EQ(table.rows[1][0].look, style::plain);
}

} // namespace
