// Command-line arguments of the kinds that hbsctl knows, checked while they are parsed.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tools/requests.h"
#include "tools/words.h"

// Each adds an argument (a bare name: by position, required; "--name": an option) that is written to
// `target`, which must live as long as the command tree.
CLI::Option *add_ip(CLI::App *command, const std::string &name, ip_address &target, const std::string &help);
CLI::Option *add_ipv4(CLI::App *command, const std::string &name, ipv4_bytes &target,
                      const std::string &help);
CLI::Option *add_ipv6(CLI::App *command, const std::string &name, ipv6_bytes &target,
                      const std::string &help);
CLI::Option *add_rule(CLI::App *command, const std::string &name, std::optional<rule_values> &target,
                      const std::string &help);
// A client, by its MAC, one of its addresses, or its name
CLI::Option *add_client(CLI::App *command, std::string &target, const std::string &name = "client",
                        const std::string &help = "Its MAC, one of its addresses, or its name");

// One of some words, each of which stands for a number.
using word_choices = std::vector<std::pair<std::string, uint32_t>>;
CLI::Option *add_choice(CLI::App *command, const std::string &name, uint32_t &target,
                        const word_choices &choices, const std::string &help);

// A time in seconds, from `least` to `most`; `target` holds its default.
constexpr double an_hour = 3600, a_year = 366 * 86400.0;
CLI::Option *add_seconds(CLI::App *command, const std::string &name, double &target, double least,
                         const std::string &help, double most = an_hour);

// A time such as "90", "90s", "10m", "2h" or "1d"; `target` gets seconds.
CLI::Option *add_duration(CLI::App *command, const std::string &name, double &target,
                          const std::string &help);

// Every command has it.
void add_help(CLI::App *command);

// A command that gets its arguments and its subcommands when a line names it: of the others only the name is
// looked at.
class late_command : public CLI::App {
  public:
    late_command(CLI::App *parent, const std::string &name, const std::string &help)
        : CLI::App(help, name, parent) {
        preparse_callback([this](size_t) { declare(); });
    }

    void declare_by(std::function<void()> add) { add_ = std::move(add); }

    void declare() {
        if (const auto add = std::exchange(add_, nullptr)) {
            add_help(this);
            add();
        }
    }

  private:
    std::function<void()> add_;
};

// A command that is nothing without one of its subcommands, which `add` adds to it.
void add_group(CLI::App *parent, const std::string &name, const std::string &help,
               const std::function<void(CLI::App *)> &add);

// A subcommand without arguments of its own; `add` declares what else it has.
void add_plain(
    CLI::App *parent, const std::string &name, const std::string &help, std::function<void()> run,
    const std::function<void(CLI::App *)> &add = [](CLI::App *) {});

// A subcommand whose arguments live in an `Arguments` of its own; `add` declares them on it and `run`
// is called with them once the whole command line has been parsed.
template <typename Arguments, typename Add, typename Run>
void add_command(CLI::App *parent, const std::string &name, const std::string &help, Add add, Run run) {
    const auto command = std::make_shared<late_command>(parent, name, help);
    const auto arguments = std::make_shared<Arguments>();
    command->declare_by([at = command.get(), add, arguments] { add(at, *arguments); });
    command->callback([arguments, run] { run(*arguments); });
    parent->add_subcommand(command);
}
