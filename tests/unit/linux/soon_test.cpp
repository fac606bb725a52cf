// Who holds the daemon's lock waits for the kernel only so long.
#include <atomic>
#include <cerrno>
#include <gtest/gtest.h>

#include <hbs_db.h>

#include "linux_netlink.h"
#include "linux_soon.h"
#include "support/gateway.h"

namespace soon_test {

struct numbers {
    int given, found;
};

bool twice(void *context) {
    auto *call = static_cast<numbers *>(context);
    call->found = 2 * call->given;
    return true;
}

bool refuse(void *) {
    errno = ENOENT;
    return false;
}

std::atomic<bool> may_go = false;
std::atomic<bool> began = false;
std::atomic<int> gone = 0;

bool wait_for_leave(void *) {
    began = true;
    (void)wait_until([] { return may_go.load(); });
    gone++;
    return true;
}

TEST(LinuxSoon, GivesWhatTheJobFound) {
    // A machine that is busy may keep the thread from its work for longer than anybody waits.
    numbers call = {21, 0};
    EXPECT_TRUE(wait_until([&] { return linux_soon(twice, &call, sizeof call); }));
    EXPECT_EQ(42, call.found);
    EXPECT_TRUE(wait_until([&] { return !linux_soon(refuse, &call, sizeof call) && errno == ENOENT; }));
}

TEST(LinuxSoon, GivesUpAJobThatWaitsAndServesAgainWhenItEnds) {
    numbers call = {21, 7};
    may_go = began = false;
    gone = 0;
    // On a busy machine the question may be given up before the thread has taken it.
    EXPECT_TRUE(wait_until([&] {
        EXPECT_FALSE(linux_soon(wait_for_leave, &call, sizeof call));
        EXPECT_EQ(ETIMEDOUT, errno);
        return began.load();
    }));
    EXPECT_EQ(7, call.found);
    EXPECT_FALSE(linux_soon(twice, &call, sizeof call)) << "the thread is still at the first";
    EXPECT_EQ(ETIMEDOUT, errno);
    EXPECT_EQ(0, gone) << "nobody waited for it";
    may_go = true;
    EXPECT_TRUE(wait_until([&] { return linux_soon(twice, &call, sizeof call); }));
    EXPECT_EQ(42, call.found);
    EXPECT_EQ(1, gone);
}

TEST(LinuxSoon, WhatMayWaitIsDoneInTurnAndNotEndlesslyMuch) {
    may_go = false;
    gone = 0;
    int taken = 0;
    while (taken < 1000 && linux_later(wait_for_leave, &taken, sizeof taken))
        taken++;
    EXPECT_GE(taken, 3 * HBS_MAX_CLIENTS) << "each device may have three addresses";
    EXPECT_LT(taken, 1000);
    may_go = true;
    EXPECT_TRUE(wait_until([&] { return gone == taken; }));
}

TEST(LinuxPatience, IsSharedByTheQuestionsAndComesBackSlowly) {
    linux_patience patience = {0, 0};
    EXPECT_EQ(LINUX_PATIENCE_US, linux_patience_left(&patience, 1000));
    linux_patience_spend(&patience, LINUX_FREE_US);
    EXPECT_EQ(LINUX_PATIENCE_US, linux_patience_left(&patience, 1000)) << "quick answers cost nothing";
    linux_patience_spend(&patience, LINUX_FREE_US + LINUX_PATIENCE_US);
    EXPECT_EQ(0, linux_patience_left(&patience, 1000));
    EXPECT_EQ(100, linux_patience_left(&patience, 1000 + 100 * LINUX_COMES_BACK));
    EXPECT_EQ(LINUX_PATIENCE_US, linux_patience_left(&patience, 10000000));
}

// A hold that only waits: what comes back meanwhile is spent, too, and four questions have their free share.
TEST(LinuxPatience, OneHoldWaitsForLessThanFiftyMilliseconds) {
    linux_patience patience = {0, 0};
    int64_t now = 1000000;
    int64_t waited = 0;
    for (int question = 0; question < 4; question++) {
        const int64_t wait = linux_patience_left(&patience, now);
        waited += wait;
        now += wait;
        linux_patience_spend(&patience, wait);
    }
    EXPECT_LT(waited, 50000);
}

TEST(LinuxNetlink, AnAnswerThatIsThereIsNotReadWithoutPatience) {
    struct {
        nlmsghdr head;
        ifinfomsg body;
    } request = {};
    request.head.nlmsg_len = sizeof request;
    request.head.nlmsg_type = RTM_GETLINK;
    request.head.nlmsg_flags = NLM_F_DUMP;
    const auto nothing = [](hbs_netlink_bytes, void *) {};
    EXPECT_FALSE(linux_ask(&request.head, 0, nothing, nullptr));
    EXPECT_EQ(ETIMEDOUT, errno);
    EXPECT_TRUE(linux_ask(&request.head, 10000, nothing, nullptr));
}

} // namespace soon_test
