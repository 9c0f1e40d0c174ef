// Drives a format with exact times for unit tests: frames in with their times, blocks out with their notes.
#pragma once

#include <memory>
#include <vector>

#include "MuxoraExt.h"
#include "core/package.h"
#include "support/frames.h"
#include "support/hex.h"
#include "support/parameter_sets.h"

namespace test {

// Pictures of a Baseline stream, and the avcC that is made of their parameter sets.
struct BaselinePictures {
    static ByteVector Key() { return Units({BaselineSps(), BaselinePps(), Bytes("65 88 84 21")}); }
    static ByteVector Inter() { return Units({Bytes("41 9A 02"), Bytes("41 11")}); }
    static ByteVector Configuration() {
        return Bytes("01 42 c0 0d ff e1 00 1a") + BaselineSps() + Bytes("01 00 05") + BaselinePps();
    }
};

class ExactStream {
  public:
    struct Block {
        ByteVector data;
        MXExactBlock note;
    };

    template <typename Packager>
    static std::unique_ptr<ExactStream> Of(uint32_t format) {
        auto stream = std::make_unique<ExactStream>();
        MXCreateParam param{};
        param.user = stream.get();
        param.output = Take;
        stream->package = std::make_unique<Packager>(format, &param);
        return stream;
    }

    // Video and sound are announced.
    uint32_t Open(uint32_t video = MX_VIDEO_H264, uint32_t audio = MX_AUDIO_AAC, uint32_t gap = 0) {
        MXHeaderInfo info{};
        info.video_present = video != 0;
        info.video_encode_type = video;
        info.audio_present = audio != 0;
        info.audio_encode_type = audio;
        info.samples_per_sec = 48000;
        info.reserved_gap = gap;
        package->init();
        return package->createHeader(&info, 0);
    }

    uint32_t Video(ByteVector bytes, uint32_t sub_type, int64_t dts, int64_t pts, int64_t duration = 0,
                   uint32_t scale = 90000, uint32_t codec = MX_VIDEO_H264) {
        MXFrameInfo frame = VideoFrame(bytes, codec, sub_type);
        MXSetFrameTimes(&frame, scale, dts, pts, duration);
        return package->inputFrame(&frame, 0);
    }
    uint32_t Audio(ByteVector bytes, int64_t time, int64_t duration = 0, uint32_t scale = 48000,
                   uint32_t codec = MX_AUDIO_AAC) {
        MXFrameInfo frame = AudioFrame(bytes, codec);
        MXSetFrameTimes(&frame, scale, time, time, duration);
        return package->inputFrame(&frame, 0);
    }
    uint32_t Close() { return package->createTailer(nullptr, 0); }

    const Block& Last() const { return blocks.back(); }
    // The blocks one behind the other, the patches left out, as a sink that only goes forward has them.
    ByteVector Forward() const {
        ByteVector out;
        for (const Block& block : blocks) {
            if (block.note.kind != MX_BLOCK_PATCH) out = out + block.data;
        }
        return out;
    }
    // The file that all blocks make.
    ByteVector File() const {
        ByteVector out;
        for (const Block& block : blocks) {
            const bool absolute = block.note.block.seek_type == MX_SEEK_ABSOLUTE;
            const size_t at = absolute ? static_cast<size_t>(block.note.block.offset) : out.size();
            if (out.size() < at + block.data.size()) out.resize(at + block.data.size());
            std::copy(block.data.begin(), block.data.end(), out.begin() + static_cast<std::ptrdiff_t>(at));
        }
        return out;
    }

    std::unique_ptr<Orvane::Muxora::CPackage> package;
    std::vector<Block> blocks;

  private:
    static int32_t Take(const MXOutputBlock* block, void* user) {
        const auto* bytes = static_cast<const uint8_t*>(block->data);
        static_cast<ExactStream*>(user)->blocks.push_back(
            {{bytes, bytes + block->length}, *reinterpret_cast<const MXExactBlock*>(block)});
        return 0;
    }
};

}  // namespace test
