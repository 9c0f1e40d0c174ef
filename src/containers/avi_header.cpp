#include "containers/avi_header.h"

#include <algorithm>

#include "MuxoraAPI.h"
#include "codec/wave_tag.h"
#include "containers/wave_audio.h"
#include "core/frame_kinds.h"
#include "core/messages.h"

namespace Orvane::Muxora {

namespace {

constexpr uint32_t kChunkHeaderSize = 8;
constexpr uint32_t kFourCCSize = 4;
constexpr uint32_t kAvihSize = 64;
constexpr uint32_t kStrhSize = 64;
constexpr uint32_t kVideoStrfSize = 48;
constexpr uint32_t kAudioStrfSize = 26;  // without the codec's extra bytes
constexpr uint32_t kListHeaderSize = 12;
constexpr uint32_t kVideoListSize = kListHeaderSize + kStrhSize + kVideoStrfSize + AviSuperIndex::kSize;
constexpr uint32_t kAudioListSize = kListHeaderSize + kStrhSize + kAudioStrfSize + AviSuperIndex::kSize;
constexpr uint32_t kOdmlSize = 268;
// What is left for filler when there is no stream.
constexpr uint32_t kJunkSize = AviHeaderBlock::kListSize - kListHeaderSize - kAvihSize - kChunkHeaderSize;

constexpr uint32_t kHasIndexTrustChunkTypes = 0x810;  // AVIF_HASINDEX, AVIF_TRUSTCKTYPE
constexpr uint32_t kBestQuality = 0xFFFFFFFF;
constexpr uint32_t kVideoBufferSize = 0x100000;
constexpr uint32_t kAudioBufferSize = 12288;
constexpr uint16_t kBitCount = 24;
constexpr uint32_t kBitmapInfoHeaderSize = 40;
constexpr uint32_t kWaveFormatExSize = 18;

constexpr uint32_t kAacSamplesPerFrame = 1024;

constexpr const char* kSizeTexts[] = {
    "WriteHeaderList Error! HeaderList Size = %d, Actual Size = %d \n",
    "WriteMainHeader Error! MainHeader Size = %d, Actual Size = %d \n",
    "WriteJunk Error! Junk Size = %d, Actual Size = %d \n",
    "WriteVideoStreamList Error! VideoStream Size = %d, Actual Size = %d \n",
    "WriteAudioStreamList Error! AudioStream Size = %d, Actual Size = %d \n",
    "WriteStreamHeader Error! StreamHeader Size = %d, Actual Size = %d \n",
    "WriteBitmapInfo Error! Bitmap Size = %d, Actual Size = %d \n",
    "WriteWaveformat Error! WaveFormat Size = %d, Actual Size = %d \n",
};

// Verifies, when it goes out of scope, that a record has the size that it announces.
class SizeCheck {
  public:
    SizeCheck(AviRecord record, uint32_t announced, const ByteCursor& out)
        : record_(record), announced_(announced), out_(out), start_(out.Size()) {}
    ~SizeCheck() { CheckAviSize(record_, announced_, out_.Size() - start_); }
    SizeCheck(const SizeCheck&) = delete;
    SizeCheck& operator=(const SizeCheck&) = delete;

  private:
    AviRecord record_;
    uint32_t announced_;
    const ByteCursor& out_;
    uint32_t start_;
};

// fccHandler and biCompression; null for codecs that AVI does not carry.
const char* VideoFourCC(uint32_t encode_type) {
    if (IsH264(encode_type)) return "H264";
    switch (encode_type) {
        case MX_VIDEO_MPEG4:
            return "XVID";
        case MX_VIDEO_MJPEG:
            return "MJPG";
        case MX_VIDEO_H265:
            return "hev1";
        default:
            return nullptr;
    }
}

void WriteJunk(ByteCursor& out, uint32_t size) {
    const SizeCheck check(AviRecord::Junk, kChunkHeaderSize + size, out);
    out.Text("JUNK").LE32(size).Zeros(size);
}

}  // namespace

void CheckAviSize(AviRecord record, uint32_t announced, uint32_t actual) {
    if (announced == actual) return;
    Say(kSizeTexts[static_cast<uint32_t>(record)], static_cast<int>(announced), static_cast<int>(actual));
}

void AviHeaderBlock::OpenVideo(uint32_t encode_type, uint32_t width, uint32_t height, uint32_t frame_rate) {
    if (VideoFourCC(encode_type) == nullptr) return;
    video_.present = true;
    video_.encode_type = encode_type;
    video_.width = width;
    video_.height = height;
    video_.frame_rate = frame_rate;
}

void AviHeaderBlock::OpenAudio(uint32_t encode_type, uint32_t channels, uint32_t bits_per_sample,
                               uint32_t samples_per_sec) {
    const uint16_t tag = WaveFormatTag(encode_type);
    if (tag == 0) return;
    audio_.present = true;
    audio_.tag = tag;
    audio_.channels = channels;
    audio_.bits_per_sample = bits_per_sample;
    audio_.samples_per_sec = samples_per_sec;
}

void AviHeaderBlock::OpenAac(uint32_t channels, uint32_t bits_per_sample, uint32_t samples_per_sec, uint16_t config) {
    OpenAudio(MX_AUDIO_AAC, channels, bits_per_sample, samples_per_sec);
    audio_.config = config;
    audio_.config_size = sizeof config;
}

void AviHeaderBlock::CountVideo(uint32_t length) {
    video_.largest = std::max(video_.largest, length);
    video_.bytes += length;
    ++video_.frames;
}

void AviHeaderBlock::CountAudio(uint32_t length) {
    audio_.largest = std::max(audio_.largest, length);
    ++audio_.frames;
}

void AviHeaderBlock::Write(ByteCursor& out) const {
    const SizeCheck check(AviRecord::HeaderList, kListSize, out);
    out.Text("LIST").LE32(kListSize - kChunkHeaderSize).Text("hdrl");
    WriteMainHeader(out);
    uint32_t junk = kJunkSize;
    if (video_.present) {
        WriteVideoStreamList(out);
        junk -= kVideoListSize;
    }
    if (audio_.present) {
        WriteAudioStreamList(out);
        junk -= AudioListSize();
    }
    if (video_.index.Entries() != 0 || audio_.index.Entries() != 0) {
        WriteOdml(out);
        junk -= kOdmlSize;
    }
    WriteJunk(out, junk);
}

void AviHeaderBlock::WriteMainHeader(ByteCursor& out) const {
    const SizeCheck check(AviRecord::MainHeader, kAvihSize, out);
    const uint32_t frame_time = video_.frame_rate != 0 ? 1000000 / video_.frame_rate : 0;
    const uint32_t byte_rate = video_.frames != 0 ? video_.bytes * video_.frame_rate / video_.frames : 0;
    const uint32_t streams = (video_.present ? 1u : 0u) + (audio_.present ? 1u : 0u);
    out.Text("avih")
        .LE32(kAvihSize - kChunkHeaderSize)              // cb
        .LE32(frame_time)                                // dwMicroSecPerFrame
        .LE32(byte_rate)                                 // dwMaxBytesPerSec
        .LE32(0)                                         // dwPaddingGranularity
        .LE32(kHasIndexTrustChunkTypes)                  // dwFlags
        .LE32(video_.frames)                             // dwTotalFrames
        .LE32(0)                                         // dwInitialFrames
        .LE32(streams)                                   // dwStreams
        .LE32(std::max(video_.largest, audio_.largest))  // dwSuggestedBufferSize
        .LE32(video_.width)                              // dwWidth
        .LE32(video_.height)                             // dwHeight
        .Zeros(16);                                      // dwReserved
}

void AviHeaderBlock::WriteVideoStreamList(ByteCursor& out) const {
    const SizeCheck check(AviRecord::VideoStreamList, kVideoListSize, out);
    out.Text("LIST").LE32(kVideoListSize - kChunkHeaderSize).Text("strl");
    WriteVideoStreamHeader(out);
    WriteBitmapInfo(out);
    video_.index.Write(out);
}

void AviHeaderBlock::WriteVideoStreamHeader(ByteCursor& out) const {
    const SizeCheck check(AviRecord::StreamHeader, kStrhSize, out);
    out.Text("strh")
        .LE32(kStrhSize - kChunkHeaderSize)                            // cb
        .Text("vids")                                                  // fccType
        .Bytes(VideoFourCC(video_.encode_type), kFourCCSize)           // fccHandler
        .LE32(0)                                                       // dwFlags
        .LE16(0)                                                       // wPriority
        .LE16(0)                                                       // wLanguage
        .LE32(0)                                                       // dwInitialFrames
        .LE32(1)                                                       // dwScale
        .LE32(video_.frame_rate)                                       // dwRate
        .LE32(0)                                                       // dwStart
        .LE32(video_.frames)                                           // dwLength
        .LE32(video_.frames != 0 ? video_.largest : kVideoBufferSize)  // dwSuggestedBufferSize
        .LE32(kBestQuality)                                            // dwQuality
        // Readers rely on this: a sample size, though pictures have none.
        .LE32(2)                                      // dwSampleSize
        .LE16(0)                                      // rcFrame.left
        .LE16(0)                                      // rcFrame.top
        .LE16(static_cast<uint16_t>(video_.width))    // rcFrame.right
        .LE16(static_cast<uint16_t>(video_.height));  // rcFrame.bottom
}

void AviHeaderBlock::WriteBitmapInfo(ByteCursor& out) const {
    const SizeCheck check(AviRecord::BitmapInfo, kVideoStrfSize, out);
    out.Text("strf")
        .LE32(kVideoStrfSize - kChunkHeaderSize)              // cb
        .LE32(kBitmapInfoHeaderSize)                          // biSize
        .LE32(video_.width)                                   // biWidth
        .LE32(video_.height)                                  // biHeight
        .LE16(1)                                              // biPlanes
        .LE16(kBitCount)                                      // biBitCount
        .Bytes(VideoFourCC(video_.encode_type), kFourCCSize)  // biCompression
        .LE32(video_.width * video_.height * kBitCount / 8)   // biSizeImage
        .LE32(0)                                              // biXPelsPerMeter
        .LE32(0)                                              // biYPelsPerMeter
        .LE32(0)                                              // biClrUsed
        .LE32(0);                                             // biClrImportant
}

void AviHeaderBlock::WriteAudioStreamList(ByteCursor& out) const {
    const SizeCheck check(AviRecord::AudioStreamList, AudioListSize(), out);
    out.Text("LIST").LE32(AudioListSize() - kChunkHeaderSize).Text("strl");
    WriteAudioStreamHeader(out);
    WriteWaveformat(out);
    audio_.index.Write(out);
}

void AviHeaderBlock::WriteAudioStreamHeader(ByteCursor& out) const {
    const SizeCheck check(AviRecord::StreamHeader, kStrhSize, out);
    const bool aac = audio_.tag == kWaveTagAac;
    const bool linear = audio_.tag == kWaveTagPcm || IsG711(audio_.tag);
    const uint32_t scale = aac ? kAacSamplesPerFrame : IsG711(audio_.tag) ? 1 : 2;
    const uint32_t rate = aac ? audio_.samples_per_sec : linear ? audio_.samples_per_sec * scale : 0;
    out.Text("strh")
        .LE32(kStrhSize - kChunkHeaderSize)                            // cb
        .Text("auds")                                                  // fccType
        .LE32(1)                                                       // fccHandler
        .LE32(0)                                                       // dwFlags
        .LE16(0)                                                       // wPriority
        .LE16(0)                                                       // wLanguage
        .LE32(0)                                                       // dwInitialFrames
        .LE32(scale)                                                   // dwScale
        .LE32(rate)                                                    // dwRate
        .LE32(0)                                                       // dwStart
        .LE32(audio_.frames)                                           // dwLength
        .LE32(audio_.frames != 0 ? audio_.largest : kAudioBufferSize)  // dwSuggestedBufferSize
        .LE32(kBestQuality)                                            // dwQuality
        // Readers rely on this: 2 for the one-byte samples of G.711 too.
        .LE32(aac ? 0 : 2)  // dwSampleSize
        // Readers rely on this: the audio stream bears the picture's size.
        .LE16(0)                                      // rcFrame.left
        .LE16(0)                                      // rcFrame.top
        .LE16(static_cast<uint16_t>(video_.width))    // rcFrame.right
        .LE16(static_cast<uint16_t>(video_.height));  // rcFrame.bottom
}

void AviHeaderBlock::WriteWaveformat(ByteCursor& out) const {
    const SizeCheck check(AviRecord::Waveformat, kAudioStrfSize + audio_.config_size, out);
    const uint16_t block_align = WaveBlockAlign(audio_.tag, audio_.channels, audio_.bits_per_sample);
    uint8_t config[sizeof audio_.config];
    PutBE16(config, audio_.config);
    out.Text("strf")
        .LE32(kWaveFormatExSize + audio_.config_size)  // cb
        .LE16(audio_.tag)                              // wFormatTag
        .LE16(static_cast<uint16_t>(audio_.channels))  // nChannels
        .LE32(audio_.samples_per_sec)                  // nSamplesPerSec
        // Readers rely on this: the channels are not counted.
        .LE32(audio_.samples_per_sec * audio_.bits_per_sample / 8)  // nAvgBytesPerSec
        .LE16(block_align)                                          // nBlockAlign
        .LE16(static_cast<uint16_t>(audio_.bits_per_sample))        // wBitsPerSample
        .LE16(static_cast<uint16_t>(audio_.config_size))            // cbSize
        .Bytes(config, audio_.config_size);                         // AudioSpecificConfig
}

void AviHeaderBlock::WriteOdml(ByteCursor& out) const {
    // Readers rely on this: a chunk of its own and no LIST, so that it is passed over.
    out.Text("odml")
        .LE32(kOdmlSize - kChunkHeaderSize)
        .Text("odml")
        .Text("dmlh")
        .LE32(248)                      // cb
        .LE32(video_.index.Duration())  // dwTotalFrames
        .Zeros(244);                    // dwReserved
}

uint32_t AviHeaderBlock::AudioListSize() const {
    return kAudioListSize + audio_.config_size;
}

}  // namespace Orvane::Muxora
