// The command line tool: real media in, every format out.
#include <CLI/CLI.hpp>

#ifdef __GLIBC__
#include <malloc.h>
#endif

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include "MuxoraAPI.h"
#include "common/json.h"
#include "media_input/media_input.h"
#include "muxora/command.h"

namespace {

using namespace Orvane::Muxora::Tools;

// A new subcommand adds its line here.
constexpr void (*kCommands[])(CLI::App&) = {
    AddFormats, AddInspect, AddPack, AddRepair, AddSend, AddServe, AddUnpack,
};

// One line, as text or for programs; on the standard error, because the standard output may be the media.
void Complain(const std::string& what, int exit_code, bool json) {
    if (json) {
        std::cerr << JsonLine({{"error", what}, {"exit_code", exit_code}}) << '\n';
    } else {
        std::cerr << "muxora: " << what << '\n';
    }
}

std::vector<std::string> CommandNames(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* command : app.get_subcommands([](const CLI::App* /*command*/) { return true; }))
        names.push_back(command->get_name());
    return names;
}

void CheckCommand(const CLI::App& app, const char* word) {
    if (word != nullptr && word[0] == '-') return;
    const std::vector<std::string> names = CommandNames(app);
    if (word != nullptr && std::find(names.begin(), names.end(), word) != names.end()) return;
    std::string text = word == nullptr ? "a command is missing" : "there is no command '" + std::string(word) + "'";
    for (const std::string& name : names)
        text += (&name == &names.front() ? "; there are: " : ", ") + name;
    throw WrongUsage(text + " (see muxora --help)");
}

int Run(int argc, char** argv) {
    CLI::App app{"muxora packs media into containers and transport streams.", "muxora"};
    app.set_version_flag("--version",
                         "muxora " MUXORA_VERSION " (" MUXORA_COMMIT "), library " + std::string(MX_GetVersion()));
    app.require_subcommand(1);
    app.footer("muxora COMMAND --help tells more about a command.\nExit codes: 0 done, 1 failed, 2 wrong usage.");
    for (const auto add : kCommands)
        add(app);
    const bool json =
        std::any_of(argv + 1, argv + argc, [](const char* word) { return std::string_view(word) == "--json"; });
    try {
        CheckCommand(app, argv[1]);
        app.parse(argc, argv);
        return kDone;
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error);  // --help, --version
        Complain(std::string(error.what()) + " (see muxora --help)", kWrongUsage, json);
        return kWrongUsage;
    } catch (const WrongUsage& error) {
        Complain(error.what(), kWrongUsage, json);
        return kWrongUsage;
    } catch (const std::exception& error) {  // Failure, InputError, no memory
        Complain(error.what(), kFailed, json);
        return kFailed;
    }
}

// Large frames come and go all the time. Their memory stays with the process: the kernel would have to clear each page
// of it again.
void KeepMemory() {
#ifdef __GLIBC__
    constexpr int kMost = 32 << 20;  // that the C library takes for this
    mallopt(M_MMAP_THRESHOLD, kMost);
    mallopt(M_TRIM_THRESHOLD, 4 * kMost);
    mallopt(M_TOP_PAD, kMost / 4);
#endif
}

}  // namespace

int main(int argc, char** argv) {
    KeepMemory();
    // A reader that goes away is an error of the write, with a message.
    std::signal(SIGPIPE, SIG_IGN);
    // So is a limit on the size of files.
    std::signal(SIGXFSZ, SIG_IGN);
    try {
        return Run(argc, argv);
    } catch (...) {
        std::fputs("muxora: unexpected failure\n", stderr);
        return kFailed;
    }
}
