// What the subcommands share: how they register and how they fail.
#pragma once

#include <CLI/CLI.hpp>

#include <stdexcept>

namespace Orvane::Muxora::Tools {

// Exit codes of the tool.
enum ExitCode { kDone = 0, kFailed = 1, kWrongUsage = 2 };

// Ends the subcommand with kFailed. The text is one line that says what to do.
class Failure : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Ends the subcommand with kWrongUsage.
class WrongUsage : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Each adds its subcommand, with options, help and callback, to the program.
void AddFormats(CLI::App& app);
void AddInspect(CLI::App& app);
void AddPack(CLI::App& app);
void AddRepair(CLI::App& app);
void AddSend(CLI::App& app);
void AddUnpack(CLI::App& app);

}  // namespace Orvane::Muxora::Tools
