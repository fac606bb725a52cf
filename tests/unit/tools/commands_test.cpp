// Whole command lines: what is sent, what is printed, and the exit status.
#include <csignal>
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <vector>

#include "support/gateway.h"
#include "support/hbsctl_daemon.h"
#include "support/query_segment.h"
#include "tools/command_client.h"

namespace commands_test {

using words = std::vector<std::string>;

const std::string nobody = "/var/tmp/nobody-here.sock";
const std::string mac = "02:aa:00:00:00:11";

auto always(int32_t value) {
    return [value](const datagram &) { return answer_bytes(value); };
}

// As on a gateway where nobody has set anything: the tool looks there.
void forget_settings() {
    for (const char *path :
         {"/nvram/8/hostbase.txt", "/nvram/8/client_white_rules.txt", "/nvram/8/client_black_rules.txt",
          "/nvram/8/client_trusted_device_tr69instance.txt"})
        std::filesystem::remove(path);
}

words traces_left() {
    words found;
    for (const char *place : {"/tmp", "/var/tmp"}) {
        for (const auto &entry : std::filesystem::directory_iterator(place))
            if (entry.path().filename().string().starts_with("hbsctl-"))
                found.push_back(entry.path());
    }
    return found;
}

// --- commands and events -------------------------------------------------------------------------------

struct line_and_code {
    const char *name;
    words line;
    uint8_t code;
    size_t size;
};

const line_and_code commands[] = {
    {"ModeBridge", {"mode", "bridge"}, 1, 2},
    {"ModeRouted", {"mode", "routed"}, 1, 2},
    {"StaticLeaseSet", {"static-lease", "set", mac, "192.168.0.11", "--comment", "c", "--host", "h"}, 2, 354},
    {"StaticLeaseSetV6", {"static-lease", "set", mac, "fd00::1", "--network", "8"}, 2, 354},
    {"StaticLeaseClear", {"static-lease", "clear", "192.168.0.11"}, 3, 28},
    {"InternalLeaseSet", {"internal-lease", "set", mac, "192.168.0.11"}, 4, 30},
    {"TrustSetMac", {"trust", "set", "site", mac, "--comment", "c"}, 5, 288},
    {"TrustSetV4", {"trust", "set", "service", "192.168.0.11"}, 5, 288},
    {"TrustClearV6", {"trust", "clear", "site", "fd00::1"}, 6, 288},
    {"MacFilterSet", {"mac-filter", "set", "black", mac, "--rule", "7f,1,2", "--filter-word", "3"}, 7, 1068},
    {"MacFilterClear", {"mac-filter", "clear", "white", mac, "--rule", "7f,1,2,3,4,5"}, 8, 1068},
    {"MacFilterModify", {"mac-filter", "modify", "white", mac, "02:bb:00:00:00:22"}, 13, 1068},
    {"RuleSet", {"rule", "set", "white", mac, "7f,1,2", "--instance", "4"}, 12, 1068},
    {"RuleClear", {"rule", "clear", "white", mac, "7f,1,2"}, 11, 1068},
    {"Comment", {"comment", mac, "c"}, 111, 344},
    {"ResetDefaults", {"reset-defaults", "--yes"}, 9, 1},
    {"Dump", {"dump"}, 14, 1},
    {"Subnet", {"event", "subnet", "1", "192.168.0.1", "10.0.0.1", "--prefix", "16"}, 102, 20},
};

const line_and_code events[] = {
    {"Server", {"event", "server", "1", "started"}, 101, 12},
    {"WifiAssoc", {"event", "wifi-assoc", mac, "3"}, 103, 28},
    {"WifiDisassoc", {"event", "wifi-disassoc", mac, "3"}, 104, 28},
    {"Dhcpv4Lease",
     {"event", "dhcpv4-lease", mac, "192.168.0.11", "--host", "h", "--adapter", "wifi"},
     105,
     616},
    {"Dhcpv6Lease", {"event", "dhcpv6-lease", "fe80::1", "fd00::1", "--seconds", "60"}, 106, 433},
    {"Dhcpv4Info", {"event", "dhcpv4-info", mac, "192.168.0.11"}, 107, 616},
    {"Dhcpv6Release", {"event", "dhcpv6-release", "fe80::1", "fd00::1"}, 108, 33},
    {"Dhcpv4Release", {"event", "dhcpv4-release", mac, "192.168.0.11", "--static"}, 109, 20},
    {"WifiInfo", {"event", "wifi-info", mac}, 110, 10},
    {"XwifiChanged", {"event", "xwifi-changed"}, 112, 1},
};

std::string name_of(const testing::TestParamInfo<line_and_code> &info) {
    return info.param.name;
}

// A segment with one client, and a daemon that answers but does nothing.
class Command : public QuerySegment, public testing::WithParamInterface<line_and_code> {
  protected:
    void SetUp() override {
        QuerySegment::SetUp();
        forget_settings();
        hbs_client *client = publish(0, 0x11);
        const uint8_t ipv4[] = {192, 168, 0, 11};
        memcpy(client->ipv4, ipv4, sizeof ipv4);
        client->ipv6[0] = 0xfd;
        client->ipv6[15] = 1;
    }

    static words forced(const words &more = {}) {
        words line = GetParam().line;
        line.emplace_back("--force");
        line.insert(line.end(), more.begin(), more.end());
        return line;
    }

    static bool needs_no_change() {
        return GetParam().code == HBS_CMD_DUMP || GetParam().code == HBS_CMD_RESET_DEFAULTS;
    }
};

TEST_P(Command, IsSentAndWithoutAnyEffectEndsWithOne) {
    fake_daemon daemon(always(0));
    const ctl_result result = ctl(forced(), daemon.path);
    daemon.stop();
    EXPECT_EQ(result.status, needs_no_change() ? exit_ok : exit_negative) << result.err;
    EXPECT_NE((result.out + result.err).find(needs_no_change() ? ":" : "nothing changed"), std::string::npos);
    ASSERT_EQ(daemon.received.size(), 1u);
    EXPECT_EQ(daemon.received[0].size(), GetParam().size);
    EXPECT_EQ(daemon.received[0][0], GetParam().code);
    EXPECT_EQ(traces_left(), words{});
}

TEST_P(Command, AsJsonTellsThatNothingChanged) {
    fake_daemon daemon(always(0));
    const auto parsed = nlohmann::json::parse(ctl(forced({"--json"}), daemon.path).out);
    EXPECT_TRUE(parsed["text"].is_string());
    if (GetParam().code != HBS_CMD_DUMP)
        EXPECT_EQ(parsed["changed"], false);
}

TEST_P(Command, ThatIsRefusedEndsWithOne) {
    fake_daemon daemon(always(-1));
    const ctl_result result = ctl(forced(), daemon.path);
    EXPECT_EQ(result.status, needs_no_change() ? exit_ok : exit_negative);
}

TEST_P(Command, WithoutADaemonEndsWithThree) {
    const ctl_result result = ctl(forced(), nobody);
    EXPECT_EQ(result.status, exit_not_there);
    EXPECT_EQ(result.err, "hbsctl: gw_hostbase is not running: nobody receives on " + nobody + "\n");
    EXPECT_EQ(traces_left(), words{});
}

INSTANTIATE_TEST_SUITE_P(All, Command, testing::ValuesIn(commands), name_of);

class Event : public testing::TestWithParam<line_and_code> {};

TEST_P(Event, IsSentWithoutWaitingForAnAnswer) {
    fake_daemon daemon([](const datagram &) { return std::nullopt; });
    const ctl_result result = ctl(GetParam().line, daemon.path);
    daemon.stop();
    EXPECT_EQ(result.status, exit_ok) << result.err;
    ASSERT_EQ(daemon.received.size(), 1u);
    EXPECT_EQ(daemon.received[0].size(), GetParam().size);
    EXPECT_EQ(daemon.received[0][0], GetParam().code);
    EXPECT_EQ(result.out, GetParam().line[1] + ": sent\n");
}

TEST_P(Event, WithoutADaemonEndsWithThree) {
    EXPECT_EQ(ctl(GetParam().line, nobody).status, exit_not_there);
}

INSTANTIATE_TEST_SUITE_P(All, Event, testing::ValuesIn(events), name_of);

class CommandArguments : public QuerySegment {};

TEST_F(CommandArguments, ReachTheDatagram) {
    fake_daemon daemon(always(0));
    (void)ctl({"trust", "set", "service", "2:AA:0:0:0:11", "--comment", "front door"}, daemon.path);
    (void)ctl({"event", "dhcpv4-lease", mac, "192.168.0.11", "--static", "--seconds", "77"}, daemon.path);
    (void)ctl({"event", "server", "2", "stopped"}, daemon.path);
    daemon.stop();
    ASSERT_EQ(daemon.received.size(), 3u);
    EXPECT_EQ(daemon.received[0],
              request_trust(HBS_CMD_SET_TRUSTED, 2, {HBS_SELECT_MAC, *parse_mac(mac), {}}, "front door"));
    dhcpv4_lease lease;
    lease.mac = *parse_mac(mac);
    lease.ipv4 = parse_ip("192.168.0.11")->ipv4;
    lease.dynamic = false;
    lease.seconds = 77;
    EXPECT_EQ(daemon.received[1], event_dhcpv4_lease(lease));
    EXPECT_EQ(daemon.received[2], event_server(2, false));
}

TEST_F(CommandArguments, ThatDoNotFitAreNotSent) {
    fake_daemon daemon(always(0));
    EXPECT_EQ(ctl({"trust", "set", "site", mac, "--comment", std::string(256, 'x')}, daemon.path).status,
              exit_usage);
    daemon.stop();
    EXPECT_TRUE(daemon.received.empty());
}

// --- command lines that make no sense ---------------------------------------------------------------------

TEST(Usage, OfTheWrongKindEndsWithTwoAndSendsNothing) {
    fake_daemon daemon(always(0));
    const std::vector<words> lines = {{},
                                      {"frobnicate"},
                                      {"mode", "sideways"},
                                      {"trust", "set", "site"},
                                      {"trust", "set", "site", "00:00:00:00:00:00"},
                                      {"event", "dhcpv4-lease", "0:0:0:0:0:0", "192.168.0.1"},
                                      {"static-lease", "set", mac, "192.168.0"},
                                      {"event", "dhcpv4-lease", mac, "fd00::1"},
                                      {"event", "dhcpv6-lease", "", "fd00::1"},
                                      {"event"},
                                      {"mac-filter", "set", "grey", mac},
                                      {"mac-filter", "set", "white", mac, "--rule", "1,2"},
                                      {"comment"},
                                      {"watch", "--interval", "0"},
                                      {"watch", "--interval", "nan", "--count", "1"},
                                      {"dump", "--timeout", "nan"},
                                      {"dump", "--timeout", "soon"},
                                      {"dump", "--timeout", "-1"}};
    for (const words &line : lines)
        EXPECT_EQ(ctl(line, daemon.path).status, exit_usage) << testing::PrintToString(line);
    daemon.stop();
    EXPECT_TRUE(daemon.received.empty());
}

TEST(Usage, OfTheWrongKindNamesTheWordThatIsWrong) {
    const std::vector<std::pair<words, std::string>> lines = {
        {{"frobnicate"}, "'frobnicate' is not expected here"},
        {{"event", "frobnicate"}, "'frobnicate' is not expected here"},
        {{"list", "more"}, "'more' is not expected here"},
        {{}, "A subcommand is required"},
        {{"event", "dhcpv4-lease", mac, "192.168.0.999"}, "'192.168.0.999' is no IPv4 address"},
        {{"watch", "--interval", "nan"}, "--interval: 'nan' is no number of seconds that is possible here"},
        {{"list", "--network", "x = y"}, "--network: 'x = y' is no number that is possible here"},
        {{"trust", "set", "sites", mac}, "'sites' is none of site, service: did you mean 'site'?"},
        {{"event", "server", "one", "started"}, "index: 'one' is no number that is possible here"},
    };
    for (const auto &[line, text] : lines) {
        const ctl_result result = ctl(line, nobody);
        EXPECT_EQ(result.err, "hbsctl: " + text + "\nRun with --help for more information.\n");
        EXPECT_EQ(result.out, "");
    }
}

TEST(Usage, OfTheWrongKindIsToldInJsonWhenThatIsAskedFor) {
    for (const words &line : {words{"--json", "frobnicate"}, words{"list", "--json", "frobnicate"},
                              words{"event", "dhcpv4-lease", mac, "192.168.0", "--json"}}) {
        const ctl_result result = ctl(line, nobody);
        const auto parsed = nlohmann::json::parse(result.out);
        EXPECT_EQ(parsed["status"], 2);
        EXPECT_EQ(result.err, "hbsctl: " + parsed["error"].get<std::string>() +
                                  "\nRun with --help for more information.\n");
    }
}

TEST(Usage, HelpIsNoFailure) {
    const ctl_result result = ctl({"--help"}, nobody);
    EXPECT_EQ(result.status, exit_ok);
    EXPECT_NE(result.out.find("Examples:"), std::string::npos);
    EXPECT_EQ(ctl({"event", "dhcpv4-lease", "--help"}, nobody).out.find("Examples:"), std::string::npos);
}

// --- the answer
// ---------------------------------------------------------------------------------------------

TEST(Answer, ThatDoesNotComeEndsWithFour) {
    fake_daemon daemon([](const datagram &) { return std::nullopt; });
    // Without its own word it would wait for longer than a test may.
    const ctl_result result = ctl({"dump", "--timeout", "0.2"}, daemon.path, nullptr, 3600);
    EXPECT_EQ(result.status, exit_no_answer);
    EXPECT_EQ(result.err, "hbsctl: gw_hostbase did not answer in time\n");
    EXPECT_EQ(traces_left(), words{});
}

TEST(Answer, OfTheWrongSizeIsAFailure) {
    fake_daemon daemon([](const datagram &) { return std::vector<uint8_t>{0, 0}; });
    EXPECT_EQ(ctl({"dump"}, daemon.path).status, exit_failed);
}

TEST(Answer, ArrivesOnASocketThatOnlyThisUserCanReach) {
    std::string sender;
    struct stat directory = {}, socket_file = {};
    std::atomic<fake_daemon *> server = nullptr;
    fake_daemon daemon([&](const datagram &) {
        sender = server.load()->last_sender;
        (void)stat(sender.c_str(), &socket_file);
        (void)stat(std::filesystem::path(sender).parent_path().c_str(), &directory);
        return answer_bytes(0);
    });
    server = &daemon;
    ASSERT_EQ(ctl({"dump"}, daemon.path).status, exit_ok);
    daemon.stop(); // what its thread saw is there
    EXPECT_TRUE(sender.starts_with("/tmp/") || sender.starts_with("/var/tmp/")) << sender;
    EXPECT_EQ(directory.st_mode & 07777, 0700u);
    EXPECT_EQ(socket_file.st_mode & 07777, 0600u);
    EXPECT_FALSE(std::filesystem::exists(sender));
}

TEST(Answer, AnInterruptedWaitLeavesNothingBehind) {
    const silent_daemon daemon;
    const pid_t child = fork();
    if (child == 0) {
        (void)send_command(request_plain(HBS_CMD_DUMP), daemon.path, 3600);
        _exit(0);
    }
    EXPECT_TRUE(daemon.is_asked(60000));
    EXPECT_FALSE(traces_left().empty());
    kill(child, SIGTERM);
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGTERM);
    EXPECT_EQ(traces_left(), words{});
}

// --- asking first
// ----------------------------------------------------------------------------------------------

class Asking : public QuerySegment {
  protected:
    fake_daemon daemon{always(0)};
};

TEST_F(Asking, ResetDefaultsIsSentOnlyWhenConfirmed) {
    for (const char *input : {"", "\n", "no\n", "y\n", "YES\n"}) {
        const ctl_result result = ctl({"reset-defaults"}, daemon.path, input);
        EXPECT_EQ(result.status, exit_negative) << input;
        EXPECT_NE(result.err.find("nothing changed"), std::string::npos);
    }
    EXPECT_EQ(ctl({"reset-defaults"}, daemon.path).status, exit_negative) << "nobody to ask";
    EXPECT_EQ(ctl({"reset-defaults"}, daemon.path, "yes\n").status, exit_ok);
    EXPECT_EQ(ctl({"reset-defaults", "--yes"}, daemon.path).status, exit_ok);
    daemon.stop();
    EXPECT_EQ(daemon.received.size(), 2u);
}

TEST_F(Asking, BridgeModeAsksOnlyWherePeopleAre) {
    (void)publish(0, 1);
    const ctl_result refused = ctl({"mode", "bridge"}, daemon.path, "no\n");
    EXPECT_EQ(refused.status, exit_negative);
    EXPECT_TRUE(
        refused.err.starts_with("Bridge mode takes all 1 client out of the table; 0 remembered clients "
                                "will come back with routed mode.\nType yes to go on: "))
        << refused.err;
    (void)ctl({"mode", "bridge"}, daemon.path, "yes\n");
    (void)ctl({"mode", "bridge"}, daemon.path);
    (void)ctl({"mode", "bridge", "--yes"}, daemon.path, "");
    (void)ctl({"mode", "routed"}, daemon.path, "");
    daemon.stop();
    EXPECT_EQ(daemon.received.size(), 4u);
}

// --- what happened
// --------------------------------------------------------------------------------------------

TEST_F(QuerySegment, AChangeIsToldAndGivesZero) {
    hbs_client *client = publish(0, 0x11);
    fake_daemon daemon([&](const datagram &) {
        client->trust = HBS_TRUST_SITE;
        strcpy(client->comment, "door");
        return answer_bytes(0);
    });
    const ctl_result result = ctl({"trust", "set", "site", mac, "--comment", "door"}, daemon.path);
    EXPECT_EQ(result.status, exit_ok);
    EXPECT_EQ(result.out, "trust for sites of " + mac + ": set\ncomment of " + mac + ": set to 'door'\n");
    EXPECT_EQ(result.err, "");
}

TEST_F(QuerySegment, AChangeWithARefusalGivesOneAndTellsBoth) {
    hbs_client *client = publish(0, 0x11);
    fake_daemon daemon([&](const datagram &) {
        client->trust = HBS_TRUST_SITE;
        return answer_bytes(-1);
    });
    const ctl_result result = ctl({"trust", "set", "site", mac}, daemon.path);
    EXPECT_EQ(result.status, exit_negative);
    EXPECT_EQ(result.out, "trust for sites of " + mac + ": set\nrefused: no such client\n");
}

TEST_F(QuerySegment, InBridgeModeNothingIsSentUnlessForced) {
    (void)publish(0, 0x11);
    fake_daemon daemon(always(0));
    daemon.routed = false;
    EXPECT_EQ(ctl({"trust", "set", "site", mac}, daemon.path).err,
              "hbsctl: trust set: nothing changed: the gateway is in bridge mode, in which it ignores this "
              "(--force sends it all the same)\n");
    EXPECT_EQ(ctl({"trust", "set", "site", mac, "--force"}, daemon.path).status, exit_negative);
    daemon.stop();
    EXPECT_EQ(daemon.received.size(), 1u);
}

TEST(Daemon, IsThereWhenSomebodyReceives) {
    EXPECT_FALSE(daemon_is_there(nobody));
    fake_daemon daemon(always(0));
    EXPECT_TRUE(daemon_is_there(daemon.path));
    daemon.stop();
    EXPECT_FALSE(daemon_is_there(daemon.path));
}

} // namespace commands_test
