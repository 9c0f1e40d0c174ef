// Drives one handle of the library and counts what becomes of the frames.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/format_list.h"
#include "media_input/media_input.h"

namespace Orvane::Muxora::Tools {

struct Tally {
    uint64_t given = 0;
    uint64_t written = 0;
    uint64_t dropped = 0;  // taken with success, and left out by the format's rules
    uint64_t refused = 0;  // answered with an error
    uint64_t bytes = 0;    // of the frames
};

struct PackerSettings {
    uint32_t reserve = 0;
    std::vector<uint8_t> key;
    uint16_t encrypt_offset = 0;
    uint32_t encrypt_length = 0;
    MXRtpParam rtp{};
    std::optional<MXFragmentParam> fragment;  // fmp4, hmp4
    // RTP of H.264: give each unit of a frame by itself, because a unit behind one that was cut into fragments loses
    // its first byte. The sink then has to put the markers right.
    bool split_units = false;
    // What to do about a stream that the format does not take.
    std::string way_out = "choose another format with -f";
};

class Packer {
  public:
    // Takes each block of output; gives the number of bytes by which the output grew.
    using Sink = std::function<uint64_t(const MXOutputBlock& block)>;

    // Throws Failure when the library does not make the format.
    Packer(const Format& format, const PackerSettings& settings, const MediaStream* video, const MediaStream* audio,
           Sink sink);

    // Throws Failure if the format does not take the frame's stream.
    void Give(MediaFrame& frame);
    // Writes the tail. Throws Failure, also when a stream was left out altogether.
    void Finish();

    const Tally& Video() const { return video_tally_; }
    const Tally& Audio() const { return audio_tally_; }
    MXHandle Handle() const { return handle_.get(); }

  private:
    static int32_t Output(const MXOutputBlock* block, void* user);
    uint32_t Input(const MediaFrame& frame, MXFrameInfo& record);
    [[noreturn]] void Refuse(const MediaFrame& frame) const;
    [[noreturn]] void RefuseSound(const MediaFrame& frame, uint32_t rate) const;
    void CheckNotEmpty(const Tally& tally, const char* kind) const;

    const Format& format_;
    PackerSettings settings_;
    Sink sink_;
    std::unique_ptr<void, decltype(&MX_DestroyHandle)> handle_{nullptr, MX_DestroyHandle};
    uint64_t grown_ = 0;
    Tally video_tally_;
    Tally audio_tally_;
};

// "H.264 320x240, 25/s" and "AAC 48000 Hz, 2 ch".
std::string StreamText(const MediaStream& stream);

}  // namespace Orvane::Muxora::Tools
