// Seeding the kernel's neighbour table: which address is probed, and what is added when it answers. The two
// programs are stand-ins that note their arguments.
#include <filesystem>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <thread>

#include "events/neighbour_seed.h"
#include "store/merge.h"
#include "support/presence.h"
#include "support/probes.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace neighbour_seed_test {

constexpr const char *NDISC6 = "/fss/gw/bin/ndisc6";
constexpr const char *REAL_NDISC6 = "/fss/gw/bin/ndisc6.real";
constexpr const char *LL = "fe80::a8ff:fe00:11";
constexpr const char *DERIVED = "fd00:2::a8ff:fe00:11";

class NeighbourSeed : public PresenceTest {
  protected:
    hbs_client *client_ = nullptr;

    void SetUp() override {
        PresenceTest::SetUp();
        open_probes();
        std::error_code none; // the box may have the real program there
        std::filesystem::rename(NDISC6, REAL_NDISC6, none);
        client_ = add(MAC_A);
        hbs_set_ll(client_, ipv6_of(LL).data());
        make_program(directory() + "/ip", "");
        setenv("PATH", (directory() + ":" + getenv("PATH")).c_str(), 1);
        probe_answers("echo 02:AB:00:00:00:11");
    }

    void TearDown() override {
        std::filesystem::remove(NDISC6);
        std::error_code none;
        std::filesystem::rename(REAL_NDISC6, NDISC6, none);
        PresenceTest::TearDown();
    }

    // A program that notes its name and arguments, then does `more`.
    void make_program(const std::string &path, const std::string &more) const {
        write_file(path, "#!/bin/sh\necho \"${0##*/} $*\" >> " + directory() + "/calls\n" + more + "\n");
        ASSERT_EQ(0, chmod(path.c_str(), 0755));
    }

    void probe_answers(const std::string &with) const { make_program(NDISC6, with); }

    // After everything that was queued has been asked.
    std::vector<std::string> calls() const {
        (void)serve_probes();
        return read_lines(directory() + "/calls");
    }

    static std::string probe(const std::string &address, const std::string &device = "l2sd0.2") {
        return "ndisc6 -qr 1 " + address + " " + device;
    }
    static std::string addition(const std::string &address, const std::string &device = "l2sd0.2") {
        return "ip -6 neigh add " + address + " lladdr 02:ab:00:00:00:11 nud reachable dev " + device;
    }
};

TEST_F(NeighbourSeed, AddressThatAnswers_IsAddedToTheKernelsTable) {
    hbs_seed_ipv6_neighbor(client_);
    EXPECT_THAT(calls(), ElementsAre(probe(DERIVED), addition(DERIVED)));
}

TEST_F(NeighbourSeed, SilentProbe_AddsNothing) {
    probe_answers("exit 2");
    hbs_seed_ipv6_neighbor(client_);
    EXPECT_THAT(calls(), ElementsAre(probe(DERIVED)));
}

TEST_F(NeighbourSeed, OutputCounts_NotTheStatus) {
    probe_answers("echo; exit 2");
    hbs_seed_ipv6_neighbor(client_);
    EXPECT_THAT(calls(), ElementsAre(probe(DERIVED), addition(DERIVED)));
}

TEST_F(NeighbourSeed, WhatTheProbePrints_IsNotUsed) {
    probe_answers("echo '; touch " + directory() + "/run; $(touch " + directory() +
                  "/run)'; yes | head -c 300000");
    hbs_seed_ipv6_neighbor(client_);
    EXPECT_THAT(calls(), ElementsAre(probe(DERIVED), addition(DERIVED)));
    EXPECT_FALSE(file_exists(directory() + "/run"));
}

TEST_F(NeighbourSeed, ErrorMessages_AreNoAnswer) {
    probe_answers("echo no route >&2; exit 1");
    hbs_seed_ipv6_neighbor(client_);
    EXPECT_THAT(calls(), ElementsAre(probe(DERIVED)));
}

TEST_F(NeighbourSeed, MissingProbe_AddsNothing) {
    std::filesystem::remove(NDISC6);
    hbs_seed_ipv6_neighbor(client_);
    EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(NeighbourSeed, GlobalAddressInTheNetworksPrefix_IsNotProbed) {
    hbs_set_ipv6(client_, ipv6_of("fd00:2::1975").data());
    hbs_seed_ipv6_neighbor(client_);
    EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(NeighbourSeed, GlobalAddressOfAnotherPrefix_IsProbed) {
    hbs_set_ipv6(client_, ipv6_of("fd00:2:0:1::1975").data());
    hbs_seed_ipv6_neighbor(client_);
    EXPECT_THAT(calls(), ElementsAre(probe(DERIVED), addition(DERIVED)));
}

TEST_F(NeighbourSeed, OtherNetwork_HasItsOwnPrefixAndInterface) {
    hbs_set_nwidx(client_, 1);
    hbs_seed_ipv6_neighbor(client_);
    const std::string address = "fd00:3::a8ff:fe00:11";
    EXPECT_THAT(calls(), ElementsAre(probe(address, "l2sd0.3"), addition(address, "l2sd0.3")));
}

TEST_F(NeighbourSeed, LanNumber_NotThePlaceOfTheEntry_Decides) {
    set("network.1.lan", 3);
    set("network.2.lan", 2);
    hbs_seed_ipv6_neighbor(client_);
    EXPECT_EQ(probe("fd00:3::a8ff:fe00:11"), calls().at(0));
}

TEST_F(NeighbourSeed, NoEntryForTheLan_TheLastOneReadIsUsed) {
    hbs_set_nwidx(client_, 5);
    hbs_seed_ipv6_neighbor(client_);
    EXPECT_EQ(probe("fd00:3::a8ff:fe00:11", "l2sd0.7"), calls().at(0));
}

TEST_F(NeighbourSeed, EntryWithoutIpv6_DoesNotMatch) {
    unset("network.1.ipv6");
    hbs_seed_ipv6_neighbor(client_);
    EXPECT_EQ(probe("fd00:3::a8ff:fe00:11"), calls().at(0));
}

TEST_F(NeighbourSeed, EntryWithoutPrefix_IsNotMatchedByAClientWithoutAddress) {
    unset("network.1.ipv6");
    unset("network.2.ipv6");
    hbs_seed_ipv6_neighbor(client_);
    EXPECT_EQ(probe("::a8ff:fe00:11"), calls().at(0));
}

TEST_F(NeighbourSeed, NoEntryAtAll_ProbesNothing) {
    fail("RNDDB_Get1stHandleParams", -1);
    hbs_seed_ipv6_neighbor(client_);
    EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(NeighbourSeed, UnreadDatabase_IsReadWithoutKeepingTheResult) {
    hbs_rnd_status = -1;
    hbs_seed_ipv6_neighbor(client_);
    EXPECT_EQ(-1, hbs_rnd_status);
    EXPECT_EQ(2u, calls().size());
}

TEST_F(NeighbourSeed, ReadDatabase_IsNotReadAgain) {
    ASSERT_TRUE(hbs_rnd_load());
    set("network.1.ipv6", "fd00:9::/64");
    hbs_seed_ipv6_neighbor(client_);
    EXPECT_EQ(probe(DERIVED), calls().at(0));
}

TEST_F(NeighbourSeed, GivenPrefix_IsJoinedWithTheInterfaceIdentifier) {
    const Ipv6 prefix = ipv6_of("2001:db8:1:2:3:4:5:6");
    hbs_ipv6_probe_and_add(client_, prefix.data());
    const std::string address = "2001:db8:1:2:0:a8ff:fe00:11";
    EXPECT_THAT(calls(), ElementsAre(probe(address), addition(address)));
}

// --- the answer comes later ---

TEST_F(NeighbourSeed, LockIsFree_WhileTheDeviceIsAsked) {
    probe_answers("touch " + directory() + "/asking; while [ ! -e " + directory() +
                  "/go ]; do sleep 0.01; done; echo");
    std::thread asker([this] {
        {
            const hbs_list_hold hold;
            hbs_seed_ipv6_neighbor(client_);
        }
        (void)serve_probes();
    });
    EXPECT_TRUE(wait_until([this] { return file_exists(directory() + "/asking"); }));
    const int taken = pthread_mutex_trylock(&hbs_list_mutex);
    if (taken == 0)
        (void)pthread_mutex_unlock(&hbs_list_mutex);
    write_file(directory() + "/go", "");
    asker.join();
    EXPECT_EQ(0, taken);
    EXPECT_THAT(calls(), ElementsAre(probe(DERIVED), addition(DERIVED)));
}

TEST_F(NeighbourSeed, AnswerForAClientThatIsGone_AddsNothing) {
    hbs_seed_ipv6_neighbor(client_);
    hbs_client_free(client_);
    EXPECT_THAT(calls(), ElementsAre(probe(DERIVED)));
}

TEST_F(NeighbourSeed, AnswerForAnAddressThatTheClientHasNoMore_AddsNothing) {
    hbs_seed_ipv6_neighbor(client_);
    hbs_set_ll(client_, ipv6_of("fe80::99").data());
    EXPECT_THAT(calls(), ElementsAre(probe(DERIVED)));
}

TEST_F(NeighbourSeed, AnswerForAClientThatMovedToAnotherNetwork_AddsNothing) {
    hbs_seed_ipv6_neighbor(client_);
    hbs_set_nwidx(client_, 1);
    EXPECT_THAT(calls(), ElementsAre(probe(DERIVED)));
}

TEST_F(NeighbourSeed, AnswerInBridgeMode_AddsNothing) {
    hbs_seed_ipv6_neighbor(client_);
    hbs_db_ready = 0;
    EXPECT_THAT(calls(), ElementsAre(probe(DERIVED)));
}

TEST_F(NeighbourSeed, ClientThatGotItsMacMeanwhile_IsAddedWithIt) {
    hbs_client_free(client_);
    hbs_client *nomac = add_with_ll(nullptr, LL);
    hbs_seed_ipv6_neighbor(nomac);
    (void)hbs_set_mac(nomac, mac_of(MAC_A).data());
    EXPECT_THAT(calls(), ElementsAre(probe(DERIVED), addition(DERIVED)));
}

TEST_F(NeighbourSeed, FortyAddressesOfOneDevice_AreOneQuestion) {
    for (int i = 0; i < 40; ++i)
        ASSERT_NE(nullptr, hbs_handle_neigh_stale(mac_of(MAC_A).data(), LOOPBACK, AF_INET6,
                                                  ipv6_of("fe80::bad:" + std::to_string(i)).data()));
    const std::string address = "fd00:2::bad:39";
    EXPECT_THAT(calls(), ElementsAre(probe(address), addition(address)));
}

// --- who is asked ---

TEST_F(NeighbourSeed, LinkLocalNeighbour_SeedsItsGlobalAddress) {
    ASSERT_NE(nullptr, hbs_handle_neigh_stale(mac_of(MAC_A).data(), LOOPBACK, AF_INET6, ipv6_of(LL).data()));
    EXPECT_THAT(calls(), ElementsAre(probe(DERIVED), addition(DERIVED)));
}

TEST_F(NeighbourSeed, LinkLocalNeighbourOfNobody_SeedsNothing) {
    EXPECT_EQ(nullptr, hbs_handle_neigh_gone(nullptr, LOOPBACK, AF_INET6, ipv6_of("fe80::99").data()));
    EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(NeighbourSeed, GlobalNeighbour_SeedsNothing) {
    ASSERT_NE(nullptr, hbs_handle_neigh_stale(mac_of(MAC_A).data(), LOOPBACK, AF_INET6,
                                              ipv6_of("fd00:2::1975").data()));
    EXPECT_THAT(calls(), IsEmpty());
}

} // namespace neighbour_seed_test
