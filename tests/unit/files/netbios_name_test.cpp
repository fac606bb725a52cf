// The host name of a client, asked for by NetBIOS.
#include <cstdlib>
#include <cstring>
#include <ostream>
#include <sys/stat.h>
#include <unistd.h>

#include "base/state.h"
#include "files/netbios_name.h"
#include "store/client_add.h"
#include "store/client_fields.h"
#include "store/clients.h"
#include "store/shm.h"
#include "support/netbios.h"

namespace netbios_name_test {

const std::string ANSWERS = "/var/tmp/nbtlist";

class NetbiosName : public NetbiosTest {
  protected:
    void SetUp() override {
        NetbiosTest::SetUp();
        hbs_list_mutex_init();
        hbs_clients_init();
        hbs_shm_init();
    }

    static void ask(hbs_client *client) {
        char name[HBS_NETBIOS_LINE_SIZE];
        if (hbs_netbios_ask(client->mac, client->ipv4, name, sizeof name))
            hbs_netbios_take(client, name);
    }

    // A client 192.168.0.50.
    hbs_client *add_client() {
        const uint8_t mac[6] = {0x02, 0xaa, 0, 0, 0, 0x11};
        const uint8_t address[4] = {192, 168, 0, 50};
        hbs_client *client = hbs_add(mac);
        hbs_set_ipv4(client, address);
        clear_log();
        return client;
    }
};

struct AnswerCase {
    const char *name;
    std::string answer;
    const char *host; // "before" = unchanged
};

std::ostream &operator<<(std::ostream &out, const AnswerCase &c) {
    return out << c.name;
}

class NetbiosAnswer : public NetbiosName, public testing::WithParamInterface<AnswerCase> {};

TEST_P(NetbiosAnswer, NamesTheClientByItsMac) {
    hbs_client *client = add_client();
    hbs_set_host(client, "before");
    set_answer(GetParam().answer);
    ask(client);
    EXPECT_STREQ(GetParam().host, client->host);
    const bool found = std::string("before") != GetParam().host;
    EXPECT_EQ(
        found ? 1u : 0u,
        logged_count(std::string("HOSTBASE:  Found HOSTNAME for 02:aa:00:00:00:11 through NBTSCAN as ") +
                     (found ? GetParam().answer.substr(GetParam().answer.find("LAPTOP"), 6) : "")));
}

INSTANTIATE_TEST_SUITE_P(
    Answers, NetbiosAnswer,
    testing::Values(
        AnswerCase{"third_word", "192.168.0.50 LAPTOP 02:aa:00:00:00:11\n", "LAPTOP"},
        AnswerCase{"third_word_with_more", "192.168.0.50 LAPTOP 02:aa:00:00:00:11 <server> x\n", "LAPTOP"},
        AnswerCase{"last_word",
                   "192.168.0.50     LAPTOP       <server>  <unknown>        02:aa:00:00:00:11\n", "LAPTOP"},
        AnswerCase{"upper_case", "192.168.0.50 LAPTOP 02:AA:00:00:00:11\n", "LAPTOP"},
        AnswerCase{"no_newline", "192.168.0.50 LAPTOP 02:aa:00:00:00:11", "LAPTOP"},
        AnswerCase{"later_line",
                   "garbage\n\n192.168.0.9 OTHER 02:aa:00:00:00:12\n192.168.0.50 LAPTOP 02:aa:00:00:00:11\n",
                   "LAPTOP"},
        AnswerCase{"first_of_two",
                   "192.168.0.50 LAPTOP 02:aa:00:00:00:11\n192.168.0.50 OTHER 02:aa:00:00:00:11\n", "LAPTOP"},
        AnswerCase{"other_mac", "192.168.0.50 OTHER 02:aa:00:00:00:12\n", "before"},
        AnswerCase{"other_mac_third", "192.168.0.50 OTHER 02:aa:00:00:00:12 02:aa:00:00:00:11\n", "before"},
        AnswerCase{"no_name", "192.168.0.50 <unknown> <server> <unknown> 02:aa:00:00:00:11\n", "before"},
        AnswerCase{"two_words", "LAPTOP 02:aa:00:00:00:11\n", "before"},
        AnswerCase{"short_mac", "192.168.0.50 OTHER 02:aa:00:00:00\n", "before"},
        AnswerCase{"nothing", "", "before"},
        AnswerCase{"too_long", std::string(1 << 20, 'x') + " OTHER 02:aa:00:00:00:11\n", "before"},
        AnswerCase{"nul_byte", std::string("192.168.0.50 OT\0ER 02:aa:00:00:00:11\n", 38), "before"}),
    [](const auto &instance) { return instance.param.name; });

TEST_F(NetbiosName, TakesNoAnswerOfAnEarlierQuestion) {
    hbs_client *client = add_client();
    write_file(ANSWERS, "192.168.0.50 OLD 02:aa:00:00:00:11\n");
    ask(client);
    EXPECT_STREQ("", client->host);
    setenv("PATH", "/nowhere", 1); // no such program
    write_file(ANSWERS, "192.168.0.50 OLD 02:aa:00:00:00:11\n");
    ask(client);
    EXPECT_STREQ("", client->host);
}

TEST_F(NetbiosName, WritesThroughNoLinkThatSomebodyPut) {
    const std::string elsewhere = directory() + "/elsewhere";
    write_file(elsewhere, "precious");
    (void)unlink(ANSWERS.c_str());
    ASSERT_EQ(0, symlink(elsewhere.c_str(), ANSWERS.c_str()));
    ask(add_client());
    EXPECT_EQ("precious", read_file(elsewhere));
}

// While the device is asked, somebody may put something else in the place of the answers.
TEST_F(NetbiosName, IsTakenFromTheProgramsOwnAnswersWhateverBearsTheirNameNow) {
    const std::string elsewhere = directory() + "/elsewhere";
    write_file(elsewhere, "192.168.0.50 FORGED 02:aa:00:00:00:11\n");
    for (const std::string &swap : {"ln -s " + elsewhere + " " + ANSWERS, "mkfifo " + ANSWERS}) {
        const std::string program = directory() + "/bin/nbtscan";
        write_file(program, "#!/bin/sh\nrm -f " + ANSWERS + "\n" + swap +
                                "\necho 192.168.0.50 LAPTOP 02:aa:00:00:00:11\n");
        hbs_client *client = add_client();
        ask(client);
        EXPECT_STREQ("LAPTOP", client->host) << swap;
        hbs_clients_init();
    }
}

TEST_F(NetbiosName, AnswersAreNobodyElses) {
    ask(add_client());
    struct stat status;
    ASSERT_EQ(0, stat(ANSWERS.c_str(), &status));
    EXPECT_EQ(0600u, status.st_mode & 07777);
}

TEST_F(NetbiosName, IsCutToItsField) {
    hbs_client *client = add_client();
    set_answer("192.168.0.50 " + std::string(200, 'N') + " 02:aa:00:00:00:11\n");
    ask(client);
    EXPECT_EQ(std::string(63, 'N'), client->host);
}

TEST_F(NetbiosName, IsAskedForTheAddressAlone) {
    ask(add_client());
    EXPECT_EQ((std::vector<std::string>{"2 -q 192.168.0.50"}), asked());
    EXPECT_TRUE(file_exists(ANSWERS));
}

// The real program, towards an address where nobody answers: it ends, and the name stays.
TEST_F(NetbiosName, StaysWhenNobodyAnswers) {
    setenv("PATH", "/usr/bin:/bin", 1);
    hbs_client *client = add_client();
    const uint8_t loopback[4] = {127, 0, 0, 9};
    hbs_set_ipv4(client, loopback);
    hbs_set_host(client, "before");
    ask(client);
    EXPECT_STREQ("before", client->host);
}

} // namespace netbios_name_test
