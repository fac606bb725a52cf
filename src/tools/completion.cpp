#include "tools/completion.h"

#include <algorithm>

#include "tools/arguments.h"
#include "tools/client_table.h"
#include "tools/database.h"
#include "tools/words.h"

namespace {

// The command that the words name, as far as they name one.
const CLI::App *command_of(CLI::App &app, const std::vector<std::string> &words) {
    CLI::App *command = &app;
    for (size_t i = 0; i + 1 < words.size(); i++) {
        const auto below =
            command->get_subcommands([&](const CLI::App *one) { return one->get_name() == words[i]; });
        command = below.empty() ? command : below.front();
        if (auto *late = dynamic_cast<late_command *>(command))
            late->declare();
    }
    return command;
}

void add_options(std::vector<std::string> &found, const CLI::App *command) {
    for (; command != nullptr; command = command->get_parent())
        for (const CLI::Option *option : command->get_options())
            if (option->nonpositional())
                found.push_back(option->get_name());
}

// What stands by position is a client, or one of the words that its type names: "bridge|routed".
bool names_a_client(const CLI::Option *argument) {
    return argument->get_type_name() == "CLIENT";
}

// The type of an option may stand before them: "TEXT:network|ip".
void add_choices(std::vector<std::string> &found, const CLI::Option *argument) {
    const std::string type = argument->get_type_name();
    const std::string words = type.substr(type.find(':') + 1);
    if (words.find('|') == std::string::npos)
        return;
    for (const std::string &word : CLI::detail::split(words, '|'))
        found.push_back(word);
}

// The option that takes a value and is called so; null: there is none.
const CLI::Option *option_of(const CLI::App *command, const std::string &name) {
    for (; command != nullptr; command = command->get_parent())
        for (const CLI::Option *option : command->get_options())
            if (option->nonpositional() && option->get_expected_max() > 0 && option->check_name(name))
                return option;
    return nullptr;
}

// Of several values with commas between them the last one is completed.
std::vector<std::string> values_of(const CLI::Option *option, const std::string &begun) {
    std::vector<std::string> found;
    add_choices(found, option);
    const size_t comma = option->get_delimiter() == '\0' ? std::string::npos : begun.rfind(',');
    for (std::string &value : found)
        value.insert(0, comma == std::string::npos ? "" : begun.substr(0, comma + 1));
    return found;
}

// "--sort=na" is one word.
std::vector<std::string> joined_values_of(const CLI::App *command, const std::string &begun) {
    const size_t equals = begun.find('=');
    const CLI::Option *option =
        equals == std::string::npos ? nullptr : option_of(command, begun.substr(0, equals));
    std::vector<std::string> found;
    if (option != nullptr)
        for (const std::string &value : values_of(option, begun.substr(equals + 1)))
            found.push_back(begun.substr(0, equals + 1) + value);
    return found;
}

// A name comes from a stranger, and a shell would take more than letters apart.
bool is_plain(const std::string &name) {
    constexpr const char *letters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-:";
    return !name.empty() && name[0] != '-' && name.find_first_not_of(letters) == std::string::npos;
}

void add_clients(std::vector<std::string> &found) {
    try {
        for (const hbs_client &client : read_database().clients)
            for (const std::string &name :
                 {client_name(client), ipv4_text(client.ipv4), mac_text(client.mac)})
                if (is_plain(name))
                    found.push_back(name);
    } catch (const database_error &) {
        return; // there is nobody to offer
    }
}

void add_arguments(std::vector<std::string> &found, const CLI::App *command) {
    for (const CLI::Option *argument :
         command->get_options([](const CLI::Option *option) { return option->get_positional(); })) {
        add_choices(found, argument);
        if (names_a_client(argument))
            add_clients(found);
    }
}

void add_words(std::vector<std::string> &found, const CLI::App *command) {
    add_arguments(found, command);
    for (const CLI::App *below : command->get_subcommands([](const CLI::App *) { return true; }))
        found.push_back(below->get_name());
}

} // namespace

std::vector<std::string> completions(CLI::App &app, const std::vector<std::string> &words) {
    const std::string begun = words.empty() ? "" : words.back();
    const CLI::App *command = command_of(app, words);
    const CLI::Option *option = words.size() < 2 ? nullptr : option_of(command, words[words.size() - 2]);
    std::vector<std::string> found =
        option != nullptr ? values_of(option, begun) : joined_values_of(command, begun);
    if (option == nullptr && begun.rfind('-', 0) == 0)
        add_options(found, command);
    else if (option == nullptr)
        add_words(found, command);
    std::erase_if(found, [&](const std::string &word) { return word.rfind(begun, 0) != 0; });
    std::sort(found.begin(), found.end());
    found.erase(std::unique(found.begin(), found.end()), found.end());
    return found;
}
