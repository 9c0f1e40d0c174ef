// The command line tool: real media in, every format out.
#include <csignal>
#include <cstdio>
#include <exception>
#include <iostream>

#include "MuxoraAPI.h"
#include "media_input/media_input.h"
#include "muxora/command.h"

namespace {

using namespace Orvane::Muxora::Tools;

// A new subcommand adds its line here.
constexpr void (*kCommands[])(CLI::App&) = {
    AddFormats, AddInspect, AddPack, AddRepair, AddSend, AddUnpack,
};

int Run(int argc, char** argv) {
    CLI::App app{"muxora packs media into containers and transport streams.", "muxora"};
    app.set_version_flag("--version", std::string("muxora, library ") + MX_GetVersion());
    app.require_subcommand(1);
    app.footer("muxora COMMAND --help tells more about a command.\nExit codes: 0 done, 1 failed, 2 wrong usage.");
    for (const auto add : kCommands)
        add(app);
    try {
        app.parse(argc, argv);
        return kDone;
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error);  // --help, --version
        std::cerr << "muxora: " << error.what() << " (see muxora --help)\n";
        return kWrongUsage;
    } catch (const WrongUsage& error) {
        std::cerr << "muxora: " << error.what() << '\n';
        return kWrongUsage;
    } catch (const std::exception& error) {  // Failure, InputError, no memory
        std::cerr << "muxora: " << error.what() << '\n';
        return kFailed;
    }
}

}  // namespace

int main(int argc, char** argv) {
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
