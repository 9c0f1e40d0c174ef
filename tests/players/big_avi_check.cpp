// Writes a real AVI file past 1 GiB and has ffprobe read it to its end. It needs the room and a minute, so it is no
// part of the tests: cmake --build --preset release --target check_big_avi
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>

#include "MuxoraAPI.h"
#include "support/clip.h"
#include "support/process.h"

namespace {

constexpr uint64_t kWantedSize = 1200ull << 20;

struct Totals {
    uint64_t packets = 0;
    uint64_t bytes = 0;
    bool operator==(const Totals&) const = default;
};
using Streams = std::map<std::string, Totals>;  // by "video" and "audio"

struct Output {
    std::ofstream file;
    uint64_t size = 0;

    static int32_t Take(const MXOutputBlock* block, void* user) {
        auto& self = *static_cast<Output*>(user);
        self.file.seekp(block->offset);
        self.file.write(static_cast<const char*>(block->data), block->length);
        self.size = std::max(self.size, static_cast<uint64_t>(block->offset) + block->length);
        return 0;
    }
};

Streams Write(const std::string& path) {
    test::ClipSpec spec;
    spec.video = "mjpeg";
    spec.audio = "alaw";
    spec.sample_rate = 8000;
    spec.width = 1920;
    spec.height = 1080;
    auto frames = test::ClipFrames(spec);

    Output output{std::ofstream(path, std::ios::binary | std::ios::trunc)};
    MXCreateParam param{};
    param.user = &output;
    param.output = Output::Take;
    const std::unique_ptr<void, decltype(&MX_DestroyHandle)> handle(MX_CreateHandle(MX_FORMAT_AVI, &param),
                                                                    MX_DestroyHandle);
    MX_CreateHeader(handle.get(), nullptr);
    Streams given;
    while (output.size < kWantedSize) {
        for (auto& frame : frames) {
            if (given.empty() && !frame.IsVideo()) continue;
            MXFrameInfo record = frame.Record();
            if (MX_InputFrame(handle.get(), &record) != MX_OK) std::exit(1);
            Totals& totals = given[frame.IsVideo() ? "video" : "audio"];
            ++totals.packets;
            totals.bytes += frame.Size();
        }
    }
    MX_CreateTailer(handle.get(), nullptr);
    if (!output.file.flush()) {
        std::fprintf(stderr, "%s could not be written\n", path.c_str());
        std::exit(1);
    }
    return given;
}

// What ffprobe finds from the first packet to the last.
Streams Read(const std::string& path) {
    const auto run =
        test::Run({"ffprobe", "-v", "error", "-show_entries", "packet=codec_type,size", "-of", "csv=p=0", path}, 600);
    std::fputs(run.err.c_str(), stdout);
    Streams found;
    std::istringstream lines(run.out);
    for (std::string line; std::getline(lines, line);) {
        const size_t comma = line.find(',');
        if (comma == std::string::npos) continue;
        Totals& totals = found[line.substr(0, comma)];
        ++totals.packets;
        totals.bytes += std::strtoull(line.c_str() + comma + 1, nullptr, 10);
    }
    return found;
}

void Print(const char* who, const Streams& streams) {
    for (const auto& [stream, totals] : streams) {
        std::printf("%s %s: %llu packets, %llu bytes\n", who, stream.c_str(),
                    static_cast<unsigned long long>(totals.packets), static_cast<unsigned long long>(totals.bytes));
    }
}

}  // namespace

int main(int argc, char** argv) {
    const std::string path = argc > 1 ? argv[1] : test::WorkPath("big.avi");
    const Streams given = Write(path);
    Print("given", given);
    std::printf("%s has %llu bytes\n", path.c_str(), static_cast<unsigned long long>(std::filesystem::file_size(path)));
    const Streams found = Read(path);
    Print("read", found);
    std::puts(given == found ? "The same." : "NOT the same.");
    return given == found ? 0 : 1;
}
