// The header list of an AVI file ("hdrl"): what is known of the two streams, and the list that says it. The list always
// takes the same room, so that it can be written again at the end.
#pragma once

#include <cstdint>

#include "containers/avi_index.h"
#include "core/byte_writer.h"

namespace Orvane::Muxora {

// The records of the list whose sizes are verified as they are written.
enum class AviRecord : uint8_t {
    HeaderList,
    MainHeader,
    Junk,
    VideoStreamList,
    AudioStreamList,
    StreamHeader,
    BitmapInfo,
    Waveformat
};

// Says on standard output when a record was written with another size than it announces. Nothing is changed.
void CheckAviSize(AviRecord record, uint32_t announced, uint32_t actual);

class AviHeaderBlock {
  public:
    static constexpr uint32_t kListSize = 4104;

    bool VideoPresent() const { return video_.present; }
    bool AudioPresent() const { return audio_.present; }

    // Codecs that AVI has no name for leave the stream closed.
    void OpenVideo(uint32_t encode_type, uint32_t width, uint32_t height, uint32_t frame_rate);
    void OpenAudio(uint32_t encode_type, uint32_t channels, uint32_t bits_per_sample, uint32_t samples_per_sec);
    // As OpenAudio, with the AudioSpecificConfig behind the wave format.
    void OpenAac(uint32_t channels, uint32_t bits_per_sample, uint32_t samples_per_sec, uint16_t config);

    void CountVideo(uint32_t length);
    // A length of 0 counts the frame and leaves its size out.
    void CountAudio(uint32_t length);

    AviSuperIndex& SuperIndex(AviStream stream) { return stream == AviStream::Video ? video_.index : audio_.index; }

    // The whole list, kListSize bytes.
    void Write(ByteCursor& out) const;

  private:
    struct Video {
        bool present = false;
        uint32_t encode_type = 0;
        uint32_t width = 0;
        uint32_t height = 0;
        uint32_t frame_rate = 0;
        uint32_t frames = 0;
        uint32_t bytes = 0;  // wraps at 4 GiB
        uint32_t largest = 0;
        AviSuperIndex index{AviStream::Video};
    };
    struct Audio {
        bool present = false;
        uint16_t tag = 0;
        uint32_t channels = 0;
        uint32_t bits_per_sample = 0;
        uint32_t samples_per_sec = 0;
        uint32_t config_size = 0;
        uint16_t config = 0;
        uint32_t frames = 0;
        uint32_t largest = 0;
        AviSuperIndex index{AviStream::Audio};
    };

    void WriteMainHeader(ByteCursor& out) const;
    void WriteVideoStreamList(ByteCursor& out) const;
    void WriteVideoStreamHeader(ByteCursor& out) const;
    void WriteBitmapInfo(ByteCursor& out) const;
    void WriteAudioStreamList(ByteCursor& out) const;
    void WriteAudioStreamHeader(ByteCursor& out) const;
    void WriteWaveformat(ByteCursor& out) const;
    void WriteOdml(ByteCursor& out) const;
    uint32_t AudioListSize() const;

    Video video_;
    Audio audio_;
};

}  // namespace Orvane::Muxora
