// What the subcommands share: how they register and how they fail.
#pragma once

#include "common/errors.h"

namespace CLI {
class App;
}

namespace Orvane::Muxora::Tools {

// Each adds its subcommand, with options, help and callback, to the program.
void AddFormats(CLI::App& app);
void AddInspect(CLI::App& app);
void AddPack(CLI::App& app);
void AddRepair(CLI::App& app);
void AddSend(CLI::App& app);
void AddServe(CLI::App& app);
void AddUnpack(CLI::App& app);

}  // namespace Orvane::Muxora::Tools
