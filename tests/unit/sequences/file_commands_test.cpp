// The log names a command for each edit of a settings file but a deletion. That very command, and for a
// deletion the one that would be named, run by a shell on a copy of the file as it was, leaves what the edit
// left.
#include <cstdlib>
#include <functional>
#include <string>

#include "base/paths.h"
#include "support/management.h"

namespace file_commands_test {

struct Edit {
    const char *name;
    std::string file;   // the one that is edited
    std::string before; // what it held, "-" when it is not there
    std::function<void()> run;
    std::string program; // which command the log has to name; DELETION: none
};

constexpr const char *DELETION = "sed '/^";

std::string replace_all(std::string text, const std::string &what, const std::string &by) {
    for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size())
        text.replace(at, what.size(), by);
    return text;
}

class FileCommands : public ManagementTest {
  protected:
    // The commands that the log names, in order.
    std::vector<std::string> commands() const {
        std::vector<std::string> found;
        for (const std::string &line : log_lines()) {
            const size_t at = line.find(": execute: ");
            if (at != std::string::npos)
                found.push_back(line.substr(at + 11));
        }
        return found;
    }

    // Runs the edit on the file and the command that it names on a copy, and compares what they leave.
    void expect_same(const Edit &edit) {
        SCOPED_TRACE(edit.name);
        const std::string copy = directory() + "/copy";
        (void)remove(edit.file.c_str());
        (void)remove(copy.c_str());
        if (edit.before != "-") {
            write_file(edit.file, edit.before);
            write_file(copy, edit.before);
        }
        clear_log();
        edit.run();
        auto named = commands();
        if (edit.program == DELETION) {
            EXPECT_TRUE(named.empty()) << named[0];
            named = {deletion_from(edit.before, edit.file)};
        }
        ASSERT_EQ(1u, named.size());
        EXPECT_EQ(0u, named[0].find(edit.program)) << named[0];
        run(replace_all(named[0], edit.file, copy), copy);
        EXPECT_EQ(read_file(copy), read_file(edit.file));
        EXPECT_NE(edit.before, read_file(edit.file)) << "an edit that changes nothing compares nothing";
    }

    // What deletes the first line of the client.
    static std::string deletion_from(const std::string &text, const std::string &file) {
        const size_t at = text.find(LAPTOP);
        const std::string old_line = text.substr(at, text.find('\n', at) - at);
        return DELETION + old_line + "/d' " + file + " > " + file + ".beside";
    }

    // The data of these tests are benign, so a shell may see them. A deletion writes to a file beside, which
    // is then copied back and removed.
    static void run(const std::string &command, const std::string &copy) {
        ASSERT_EQ(0, system(command.c_str())) << command;
        const size_t to = command.find(" > ");
        if (command.find(" >> ") != std::string::npos || to == std::string::npos)
            return;
        const std::string beside = command.substr(to + 3);
        ASSERT_EQ(0, system(("cp " + beside + " " + copy + " && rm -f " + beside).c_str()));
    }

    static hbs_client *client(const std::string &mac, uint32_t trust) {
        hbs_client *found = client_of(mac);
        if (found == nullptr)
            found = hbs_add(mac_of(mac).data());
        found->trust = trust;
        return found;
    }

    static std::string line(const std::string &mac, const std::string &comment = "~nocomment~") {
        return Persisted{.mac = mac, .comment = comment, .trust = 1}.line() + "\n";
    }

    static void update_rule(const std::string &mac, hbs_rule rule) {
        EXPECT_EQ(0, hbs_nv_update_client_white_rules(HBS_WHITE_RULES, mac_of(mac).data(), &rule));
    }
    static void clear_rule(const std::string &mac, hbs_rule rule) {
        bool left = false;
        EXPECT_EQ(0, hbs_nv_clear_client_rules(HBS_WHITE_RULES, mac_of(mac).data(), &rule, &left));
    }
};

TEST_F(FileCommands, OfTheClientFile) {
    const std::string others = line("02:aa:00:00:00:10") + line("02:aa:00:00:00:1f", "x y");
    const std::string head = " version 1\n";
    const Edit edits[] = {
        {"append to the empty file", HBS_CLIENT_FILE, head, [] { hbs_nv_update_client(client(LAPTOP, 1)); },
         "echo "},
        {"append behind others", HBS_CLIENT_FILE, head + others,
         [] { hbs_nv_update_client(client(LAPTOP, 1)); }, "echo "},
        {"append without trust", HBS_CLIENT_FILE, head + others,
         [] { hbs_nv_update_client(client(LAPTOP, 0)); }, "echo "},
        {"replace the first", HBS_CLIENT_FILE, head + line(LAPTOP, "old") + others,
         [] { hbs_nv_update_client(client(LAPTOP, 2)); }, "sed -i 's/"},
        {"replace the last", HBS_CLIENT_FILE, head + others + line(LAPTOP, "old"),
         [] { hbs_nv_update_client(client(LAPTOP, 0x1f)); }, "sed -i 's/"},
        {"replace the last without a newline", HBS_CLIENT_FILE,
         head + others + Persisted{.mac = LAPTOP}.line(), [] { hbs_nv_update_client(client(LAPTOP, 4)); },
         "sed -i 's/"},
        {"replace one that is there twice", HBS_CLIENT_FILE,
         head + line(LAPTOP, "old") + others + line(LAPTOP, "old"),
         [] { hbs_nv_update_client(client(LAPTOP, 8)); }, "sed -i 's/"},
        {"delete", HBS_CLIENT_FILE, head + line(LAPTOP, "old") + others,
         [] { hbs_nv_update_client(client(LAPTOP, 0)); }, DELETION},
        {"delete one that is there twice", HBS_CLIENT_FILE, head + line(LAPTOP) + others + line(LAPTOP),
         [] { hbs_nv_update_client(client(LAPTOP, 0)); }, DELETION},
        {"delete a short line and what begins like it", HBS_CLIENT_FILE,
         head + "02:aa:00:00:00:11 0\n" + others + line(LAPTOP),
         [] { hbs_nv_update_client(client(LAPTOP, 0)); }, DELETION},
    };
    for (const Edit &edit : edits)
        expect_same(edit);
}

TEST_F(FileCommands, OfTheClientFileWithFullTexts) {
    hbs_client *full = client(LAPTOP, 1);
    for (char *field : {full->comment, full->keyword_list, full->description, full->domain_list})
        std::fill_n(field, 255, '\'');
    std::fill_n(full->host, 63, '&');
    expect_same({"append", HBS_CLIENT_FILE, " version 1\n", [&] { hbs_nv_update_client(full); }, "echo "});
    const std::string before = read_file(HBS_CLIENT_FILE);
    std::fill_n(full->comment, 255, '\\');
    expect_same({"replace", HBS_CLIENT_FILE, before, [&] { hbs_nv_update_client(full); }, "sed -i 's/"});
}

TEST_F(FileCommands, OfTheRuleFiles) {
    const std::string other = "02:aa:00:00:00:10;1 2 3 4 5 6;7 8 9 0 0 0;\n";
    const Edit edits[] = {
        {"first rule of the file", HBS_WHITE_RULES, "-",
         [] {
             update_rule(LAPTOP, {{0xa, 1, 2, 3, 4, 5}});
         },
         "echo "},
        {"first rule of a client", HBS_WHITE_RULES, other,
         [] {
             update_rule(LAPTOP, {{0xa, 1, 2, 3, 4, 5}});
         },
         "echo "},
        {"another rule", HBS_WHITE_RULES, "02:aa:00:00:00:11;1 2 3 4 5 6;\n" + other,
         [] {
             update_rule(LAPTOP, {{0xffffffff, 65535, 2, 3, 0xffffffff, 5}});
         },
         "sed -i 's/"},
        {"a rule anew", HBS_WHITE_RULES, other + "02:aa:00:00:00:11;1 2 3;4 5 6;\n",
         [] {
             update_rule(LAPTOP, {{1, 2, 3, 9, 9, 9}});
         },
         "sed -i 's/"},
        {"first of three rules away", HBS_WHITE_RULES, other + "02:aa:00:00:00:11;1 2 3;4 5 6;7 8 9 1 1 1;\n",
         [] {
             clear_rule(LAPTOP, {{1, 2, 3}});
         },
         "sed -i 's/"},
        {"last of three rules away", HBS_WHITE_RULES, "02:aa:00:00:00:11;1 2 3;4 5 6;7 8 9 1 1 1;\n" + other,
         [] {
             clear_rule(LAPTOP, {{7, 8, 9}});
         },
         "sed -i 's/"},
        {"only rule away", HBS_WHITE_RULES, other + "02:aa:00:00:00:11;1 2 3 4 5 6;\n",
         [] {
             clear_rule(LAPTOP, {{1, 2, 3}});
         },
         DELETION},
        {"only rule of the file away", HBS_WHITE_RULES, "02:aa:00:00:00:11;1 2 3;\n",
         [] {
             clear_rule(LAPTOP, {{1, 2, 3}});
         },
         DELETION},
        {"only rule away, and what begins like its line", HBS_WHITE_RULES,
         "02:aa:00:00:00:11;1 2 3;\n" + other + "02:aa:00:00:00:11;1 2 3;4 5 6;\n",
         [] {
             clear_rule(LAPTOP, {{1, 2, 3}});
         },
         DELETION},
    };
    for (const Edit &edit : edits)
        expect_same(edit);
    EXPECT_FALSE(no_command_ran()) << "these did, so the look at it can tell";
}

} // namespace file_commands_test
