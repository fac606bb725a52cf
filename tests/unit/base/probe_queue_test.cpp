// The queue of questions: which are asked, in which order, and how many of whose.
#include <atomic>
#include <gmock/gmock.h>
#include <thread>

#include "base/clock.h"
#include "base/probe_queue.h"
#include "support/gateway.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace probe_queue_test {

using Numbers = std::vector<int>;

Numbers asked; // the last address byte of each, in order
Numbers late;  // of those that waited for too long

void note(const hbs_probe *probe, bool in_time) {
    (in_time ? asked : late).push_back(probe->address[0]);
}

hbs_probe question(int device, int number, hbs_probe_kind kind = HBS_PROBE_SEED) {
    hbs_probe probe{};
    probe.kind = kind;
    probe.mac[0] = 2;
    probe.mac[4] = static_cast<uint8_t>(device >> 8);
    probe.mac[5] = static_cast<uint8_t>(device);
    probe.address[0] = static_cast<uint8_t>(number);
    return probe;
}

bool post(const hbs_probe &probe) {
    return hbs_probe_post(&probe);
}

void serve_all() {
    while (hbs_probe_serve())
        ;
}

class ProbeQueue : public testing::Test {
  protected:
    void SetUp() override {
        asked.clear();
        late.clear();
        for (const hbs_probe_kind kind :
             {HBS_PROBE_NETBIOS, HBS_PROBE_SEED, HBS_PROBE_NEIGHBOUR, HBS_PROBE_PLACE})
            hbs_probe_register(kind, note);
        hbs_probe_open();
    }
};

TEST(ProbeQueueAtStart, TakesNothing_BeforeAThreadAsks) {
    hbs_probe_register(HBS_PROBE_SEED, note);
    EXPECT_FALSE(hbs_probe_is_open());
    EXPECT_FALSE(post(question(1, 1)));
    EXPECT_FALSE(hbs_probe_serve());
}

TEST(ProbeQueueAtStart, TakesNoKindWithoutAnAction) {
    hbs_probe_open();
    EXPECT_FALSE(post(question(1, 1)));
}

TEST_F(ProbeQueue, AsksWhatIsPosted_Once) {
    EXPECT_TRUE(post(question(1, 7)));
    EXPECT_TRUE(hbs_probe_serve());
    EXPECT_FALSE(hbs_probe_serve());
    EXPECT_THAT(asked, ElementsAre(7));
}

TEST_F(ProbeQueue, NewerQuestionOfADevice_TakesThePlaceOfTheOneThatWaits) {
    for (int number = 0; number < 40; ++number)
        EXPECT_TRUE(post(question(1, number)));
    serve_all();
    EXPECT_THAT(asked, ElementsAre(39));
}

TEST_F(ProbeQueue, DevicesWithoutMac_AreToldApartByTheirAddress) {
    hbs_probe first{};
    first.kind = HBS_PROBE_SEED;
    hbs_probe second = first;
    first.ll[15] = first.address[0] = 1;
    second.ll[15] = second.address[0] = 2;
    EXPECT_TRUE(post(first) && post(second));
    serve_all();
    EXPECT_THAT(asked, testing::UnorderedElementsAre(1, 2));
}

TEST_F(ProbeQueue, DeviceIsItsMac_WhateverItsAddress) {
    hbs_probe first = question(1, 1);
    hbs_probe second = question(1, 2);
    second.ll[15] = 2;
    EXPECT_TRUE(post(first) && post(second));
    serve_all();
    EXPECT_THAT(asked, ElementsAre(2));
}

TEST_F(ProbeQueue, KindsOfOneDevice_AreDifferentQuestions) {
    EXPECT_TRUE(post(question(1, 1, HBS_PROBE_NETBIOS)) && post(question(1, 2)));
    serve_all();
    EXPECT_THAT(asked, testing::UnorderedElementsAre(1, 2));
}

TEST_F(ProbeQueue, Newest_IsAskedFirst) {
    for (int device = 1; device <= 60; ++device)
        ASSERT_TRUE(post(question(device, device)));
    EXPECT_TRUE(hbs_probe_serve());
    EXPECT_THAT(asked, ElementsAre(60));
}

TEST_F(ProbeQueue, QuestionThatWaitsForTooLong_IsNotAsked) {
    ASSERT_TRUE(post(question(1, 1)));
    hbs_clock_advance(1);
    ASSERT_TRUE(post(question(2, 2)));
    hbs_clock_advance(1);
    serve_all();
    EXPECT_THAT(late, ElementsAre(1));
    EXPECT_THAT(asked, ElementsAre(2));
}

TEST_F(ProbeQueue, QuestionThatIsReplaced_WaitsNoLongerForThat) {
    ASSERT_TRUE(post(question(1, 1)));
    hbs_clock_advance(1);
    ASSERT_TRUE(post(question(1, 2)));
    hbs_clock_advance(1);
    serve_all();
    EXPECT_THAT(late, ElementsAre(2));
    EXPECT_THAT(asked, IsEmpty());
}

TEST_F(ProbeQueue, QuestionForAPlace_IsNeverTooLate) {
    ASSERT_TRUE(post(question(1, 1, HBS_PROBE_PLACE)));
    hbs_clock_advance(600);
    serve_all();
    EXPECT_THAT(asked, ElementsAre(1));
    EXPECT_THAT(late, IsEmpty());
}

TEST_F(ProbeQueue, QuestionsForPlaces_LeaveRoomForTheOthers) {
    for (int device = 1; device <= 128; ++device)
        ASSERT_TRUE(post(question(device, 1, HBS_PROBE_PLACE))) << device;
    EXPECT_FALSE(post(question(129, 1, HBS_PROBE_PLACE)));
    EXPECT_TRUE(post(question(1, 2, HBS_PROBE_PLACE))) << "in the place of the one that waits";
    EXPECT_TRUE(post(question(129, 1)));
}

TEST_F(ProbeQueue, ShareOfADevice_LastsAMinute) {
    for (int number = 0; number < 10; ++number) {
        ASSERT_TRUE(post(question(1, number))) << number;
        serve_all();
    }
    EXPECT_FALSE(post(question(1, 10)));
    EXPECT_TRUE(post(question(2, 11))) << "another device has its own";
    EXPECT_TRUE(post(question(1, 12, HBS_PROBE_NETBIOS))) << "and each kind";
    hbs_clock_advance(60);
    EXPECT_TRUE(post(question(1, 13)));
}

TEST_F(ProbeQueue, KernelsNeighbours_AreAskedForAsOftenAsNeeded) {
    for (int number = 0; number < 300; ++number) {
        ASSERT_TRUE(post(question(1, number, HBS_PROBE_NEIGHBOUR))) << number;
        serve_all();
    }
}

class ProbeBudget : public ProbeQueue, public testing::WithParamInterface<std::pair<hbs_probe_kind, int>> {};

TEST_P(ProbeBudget, OfTheHouse_LastsAMinute) {
    const auto [kind, most] = GetParam();
    for (int device = 1; device <= most; ++device) {
        ASSERT_TRUE(post(question(device, 1, kind))) << device;
        serve_all();
    }
    EXPECT_FALSE(post(question(999, 1, kind)));
    hbs_clock_advance(59);
    EXPECT_FALSE(post(question(999, 1, kind)));
    hbs_clock_advance(1);
    EXPECT_TRUE(post(question(999, 1, kind)));
}

INSTANTIATE_TEST_SUITE_P(Kinds, ProbeBudget,
                         testing::Values(std::pair{HBS_PROBE_NETBIOS, 60}, std::pair{HBS_PROBE_SEED, 120},
                                         std::pair{HBS_PROBE_PLACE, 240}),
                         [](const auto &instance) { return std::to_string(instance.param.second); });

TEST_F(ProbeQueue, Room_IsBounded) {
    int taken = 0;
    for (int device = 1; device <= 60; ++device)
        taken += post(question(device, 1, HBS_PROBE_NETBIOS));
    for (int device = 1; device <= 120; ++device)
        taken += post(question(device, 1));
    for (int device = 1; device <= 240; ++device)
        taken += post(question(device, 1, HBS_PROBE_NEIGHBOUR));
    EXPECT_EQ(256, taken);
}

// --- with the threads ---

std::atomic<int> out[HBS_PROBE_KINDS];
std::atomic<int> most_out[HBS_PROBE_KINDS];
std::atomic<int> served;
std::atomic<bool> let_go;

std::atomic<int> given_up;

void hang(const hbs_probe *probe, bool in_time) {
    if (!in_time) {
        ++given_up;
        return;
    }
    const int now = ++out[probe->kind];
    int most = most_out[probe->kind];
    while (now > most && !most_out[probe->kind].compare_exchange_weak(most, now))
        ;
    while (!let_go)
        sleep_milliseconds(1);
    --out[probe->kind];
    ++served;
}

class ProbeThreads : public ProbeQueue {
  protected:
    void SetUp() override {
        ProbeQueue::SetUp();
        hbs_probe_register(HBS_PROBE_NETBIOS, hang);
        hbs_probe_register(HBS_PROBE_SEED, hang);
        hbs_probe_register(HBS_PROBE_PLACE, hang);
        for (int i = 0; i < HBS_PROBE_THREADS; ++i)
            std::thread(hbs_probe_thread, nullptr).detach();
    }

    static bool wait_for_questions_out(int netbios, int seed) {
        return wait_until([=] { return out[HBS_PROBE_NETBIOS] == netbios && out[HBS_PROBE_SEED] == seed; });
    }
};

TEST_F(ProbeThreads, OneKindThatHangs_DoesNotKeepTheOthersWaiting) {
    for (int device = 1; device <= 20; ++device)
        ASSERT_TRUE(post(question(device, 1)));
    EXPECT_TRUE(wait_for_questions_out(0, 2));
    ASSERT_TRUE(post(question(1, 2, HBS_PROBE_NETBIOS)));
    EXPECT_TRUE(wait_for_questions_out(1, 2));
    let_go = true;
    EXPECT_TRUE(wait_until([] { return served + given_up == 21; }));
    EXPECT_EQ(1, most_out[HBS_PROBE_NETBIOS]);
    EXPECT_EQ(2, most_out[HBS_PROBE_SEED]);
}

TEST_F(ProbeThreads, QuestionForAPlace_IsAskedOnceMoreWhenItCameWhileTheSameWasOut) {
    ASSERT_TRUE(post(question(1, 1, HBS_PROBE_PLACE)));
    EXPECT_TRUE(wait_until([] { return out[HBS_PROBE_PLACE] == 1; }));
    EXPECT_TRUE(post(question(1, 1, HBS_PROBE_PLACE)));
    let_go = true;
    EXPECT_TRUE(wait_until([] { return served == 2; }));
    EXPECT_EQ(1, most_out[HBS_PROBE_PLACE]);
}

// The one that is out has no end: nothing else wakes the threads.
TEST_F(ProbeThreads, QuestionThatWaitsForTooLong_IsGivenUpWithoutAnyEvent) {
    ASSERT_TRUE(post(question(1, 1, HBS_PROBE_NETBIOS)));
    EXPECT_TRUE(wait_until([] { return out[HBS_PROBE_NETBIOS] == 1; }));
    ASSERT_TRUE(post(question(2, 2, HBS_PROBE_NETBIOS)));
    ASSERT_TRUE(post(question(3, 3, HBS_PROBE_NETBIOS)));
    EXPECT_TRUE(wait_until([] { return given_up == 2; }));
    EXPECT_EQ(1, out[HBS_PROBE_NETBIOS]);
    let_go = true;
    EXPECT_TRUE(wait_until([] { return served == 1; }));
}

TEST_F(ProbeThreads, OneQuestionOfADeviceIsOut_AndTheSameIsNotAskedAgain) {
    ASSERT_TRUE(post(question(1, 1)));
    EXPECT_TRUE(wait_for_questions_out(0, 1));
    EXPECT_TRUE(post(question(1, 1))); // is being asked
    EXPECT_TRUE(post(question(1, 2))); // waits for that
    EXPECT_TRUE(post(question(2, 3)));
    EXPECT_TRUE(wait_for_questions_out(0, 2));
    let_go = true;
    // On a busy machine the one that waits may have waited too long.
    EXPECT_TRUE(wait_until([] { return served + given_up == 3; }));
    sleep_milliseconds(20);
    EXPECT_EQ(3, served + given_up);
}

} // namespace probe_queue_test
