// `muxora repair` on any recording and any snapshot of it.
#include <CLI/CLI.hpp>

#include "common/errors.h"
#include "harness/input.h"
#include "harness/temp_folder.h"
#include "muxora/command.h"
#include "muxora/snapshot.h"

namespace {

using namespace Orvane::Muxora::Tools;

// True if it said that all is well.
bool Repair(const std::string& path) {
    CLI::App app;
    AddRepair(app);
    std::vector<std::string> arguments = {path, "--quiet", "repair"};  // back to front
    try {
        app.parse(arguments);
        return true;
    } catch (const Failure& failure) {
        fuzz::Require(failure.what()[0] != 0);
        return false;
    }
}

}  // namespace

// Two bytes of length, the recording, and what is left: the snapshot, either its file or its index.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const fuzz::TempFolder folder;
    if (size < 8) return 0;
    fuzz::Input in(data, size);
    const uint8_t kind = in.U8();
    size_t length = in.U16();
    const uint64_t position = kind & 2 ? in.U64() : in.U16();
    const uint8_t* const recording = in.Take(length);
    const std::string path = folder.Write("recording.mp4", recording, length);
    size_t rest = SIZE_MAX;
    const uint8_t* const index = in.Take(rest);
    if (kind & 1) {
        WriteSnapshot(SnapshotPath(path), {in.U8(), position, {index, index + rest}});
    } else {
        folder.Write("recording.mp4.snapshot", index, rest);
    }
    // What a first run completed a second one leaves as it is.
    if (Repair(path)) {
        std::ifstream file(path, std::ios::binary);
        const std::string before{std::istreambuf_iterator<char>(file), {}};
        if (Repair(path)) {
            std::ifstream again(path, std::ios::binary);
            fuzz::Require(before == std::string{std::istreambuf_iterator<char>(again), {}});
        }
    }
    RemoveSnapshot(SnapshotPath(path));
    return 0;
}
