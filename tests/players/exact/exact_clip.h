// Real encodes with the times that their files give them, fed to the formats with exact times through the C interface.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "MuxoraExt.h"

namespace test {

// One encoded frame as libavformat gave it: bytes in the library's form, times in ticks of the stream's own scale.
struct ExactFrame {
    MXFrameInfo info{};  // without the pointer and the times
    std::vector<uint8_t> bytes;
    uint32_t scale = 1;
    int64_t dts = 0;
    int64_t pts = 0;
    int64_t duration = 0;

    bool IsVideo() const { return info.frame_type == MX_FRAME_VIDEO; }
    bool IsKey() const { return IsVideo() && info.frame_sub_type == MX_SUB_I; }
    // The record that goes into MX_InputFrame; it points into `bytes`.
    MXFrameInfo Record() const;
};

// An encode that ffmpeg makes: what stands between its inputs and the output's name.
struct Encode {
    const char* name;
    const char* video_source;  // of lavfi, null for none
    const char* audio_source;
    std::vector<std::string> arguments;
    const char* container = "mp4";
};

// At least ten of them: open GOPs, B pictures, broken and variable rates, fields, sound of several kinds.
const std::vector<Encode>& Encodes();
const Encode& EncodeNamed(const std::string& name);

// The file of an encode, made once a process. Throws std::runtime_error with ffmpeg's words if that fails.
std::string MakeEncode(const Encode& encode);
// Its frames in the order of the file.
std::vector<ExactFrame> ReadExact(const std::string& path);

struct ExactResult {
    uint32_t refused = 0;  // frames that ended in anything but MX_OK
    MXTimeRepairs repairs{};
    std::vector<MXExactBlock> blocks;  // without their data
};

// What a sink does with MX_BLOCK_PATCH: a forward-only one leaves them out.
enum class Sink { kFile, kForwardOnly };

ExactResult PackExact(uint32_t format, const std::vector<ExactFrame>& frames, const std::string& path,
                      Sink sink = Sink::kFile);

// One write of a packager, in their order.
struct Written {
    uint32_t kind;  // MXBlockKind
    int64_t offset;
    std::vector<uint8_t> bytes;
};
// Every write that a hybrid MP4 of the frames makes, those of the tail included.
std::vector<Written> HybridWrites(const std::vector<ExactFrame>& frames);

// A packet as ffprobe lists it, in ticks of `scale`.
struct ListedPacket {
    int64_t pts = 0;
    int64_t dts = 0;
    int64_t duration = 0;
    bool key = false;
    int64_t size = 0;
};
struct PacketList {
    int64_t scale_num = 0;  // time base
    int64_t scale_den = 0;
    std::vector<ListedPacket> packets;
};
// `streams`: "v:0", "a:0".
PacketList ListPackets(const std::string& path, const std::string& streams);

}  // namespace test
