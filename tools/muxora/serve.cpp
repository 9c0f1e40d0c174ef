// muxora serve: becomes the gateway, which is a program of its own.
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "muxora/command.h"

namespace Orvane::Muxora::Tools {

namespace {

constexpr char kProgram[] = "muxora-serve";

void Serve(const CLI::App& command) {
    std::vector<std::string> words = command.remaining();
    words.insert(words.begin(), kProgram);
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    // Beside this program, then wherever programs are.
    std::error_code error;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
    execv((self.parent_path() / kProgram).c_str(), arguments.data());
    execvp(kProgram, arguments.data());
    throw Failure(std::string(kProgram) + " cannot be started: " + std::strerror(errno));
}

}  // namespace

void AddServe(CLI::App& app) {
    CLI::App* command = app.add_subcommand("serve", "Serve live streams to many (muxora serve --help tells more)");
    // The gateway reads its own options, --help among them.
    command->set_help_flag();
    command->prefix_command();
    command->callback([command] { Serve(*command); });
}

}  // namespace Orvane::Muxora::Tools
