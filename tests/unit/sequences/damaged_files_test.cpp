// Damaged settings files: whatever stands in them, what is readable is loaded, the rest is skipped, the
// daemon starts, and what is set afterwards is kept.
#include <algorithm>
#include <random>
#include <string>

#include "base/paths.h"
#include "support/management.h"

namespace damaged_files_test {

std::vector<std::string> split(const std::string &text, char end) {
    std::vector<std::string> parts;
    for (size_t begin = 0; begin < text.size();) {
        const size_t at = std::min(text.find(end, begin), text.size());
        parts.push_back(text.substr(begin, at - begin));
        begin = at + 1;
    }
    return parts;
}

// Ways to damage a text; `random` decides where.
std::string damage(std::string text, std::mt19937 &random) {
    const auto place = [&] { return text.empty() ? 0 : random() % text.size(); };
    switch (random() % 7) {
    case 0: // cut off
        return text.substr(0, place());
    case 1: // beginning lost
        return text.substr(place());
    case 2: // a few bytes changed
        for (unsigned i = 1 + random() % 8; i > 0 && !text.empty(); --i)
            text[place()] = static_cast<char>(random());
        return text;
    case 3: // one bit flipped
        if (!text.empty())
            text[place()] ^= static_cast<char>(1u << random() % 8);
        return text;
    case 4: // a piece twice
        return text.insert(place(), text.substr(place(), random() % 200));
    case 5: // a block of zeros, as a file system leaves it
        return text.replace(place(), random() % 300, std::string(random() % 300, '\0'));
    default: // anything
        text.resize(random() % 3000);
        for (char &c : text)
            c = static_cast<char>(random());
        return text;
    }
}

class DamagedFiles : public ManagementTest {
  protected:
    // What start-up does with these files.
    static void start() {
        EXPECT_EQ(0, hbs_set_route_mode(0));
        if (hbs_nv_load_clients() != 0)
            hbs_nv_save_clients();
        hbs_nv_load_rules();
        hbs_db_ready = 1;
        expect_store_sound();
    }

    static bool any_client(const std::string &mac, const std::string &comment) {
        for (const hbs_client *client = hbs_client_first(); client != nullptr;
             client = hbs_client_next(client))
            if (hbs_mac_to_text(client->mac).text == mac && client->comment == comment)
                return true;
        return false;
    }

    static bool any_rule(const std::string &mac, uint32_t key) {
        const auto entries = rules();
        return std::any_of(entries.begin(), entries.end(), [&](const hbs_rule_entry &entry) {
            return hbs_mac_to_text(entry.mac).text == mac && entry.p[0] == key;
        });
    }

    static std::string mac_number(int number) { return "02:aa:00:00:00:0" + std::to_string(number); }

    static std::string clients(int count) {
        std::string text = " version 1\n";
        for (int i = 1; i <= count; ++i)
            text +=
                Persisted{.mac = mac_number(i), .comment = "client " + std::to_string(i), .trust = 1}.line() +
                "\n";
        return text;
    }

    static void update_rule(const std::string &mac, hbs_rule rule) {
        (void)hbs_nv_update_client_white_rules(HBS_WHITE_RULES, mac_of(mac).data(), &rule);
    }
};

using DamagedClientFile = DamagedFiles;
using DamagedRuleFile = DamagedFiles;
using DamagedTrustedDevices = DamagedFiles;

TEST_F(DamagedClientFile, CutOffAnywhere_LoadsTheWholeLinesBeforeTheCut) {
    const std::string whole = clients(3);
    const size_t head = whole.find('\n') + 1;
    for (size_t length = 0; length <= whole.size(); ++length) {
        write_file(HBS_CLIENT_FILE, whole.substr(0, length));
        start();
        const size_t lines =
            static_cast<size_t>(std::count(whole.begin(), whole.begin() + static_cast<long>(length), '\n'));
        for (size_t i = 1; length >= head && i < lines; ++i)
            EXPECT_TRUE(any_client(mac_number(static_cast<int>(i)), "client " + std::to_string(i))) << length;
        EXPECT_LE(working_clients(), lines) << length << ": a part of a line counts as at most one client";
        ASSERT_EQ(0, trust(LAPTOP, "set afterwards")) << length;
        start();
        EXPECT_TRUE(any_client(LAPTOP, "set afterwards")) << length;
    }
}

TEST_F(DamagedClientFile, InAnotherOrder_LoadsEveryClient) {
    std::mt19937 random(1);
    auto lines = split(clients(6), '\n');
    for (int round = 0; round < 20; ++round) {
        std::shuffle(lines.begin() + 1, lines.end(), random);
        std::string text;
        for (const std::string &line : lines)
            text += line + "\n";
        write_file(HBS_CLIENT_FILE, text);
        start();
        EXPECT_EQ(6u, working_clients());
        for (int i = 1; i <= 6; ++i)
            EXPECT_TRUE(any_client(mac_number(i), "client " + std::to_string(i)));
    }
}

TEST_F(DamagedClientFile, WithLinesTwice_LoadsAClientForEachAndKeepsWhatIsSet) {
    write_file(HBS_CLIENT_FILE, clients(2) + clients(2).substr(11));
    start();
    EXPECT_EQ(4u, working_clients());
    EXPECT_EQ(0, trust(mac_number(1), "set afterwards"));
    start();
    EXPECT_STREQ("set afterwards", client_of(mac_number(1))->comment);
}

TEST_F(DamagedClientFile, OfManyMoreClientsThanFit_LoadsAsManyAsThereIsRoomFor) {
    std::string text = " version 1\n";
    for (int i = 0; i < 2000; ++i) {
        char mac[18];
        (void)snprintf(mac, sizeof mac, "02:bb:00:00:%02x:%02x", i / 256, i % 256);
        text += Persisted{.mac = mac, .trust = 1}.line() + "\n";
    }
    write_file(HBS_CLIENT_FILE, text);
    start();
    EXPECT_EQ(static_cast<size_t>(HBS_MAX_WORKING), working_clients());
    EXPECT_EQ(size_t{HBS_MAX_CLIENTS}, clients_seen());
    EXPECT_EQ(text, client_file());
}

TEST_F(DamagedClientFile, WithAZeroInALine_TakesTheLineUpToItAndReplacesItWhole) {
    const std::string line = Persisted{.mac = LAPTOP, .comment = "old", .trust = 1}.line();
    write_file(HBS_CLIENT_FILE, " version 1\n" + line + std::string(3, '\0') + "rest\n");
    start();
    ASSERT_TRUE(any_client(LAPTOP, "old"));
    EXPECT_EQ(0, trust(LAPTOP, "new"));
    const Persisted expected{.mac = LAPTOP, .comment = "new", .trust = 1};
    EXPECT_EQ(" version 1\n" + expected.line() + "\n", client_file());
}

TEST_F(DamagedClientFile, InAnyWay_StillStartsAndKeepsWhatIsSetAfterwards) {
    std::mt19937 random(20261121);
    for (int round = 0; round < 600; ++round) {
        std::string text = clients(4);
        for (unsigned blows = 1 + random() % 3; blows > 0; --blows)
            text = damage(text, random);
        SCOPED_TRACE("round " + std::to_string(round));
        write_file(HBS_CLIENT_FILE, text);
        start();
        const std::string mac = mac_number(1 + static_cast<int>(random() % 5));
        if (trust(mac, "set afterwards") != 0)
            continue; // every working copy is taken
        start();
        EXPECT_TRUE(any_client(mac, "set afterwards"));
        if (HasFailure())
            break;
    }
    EXPECT_TRUE(no_command_ran());
}

TEST_F(DamagedRuleFile, CutOffAnywhere_LoadsTheWholeRulesBeforeTheCut) {
    write_file(HBS_CLIENT_FILE, clients(2));
    const std::string whole = mac_number(1) + ";a 1 2 3 4 5;b 1 2;\n" + mac_number(2) + ";c 1 2 3 4 5;\n";
    for (size_t length = 0; length <= whole.size(); ++length) {
        write_file(HBS_WHITE_RULES, whole.substr(0, length));
        start();
        EXPECT_EQ(length >= whole.find(";b"), any_rule(mac_number(1), 0xa) && rules()[0].p[6] == 5) << length;
        EXPECT_EQ(length >= whole.find("2;\n") + 1, any_rule(mac_number(1), 0xb)) << length;
        update_rule(mac_number(2), {{0xd, 1, 2, 3, 4, 5}});
        start();
        EXPECT_TRUE(any_rule(mac_number(2), 0xd)) << length << ": " << read_file(HBS_WHITE_RULES);
    }
}

TEST_F(DamagedRuleFile, InAnotherOrderAndTwice_LoadsEachRuleOnce) {
    write_file(HBS_CLIENT_FILE, clients(3));
    std::vector<std::string> lines = {mac_number(1) + ";a 1 2;", mac_number(2) + ";b 1 2;c 1 2;",
                                      mac_number(3) + ";d 1 2;", mac_number(1) + ";a 1 2;e 1 2;"};
    std::mt19937 random(2);
    for (int round = 0; round < 24; ++round) {
        std::shuffle(lines.begin(), lines.end(), random);
        write_file(HBS_BLACK_RULES, lines[0] + "\n" + lines[1] + "\n" + lines[2] + "\n" + lines[3] + "\n");
        start();
        EXPECT_EQ(5u, rules().size());
        EXPECT_TRUE(any_rule(mac_number(1), 0xa) && any_rule(mac_number(1), 0xe) &&
                    any_rule(mac_number(2), 0xb) && any_rule(mac_number(2), 0xc) &&
                    any_rule(mac_number(3), 0xd));
    }
}

TEST_F(DamagedRuleFile, InAnyWay_StillLoadsKeepsNewRulesAndLeavesTheOtherLines) {
    write_file(HBS_CLIENT_FILE, clients(4));
    std::mt19937 random(3);
    const std::string mac = mac_number(1);
    for (int round = 0; round < 600; ++round) {
        std::string text;
        for (int i = 1; i <= 4; ++i) {
            text += mac_number(i) + ";";
            for (unsigned rule = 1 + random() % 40; rule > 0; --rule)
                text += std::to_string(rule) + " 1 2 3 4 5;";
            text += "\n";
        }
        for (unsigned blows = random() % 3; blows > 0; --blows)
            text = damage(text, random);
        SCOPED_TRACE("round " + std::to_string(round));
        write_file(HBS_WHITE_RULES, text);
        start();
        const auto before = split(text, '\n');
        update_rule(mac, {{0xfff, 7, 7, 7, 7, 7}});
        auto after = split(read_file(HBS_WHITE_RULES), '\n');
        ASSERT_GE(after.size(), before.size());
        size_t changed = after.size() - before.size();
        for (size_t i = 0; i < before.size(); ++i)
            changed += before[i] != after[i] ? 1 : 0;
        EXPECT_EQ(1u, changed) << "one line is added or changed";
        // The rule is found again unless its line has thirty others before it.
        bool left = false;
        const hbs_rule rule = {{0xfff, 7, 7, 0, 0, 0}};
        EXPECT_EQ(0, hbs_nv_clear_client_rules(HBS_WHITE_RULES, mac_of(mac).data(), &rule, &left));
        if (HasFailure())
            break;
    }
}

TEST_F(DamagedTrustedDevices, InAnyWay_TakeANewRecordAndGiveItBack) {
    std::mt19937 random(4);
    for (int round = 0; round < 2000; ++round) {
        (void)remove(HBS_TRUSTED_INSTANCES);
        for (unsigned i = 1; i <= 4; ++i) {
            hbs_trusted_device device{};
            const Mac mac = mac_of(mac_number(static_cast<int>(i)));
            std::copy(mac.begin(), mac.end(), device.mac);
            device.instance = i;
            ASSERT_EQ(0, hbs_nv_set_trusted_tr69_instance(&device));
        }
        std::string text = read_file(HBS_TRUSTED_INSTANCES);
        for (unsigned blows = 1 + random() % 2; blows > 0; --blows)
            text = damage(text, random);
        write_file(HBS_TRUSTED_INSTANCES, text);
        hbs_trusted_device device{};
        const Mac mac = mac_of(LAPTOP);
        std::copy(mac.begin(), mac.end(), device.mac);
        device.instance = 77;
        EXPECT_EQ(0, hbs_nv_set_trusted_tr69_instance(&device)) << round;
        EXPECT_EQ(77, instance_of(LAPTOP)) << round;
        EXPECT_EQ(0, hbs_nv_remove_trusted_tr69_instance(mac.data())) << round;
        EXPECT_EQ(-1, instance_of(LAPTOP)) << round;
        if (HasFailure())
            break;
    }
}

TEST_F(DamagedTrustedDevices, CutOff_KeepTheWholeRecordsBeforeTheCut) {
    for (const char *mac : {LAPTOP, TABLET})
        ASSERT_EQ(0, trust(mac));
    const std::string whole = read_file(HBS_TRUSTED_INSTANCES);
    ASSERT_EQ(74u, whole.size());
    for (size_t length = 37; length < whole.size(); ++length) {
        write_file(HBS_TRUSTED_INSTANCES, whole.substr(0, length));
        EXPECT_EQ(0, instance_of(LAPTOP)) << length;
        EXPECT_EQ(-1, instance_of(TABLET)) << length;
        EXPECT_EQ(0, trust(TABLET)) << length;
        EXPECT_EQ(0, instance_of(TABLET)) << length;
        EXPECT_EQ(whole, read_file(HBS_TRUSTED_INSTANCES)) << length;
    }
}

} // namespace damaged_files_test
