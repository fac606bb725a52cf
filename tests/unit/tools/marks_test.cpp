// What a live table marks as new, changed and gone.
#include <chrono>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "tools/change_marks.h"

namespace marks_test {

using namespace std::chrono_literals;
using time_point = change_marks::time_point;

hbs_client client_of(uint8_t number) {
    hbs_client client = {};
    client.client_id = number;
    client.mac[0] = 2;
    client.mac[5] = number;
    return client;
}

const std::vector<size_t> all = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}; // columns

std::string signs(const std::vector<marked_client> &clients) {
    std::string text;
    for (const auto &row : marked_table(clients).rows)
        text += row[0].text.empty() ? "." : row[0].text;
    return text;
}

TEST(ChangeMarks, AtTheFirstLookNothingIsMarked) {
    change_marks marks(5s);
    EXPECT_EQ(signs(marks.update({client_of(1), client_of(2)}, time_point(), all)), "..");
}

TEST(ChangeMarks, ANewOneAChangedOneAndOneThatWentAreMarkedForAWhile) {
    change_marks marks(5s);
    const time_point start;
    (void)marks.update({client_of(1), client_of(2), client_of(3)}, start, all);
    hbs_client changed = client_of(2);
    strcpy(changed.host, "renamed");
    const std::vector<hbs_client> later = {client_of(1), changed, client_of(4)};
    EXPECT_EQ(signs(marks.update(later, start + 1s, all)), ".*+-");
    EXPECT_EQ(signs(marks.update(later, start + 5s, all)), ".*+-");
    EXPECT_EQ(signs(marks.update(later, start + 6s, all)), "...");
}

TEST(ChangeMarks, OneThatComesBackIsNew) {
    change_marks marks(5s);
    const time_point start;
    (void)marks.update({client_of(1)}, start, all);
    EXPECT_EQ(signs(marks.update({}, start + 1s, all)), "-");
    EXPECT_EQ(signs(marks.update({client_of(1)}, start + 2s, all)), "+");
}

TEST(ChangeMarks, OnlyWhatIsShownCounts) {
    hbs_client before = client_of(1);
    hbs_client now = before;
    now.next = 99;
    now.dbpos = 52;
    now.flags |= HBS_CHANGED_MASK;
    now.join_req_count = 3;
    EXPECT_FALSE(client_changed(before, now, all));
    now.flags |= HBS_FLAG_ONLINE;
    EXPECT_TRUE(client_changed(before, now, all));
    EXPECT_TRUE(client_changed(before, now, {1})) << "the state";
    EXPECT_FALSE(client_changed(before, now, {0, 2}));
}

TEST(ChangeMarks, AColumnWithoutRoomIsNotShown) {
    hbs_client client = client_of(1);
    strcpy(client.host, "laptop");
    strcpy(client.comment, "on the desk");
    EXPECT_EQ(shown_client_columns({client}, {}), (std::vector<size_t>{0, 1, 2, 3, 4, 5, 12}));
    EXPECT_EQ(shown_client_columns({client}, {.width = 50}), (std::vector<size_t>{0, 1, 2, 3, 4}));
}

TEST(ChangeMarks, WhatChangedUnseenIsNotMarkedLater) {
    change_marks marks(5s);
    const time_point start;
    hbs_client changed = client_of(1);
    (void)marks.update({client_of(1)}, start, {0});
    strcpy(changed.host, "renamed");
    EXPECT_EQ(signs(marks.update({changed}, start + 1s, {0})), ".");
    EXPECT_EQ(signs(marks.update({changed}, start + 2s, all)), ".");
}

TEST(ChangeMarks, ClientsWithoutAMacAreToldApartByNumber) {
    change_marks marks(5s);
    hbs_client first = client_of(1), second = client_of(2);
    memset(first.mac, 0, 6);
    memset(second.mac, 0, 6);
    EXPECT_EQ(signs(marks.update({first, second}, time_point(), all)), "..");
    EXPECT_EQ(signs(marks.update({second}, time_point() + 1s, all)), ".-");
}

TEST(ChangeMarks, AMarkedRowIsOfOneColour) {
    const text_table table = marked_table({{client_of(1), mark::changed}, {client_of(2), mark::none}});
    for (const table_cell &cell : table.rows[0])
        EXPECT_EQ(cell.look, style::changed);
    EXPECT_EQ(table.rows[1][0].look, style::plain);
}

} // namespace marks_test
