// The persistence file of clients: load, full save, per-client update, reset.
#include <cstring>
#include <string>
#include <sys/stat.h>

#include "base/hex.h"
#include "base/paths.h"
#include "files/client_file.h"
#include "files/client_line.h"
#include "files/rule_files.h"
#include "files/trusted_devices.h"
#include "support/events.h"

namespace client_file_test {

constexpr const char *FILE_ERROR =
    "HOSTBASE: hbs_nv_load_clients: /nvram/8/hostbase.txt File format error, first line:%. it should be like "
    "'version *'.";

std::string hex(const std::string &text) {
    std::string out(2 * text.size() + 1, '\0');
    out.resize(hbs_str_to_hex(text.c_str(), out.data(), out.size()));
    return out;
}

std::string line_of(const hbs_client *client) {
    char line[HBS_CLIENT_LINE_SIZE];
    hbs_client_line_format(client, line);
    return line;
}

class ClientFile : public EventTest {
  protected:
    static hbs_client *client_of(const std::string &mac) { return hbs_find_by_mac(mac_of(mac).data()); }

    static void write_clients(const std::string &lines) {
        write_file(HBS_CLIENT_FILE, " version 1\n" + lines);
    }

    static std::string full_line(const std::string &mac, const std::string &trust = "00000001") {
        return mac + " 0 " + hex("laptop") + " " + hex("mine") + " " + trust + " " + hex("kw") + " " +
               hex("desc") + " 42 " + hex("dom") + "\n";
    }

    size_t clients() const {
        size_t count = 0;
        for (hbs_client *client = hbs_client_first(); client != nullptr; client = hbs_client_next(client))
            ++count;
        return count;
    }
};

using ClientFileLoad = ClientFile;
using ClientFileSave = ClientFile;
using ClientFileUpdate = ClientFile;

TEST_F(ClientFileLoad, WhenMissing_SaysSoAndWritesNothing) {
    EXPECT_EQ(-1, hbs_nv_load_clients());
    EXPECT_TRUE(logged("HOSTBASE: hbs_nv_load_clients: NO NV file /nvram/8/hostbase.txt"));
    EXPECT_FALSE(file_exists(HBS_CLIENT_FILE));
}

TEST_F(ClientFileLoad, OfAWholeLine_FillsEveryFieldAndPublishes) {
    write_clients("02:aa:00:00:00:11 9 " + hex("laptop") + " " + hex("it's $(mine)") + " 0000000d " +
                  hex("kw") + " " + hex("desc") + " -42 " + hex("dom") + "\n");
    EXPECT_EQ(0, hbs_nv_load_clients());
    const hbs_client *client = client_of("02:aa:00:00:00:11");
    ASSERT_NE(nullptr, client);
    EXPECT_EQ(9, client->nwidx);
    EXPECT_STREQ("laptop", client->host);
    EXPECT_STREQ("it's $(mine)", client->comment);
    EXPECT_EQ(0xdu, client->trust);
    EXPECT_EQ(0u, client->flags) << "the loaded trust word clears the state, change marks too";
    EXPECT_STREQ("kw", client->keyword_list);
    EXPECT_STREQ("desc", client->description);
    EXPECT_EQ(-42, client->mac_filter);
    EXPECT_STREQ("dom", client->domain_list);
    EXPECT_NE(0u, client->dbpos);
    EXPECT_TRUE(logged("HOSTBASE: hbs_nv_load_clients: has host laptop"));
    EXPECT_TRUE(logged("HOSTBASE: hbs_nv_load_clients: has comment it's $(mine)"));
    EXPECT_TRUE(logged("HOSTBASE: hbs_nv_load_clients: has keyword_list kw"));
    EXPECT_TRUE(logged("HOSTBASE: hbs_nv_load_clients: has description desc"));
    EXPECT_TRUE(logged("HOSTBASE: hbs_nv_load_clients: has domain_list dom"));
}

TEST_F(ClientFileLoad, OfPlaceholders_LeavesTheTextsEmpty) {
    hbs_client empty{};
    const Mac mac = mac_of("02:aa:00:00:00:11");
    memcpy(empty.mac, mac.data(), mac.size());
    write_clients(line_of(&empty) + "\n");
    EXPECT_EQ(0, hbs_nv_load_clients());
    const hbs_client *client = client_of("02:aa:00:00:00:11");
    ASSERT_NE(nullptr, client);
    for (const char *text :
         {client->host, client->comment, client->keyword_list, client->description, client->domain_list})
        EXPECT_STREQ("", text);
    for (const char *word : {"NOHOST", "NOCOMMENT", "NOKEYWORD_LIST", "NODESCRIPTION", "NODOMAIN_LIST"})
        EXPECT_TRUE(logged(std::string("HOSTBASE: hbs_nv_load_clients: ") + word + " - set null string"))
            << word;
}

TEST_F(ClientFileLoad, OfTheHexOfOneEscape_LeavesTheFieldAsItWas) {
    write_clients("02:aa:00:00:00:11 0 1b 1b 00000001 1b 1b 0 1b\n");
    EXPECT_EQ(0, hbs_nv_load_clients());
    EXPECT_STREQ("", client_of("02:aa:00:00:00:11")->host);
}

TEST_F(ClientFileLoad, OfAShortLine_LoadsWhatItHas) {
    write_clients("02:aa:00:00:00:11\n02:aa:00:00:00:12 2\n02:aa:00:00:00:13 1 " + hex("tv") + "\n");
    EXPECT_EQ(0, hbs_nv_load_clients());
    EXPECT_EQ(0, client_of("02:aa:00:00:00:11")->nwidx);
    EXPECT_EQ(2, client_of("02:aa:00:00:00:12")->nwidx);
    EXPECT_STREQ("tv", client_of("02:aa:00:00:00:13")->host);
}

TEST_F(ClientFileLoad, SkipsLinesWithoutAUsableMac) {
    write_clients("\ngarbage\n00:11:22:33:44:55 0\n00:00:00:00:00:00 0\n02:aa:00:00:00 0\n" +
                  full_line("02:aa:00:00:00:11"));
    EXPECT_EQ(0, hbs_nv_load_clients());
    EXPECT_EQ(1u, clients());
}

TEST_F(ClientFileLoad, OfHexLongerThanTheField_EndsInsideIt) {
    write_clients("02:aa:00:00:00:11 0 " + hex(std::string(200, 'h')) + " " + hex(std::string(1500, 'c')) +
                  " 00000001\n");
    EXPECT_EQ(0, hbs_nv_load_clients());
    const hbs_client *client = client_of("02:aa:00:00:00:11");
    EXPECT_EQ(std::string(63, 'h'), client->host);
    EXPECT_EQ(std::string(255, 'c'), client->comment);
    EXPECT_EQ('\0', client->device_name[0]);
    EXPECT_EQ(1u, client->trust);
}

TEST_F(ClientFileLoad, OfTheLongestLineThatAnUpdateWrites_LoadsItWhole) {
    hbs_client full{};
    const Mac mac = mac_of("02:aa:00:00:00:11");
    memcpy(full.mac, mac.data(), mac.size());
    full.trust = 1;
    memset(full.host, 'h', sizeof full.host - 1);
    memset(full.comment, 'c', sizeof full.comment - 1);
    memset(full.keyword_list, 'k', sizeof full.keyword_list - 1);
    memset(full.description, 'd', sizeof full.description - 1);
    memset(full.domain_list, 'o', sizeof full.domain_list - 1);
    write_clients(line_of(&full) + "\n");
    EXPECT_EQ(0, hbs_nv_load_clients());
    EXPECT_EQ(1u, clients());
    EXPECT_EQ(std::string(255, 'o'), client_of("02:aa:00:00:00:11")->domain_list);
}

TEST_F(ClientFileLoad, AppliesAStaticLeaseFromTheServersFile) {
    write_file("/nvram/8/dhcpd/udhcpd.192.168.0.1.static_leases", "02:aa:00:00:00:11 192.168.0.77\n");
    write_clients(full_line("02:aa:00:00:00:11"));
    EXPECT_EQ(0, hbs_nv_load_clients());
    const hbs_client *client = client_of("02:aa:00:00:00:11");
    EXPECT_EQ("192.168.0.77", text_of(client->ipv4));
    EXPECT_EQ(HBS_FLAG_STIP4, client->flags & HBS_FLAGS_IP4);
}

TEST_F(ClientFileLoad, FallsBackToTheFileThatTheUserConfigurationNames) {
    write_file("/nvram/8/userconf", "1.3.6.1.4.1.32473.1.20.1.1.2.2.1.5.200=xc0a86401;\n");
    write_file("/nvram/8/dhcpd/udhcpd.192.168.100.1.static_leases", "02:aa:00:00:00:11 192.168.100.7\n");
    write_clients(full_line("02:aa:00:00:00:11"));
    EXPECT_EQ(0, hbs_nv_load_clients());
    EXPECT_EQ("192.168.100.7", text_of(client_of("02:aa:00:00:00:11")->ipv4));
}

TEST_F(ClientFileLoad, AcceptsAVersionWordWithoutItsBlank) {
    write_file(HBS_CLIENT_FILE, "version 1\n" + full_line("02:aa:00:00:00:11"));
    EXPECT_EQ(0, hbs_nv_load_clients());
    EXPECT_EQ(1u, clients());
}

TEST_F(ClientFileLoad, OfABadFirstLine_SaysSoRewritesTheFileAndFails) {
    for (const char *first : {"verzion 1\n", "versions! 1\n", "", "\n"}) {
        clear_log();
        write_file(HBS_CLIENT_FILE,
                   std::string(first) + full_line("02:aa:00:00:00:11").substr(0, first[0] != '\0' ? 999 : 0));
        EXPECT_EQ(-1, hbs_nv_load_clients()) << first;
        std::string message = FILE_ERROR;
        message.replace(message.find('%'), 1, first);
        EXPECT_TRUE(logged(message)) << first;
        EXPECT_EQ(" version 1\n", read_file(HBS_CLIENT_FILE));
        EXPECT_EQ(0u, clients());
    }
}

TEST_F(ClientFileLoad, OfAHigherVersion_SkipsItsLinesAndLeavesTheFile) {
    const std::string content =
        " version 2\n" + full_line("02:aa:00:00:00:11") + full_line("02:aa:00:00:00:12");
    write_file(HBS_CLIENT_FILE, content);
    EXPECT_EQ(-1, hbs_nv_load_clients());
    EXPECT_EQ(2u, logged_count("HOSTBASE: hbs_nv_load_clients: UNKNOWN FILE FORMAT 2"));
    EXPECT_EQ(content, read_file(HBS_CLIENT_FILE));
    EXPECT_EQ(0u, clients());
}

TEST_F(ClientFileLoad, OfItsFirstLineOnly_CountsAsLoadedWhateverItsVersion) {
    for (const auto &[first, left] : {std::pair{" version 1\n", " version 1\n"},
                                      {" version 2\n", " version 2\n"},
                                      {" version 0\n", " version 1\n"},
                                      {" version -3\n", " version 1\n"},
                                      {" version\n", " version 1\n"}}) {
        write_file(HBS_CLIENT_FILE, first);
        EXPECT_EQ(0, hbs_nv_load_clients()) << first;
        EXPECT_EQ(left, read_file(HBS_CLIENT_FILE)) << first;
    }
}

TEST_F(ClientFileLoad, OfVersionZero_RewritesTheFile) {
    write_file(HBS_CLIENT_FILE, " version 0\n" + full_line("02:aa:00:00:00:11"));
    EXPECT_EQ(-1, hbs_nv_load_clients());
    EXPECT_TRUE(logged("HOSTBASE: hbs_nv_load_clients: UNKNOWN FILE FORMAT 0"));
    EXPECT_EQ(" version 1\n", read_file(HBS_CLIENT_FILE));
}

TEST_F(ClientFileSave, WritesEveryClientInListOrderWithAllNineFields) {
    hbs_client *first = hbs_add(mac_of("02:aa:00:00:00:11").data());
    strcpy(first->host, "tv");
    strcpy(first->keyword_list, "kw");
    first->mac_filter = 5;
    hbs_client *second = hbs_add(mac_of("02:aa:00:00:00:12").data());
    strcpy(second->comment, "mine");
    hbs_nv_save_clients();
    EXPECT_EQ(" version 1\n" + line_of(first) + "\n" + line_of(second) + "\n", read_file(HBS_CLIENT_FILE));
    for (const std::string &text :
         {std::string("version 1"), std::string("mac 02:aa:00:00:00:11"), "convert host str " + hex("tv"),
          "convert NOHOST " + hex("~nohost~"), "convert comment str " + hex("mine"),
          "convert NOCOMMENT " + hex("~nocomment~")})
        EXPECT_TRUE(logged("HOSTBASE: hbs_nv_save_clients: " + text)) << text;
    EXPECT_EQ(2u, logged_count("HOSTBASE: hbs_nv_save_clients: write file"));
    EXPECT_EQ(2u, logged_count("HOSTBASE: hbs_nv_save_clients: done"));
    EXPECT_EQ(2u, logged_containing("HOSTBASE: hbs_nv_save_clients: save "));
}

TEST_F(ClientFileSave, WithoutItsDirectory_SaysNothingOfClients) {
    hbs_add(mac_of("02:aa:00:00:00:11").data());
    ASSERT_EQ(0, rename(HBS_PERSISTENT_DIR, HBS_PERSISTENT_DIR ".away"));
    hbs_nv_save_clients();
    ASSERT_EQ(0, rename(HBS_PERSISTENT_DIR ".away", HBS_PERSISTENT_DIR));
    EXPECT_EQ(0u, logged_containing("hbs_nv_save_clients"));
    EXPECT_TRUE(logged("HOSTBASE: can't replace /nvram/8/hostbase.txt (error 2)"));
}

TEST_F(ClientFileSave, ThenLoad_BringsHostileTextsBackByteForByte) {
    hbs_client *client = hbs_add(mac_of("02:aa:00:00:00:11").data());
    std::string bytes;
    for (int c = 1; c < 256; ++c)
        bytes += static_cast<char>(c);
    memcpy(client->comment, bytes.data(), bytes.size());
    strcpy(client->host, "a'b\"c\\d&e/f;$(id)`\n\xc3\xa9");
    client->trust = 1;
    hbs_nv_save_clients();
    hbs_client_free(client);
    EXPECT_EQ(0, hbs_nv_load_clients());
    const hbs_client *loaded = client_of("02:aa:00:00:00:11");
    EXPECT_EQ(bytes, loaded->comment);
    EXPECT_STREQ("a'b\"c\\d&e/f;$(id)`\n\xc3\xa9", loaded->host);
}

TEST_F(ClientFileUpdate, OfAnUnknownClient_AppendsItsLineAndNamesTheCommand) {
    write_clients("");
    hbs_client *client = hbs_add(mac_of("02:aa:00:00:00:11").data());
    client->trust = 1;
    hbs_nv_update_client(client);
    EXPECT_EQ(" version 1\n" + line_of(client) + "\n", read_file(HBS_CLIENT_FILE));
    EXPECT_TRUE(logged("HOSTBASE:  - generate macstr"));
    EXPECT_TRUE(logged("HOSTBASE: opened file version 1"));
    EXPECT_TRUE(logged("HOSTBASE: execute append cmd"));
    const std::string command = "echo '" + line_of(client) + "' >> /nvram/8/hostbase.txt";
    EXPECT_TRUE(logged("HOSTBASE:  : " + command));
    EXPECT_TRUE(logged("HOSTBASE: hbs_nv_update_client: execute: " + command));
}

TEST_F(ClientFileUpdate, LogsEachTextThatItEncodes) {
    write_clients("");
    hbs_client *client = hbs_add(mac_of("02:aa:00:00:00:11").data());
    hbs_nv_update_client(client);
    for (const char *word :
         {"NOHOSTtohex", "NOCOMMENTtohex", "NODOMAIN_LISTtohex", "DESCRIPTIONtohex", "NOKEYWORD_LISTtohex"})
        EXPECT_TRUE(logged(std::string("HOSTBASE: ") + word)) << word;
    for (char *text :
         {client->host, client->comment, client->domain_list, client->description, client->keyword_list})
        strcpy(text, "x");
    hbs_nv_update_client(client);
    for (const char *word :
         {"hosttohex", "commenttohex", "domain_listtohex", "descriptiontohex", "keyword_listtohex"})
        EXPECT_TRUE(logged(std::string("HOSTBASE: ") + word)) << word;
}

TEST_F(ClientFileUpdate, OfATrustedClient_ReplacesItsLineInPlace) {
    write_clients(full_line("02:aa:00:00:00:10") + full_line("02:aa:00:00:00:11") +
                  full_line("02:aa:00:00:00:12"));
    hbs_client *client = hbs_add(mac_of("02:aa:00:00:00:11").data());
    client->trust = 2;
    hbs_nv_update_client(client);
    EXPECT_EQ(" version 1\n" + full_line("02:aa:00:00:00:10") + line_of(client) + "\n" +
                  full_line("02:aa:00:00:00:12"),
              read_file(HBS_CLIENT_FILE));
    std::string old_line = full_line("02:aa:00:00:00:11");
    old_line.pop_back();
    EXPECT_TRUE(logged("HOSTBASE: found old entry " + old_line));
    EXPECT_TRUE(logged("HOSTBASE: hbs_nv_update_client: execute: sed -i 's/" + old_line + "/" +
                       line_of(client) + "/g' /nvram/8/hostbase.txt"));
}

TEST_F(ClientFileUpdate, OfAClientWithoutTrust_AppendsAtFirstAndDeletesTheSecondTime) {
    write_clients(full_line("02:aa:00:00:00:10"));
    hbs_client *client = hbs_add(mac_of("02:aa:00:00:00:11").data());
    hbs_nv_update_client(client);
    EXPECT_EQ(" version 1\n" + full_line("02:aa:00:00:00:10") + line_of(client) + "\n",
              read_file(HBS_CLIENT_FILE));
    hbs_nv_update_client(client);
    EXPECT_EQ(" version 1\n" + full_line("02:aa:00:00:00:10"), read_file(HBS_CLIENT_FILE));
}

TEST_F(ClientFileUpdate, OfAMacInsideAnotherLine_DoesNotTakeItForItsOwn) {
    const std::string other = "02:aa:00:00:00:10 0 " + hex("x") + " 02:aa:00:00:00:11\n";
    write_clients(other);
    hbs_client *client = hbs_add(mac_of("02:aa:00:00:00:11").data());
    client->trust = 1;
    hbs_nv_update_client(client);
    EXPECT_EQ(" version 1\n" + other + line_of(client) + "\n", read_file(HBS_CLIENT_FILE));
}

TEST_F(ClientFileUpdate, OfAMissingFile_WritesNothing) {
    hbs_nv_update_client(hbs_add(mac_of("02:aa:00:00:00:11").data()));
    EXPECT_FALSE(file_exists(HBS_CLIENT_FILE));
}

TEST_F(ClientFileUpdate, OfAnotherVersion_SaysSoAndWritesNothing) {
    write_file(HBS_CLIENT_FILE, " version 2\n");
    hbs_nv_update_client(hbs_add(mac_of("02:aa:00:00:00:11").data()));
    EXPECT_TRUE(logged("HOSTBASE: opened file version 2"));
    EXPECT_TRUE(logged("HOSTBASE: hbs_nv_update_client: file is wrong version /nvram/8/hostbase.txt"));
    EXPECT_EQ(" version 2\n", read_file(HBS_CLIENT_FILE));
}

TEST_F(ClientFileUpdate, AfterAllWasForgotten_TheFileHoldsItsVersionOnly) {
    write_clients(full_line("02:aa:00:00:00:11"));
    hbs_nv_forget_clients();
    EXPECT_EQ(" version 1\n", read_file(HBS_CLIENT_FILE));
}

TEST_F(ClientFileLoad, OfHexThatHoldsAZero_EndsTheTextThereAndPadsTheField) {
    write_clients("02:aa:00:00:00:11 0 616200637a 6100zz62 00000001\n");
    EXPECT_EQ(0, hbs_nv_load_clients());
    const hbs_client *client = client_of("02:aa:00:00:00:11");
    const hbs_client empty{};
    EXPECT_STREQ("ab", client->host);
    EXPECT_EQ(0, memcmp(client->host + 2, empty.host + 2, sizeof client->host - 2));
    EXPECT_STREQ("a", client->comment);
    EXPECT_EQ(0, memcmp(client->comment + 1, empty.comment + 1, sizeof client->comment - 1));
}

} // namespace client_file_test
