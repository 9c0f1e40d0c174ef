// Turns its input into a sequence of calls on a handle: create, parameters, header, frames with all fields, backup and
// tail, in any order. The build chooses the formats (FUZZ_FORMATS); a new format of a family joins its list here.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "MuxoraExt.h"

namespace {

#define FUZZ_OVX MX_FORMAT_OVX, MX_FORMAT_OVX_ALT
#define FUZZ_ISO MX_FORMAT_MP4, MX_FORMAT_MOV, MX_FORMAT_MP4_NOSEEK, MX_FORMAT_MP4_64, MX_FORMAT_MOV_64
#define FUZZ_AVI MX_FORMAT_AVI
#define FUZZ_ASF MX_FORMAT_ASF, MX_FORMAT_ASF_STREAM
#define FUZZ_FLV MX_FORMAT_FLV, MX_FORMAT_FLV_STREAM
#define FUZZ_WAV MX_FORMAT_WAV
#define FUZZ_MKV MX_FORMAT_MKV
#define FUZZ_PS MX_FORMAT_PS, MX_FORMAT_PS_OV, MX_FORMAT_PS_GAYS, MX_FORMAT_PS_GD
#define FUZZ_TS MX_FORMAT_TS
#define FUZZ_RTP MX_FORMAT_RTP
#define FUZZ_XFLV MX_FORMAT_XFLV
#define FUZZ_XMKV MX_FORMAT_XMKV
#define FUZZ_XTS MX_FORMAT_XTS
#define FUZZ_EXACT_MP4 MX_FORMAT_FMP4, MX_FORMAT_HMP4

constexpr uint32_t kFormats[] = {FUZZ_FORMATS};

// Reads the fuzzer's bytes as values; zeros behind the end.
class Input {
  public:
    Input(const uint8_t* data, size_t size) : at_(data), end_(data + size) {}

    bool Empty() const { return at_ == end_; }
    uint8_t U8() { return at_ < end_ ? *at_++ : 0; }
    uint16_t U16() { return static_cast<uint16_t>(U8() | U8() << 8); }
    uint32_t U32() { return U16() | static_cast<uint32_t>(U16()) << 16; }
    // One of the values, or now and then anything.
    template <size_t N>
    uint32_t Choose(const uint32_t (&values)[N]) {
        const uint8_t choice = U8();
        return choice < 240 ? values[choice % N] : U32();
    }
    // Seldom anything, mostly small.
    uint32_t Number() {
        const uint8_t kind = U8();
        return kind < 128 ? kind : kind < 224 ? U16() : U32();
    }
    std::vector<uint8_t> Bytes(size_t count) {
        const size_t taken = std::min(count, static_cast<size_t>(end_ - at_));
        std::vector<uint8_t> bytes(at_, at_ + taken);
        at_ += taken;
        return bytes;
    }

  private:
    const uint8_t* at_;
    const uint8_t* end_;
};

// A heap block that ends exactly where the frame ends, so that AddressSanitizer sees the first byte too far. RTP may
// read one byte behind an H.264 frame; its public header says so.
class FrameBytes {
  public:
    FrameBytes(const std::vector<uint8_t>& bytes, size_t spare) : size_(bytes.size()) {
        memory_.reset(static_cast<uint8_t*>(std::malloc(std::max<size_t>(1, size_ + spare))));
        if (!bytes.empty()) std::memcpy(memory_.get(), bytes.data(), size_);
        if (spare != 0) std::memset(memory_.get() + size_, 0xA5, spare);
    }
    uint8_t* data() const { return memory_.get(); }
    uint32_t size() const { return static_cast<uint32_t>(size_); }

  private:
    struct Release {
        void operator()(uint8_t* memory) const { std::free(memory); }
    };
    std::unique_ptr<uint8_t, Release> memory_;
    size_t size_;
};

constexpr uint32_t kSubTypes[] = {0, 1, 2, 3, 8, 18, 19, 20, 21};
constexpr uint32_t kVideoCodecs[] = {2, 4, 12, 1, 3, 8, 9, 11, 35, 129, 0};
constexpr uint32_t kAudioCodecs[] = {26, 31, 14, 22, 16, 7, 10, 8, 25, 34, 0};
constexpr uint32_t kRates[] = {8000, 48000, 44100, 16000, 11000, 22000, 5500, 44000, 0};
constexpr uint32_t kFrameTypes[] = {1, 1, 1, 2, 2, 3, 0};

// Frame bytes: the fuzzer's own, start codes and headers put among them, or a long run.
std::vector<uint8_t> MakeFrameBytes(Input& in) {
    static constexpr uint8_t kPieces[][8] = {{0, 0, 0, 1, 0x65},
                                             {0, 0, 0, 1, 0x67, 0x64, 0, 0x28},
                                             {0, 0, 0, 1, 0x68, 0xEE},
                                             {0, 0, 1, 0x41},
                                             {0, 0, 0, 1, 0x40, 1},
                                             {0, 0, 0, 1, 0x42, 1, 1, 1},
                                             {0, 0, 0, 1, 0x44, 1},
                                             {0, 0, 1, 0xB0, 1},
                                             {0, 0, 1, 0xB6},
                                             {0, 0, 1, 0xB3},
                                             {0xFF, 0xF1, 0x4C, 0x80, 0x02, 0x1F, 0xFC},
                                             {0xFF, 0xFD, 0x84, 0xC0},
                                             {0xFF, 0xD8, 0xFF, 0xDB, 0, 0x43, 0},
                                             {0xFF, 0xC0, 0, 0x11, 8, 1, 0x20, 1},
                                             {0xFF, 0xDA, 0, 0x0C, 3, 1},
                                             {0, 0, 0}};
    static constexpr size_t kLengths[] = {5, 8, 6, 4, 6, 8, 6, 5, 4, 4, 7, 4, 7, 8, 6, 3};
    std::vector<uint8_t> bytes;
    for (uint8_t steps = in.U8() % 8; steps != 0; --steps) {
        const uint8_t what = in.U8();
        if (what < 128) {
            const size_t piece = what % std::size(kPieces);
            bytes.insert(bytes.end(), kPieces[piece], kPieces[piece] + kLengths[piece]);
        } else if (what < 240) {
            const std::vector<uint8_t> raw = in.Bytes(in.U8());
            bytes.insert(bytes.end(), raw.begin(), raw.end());
        } else {
            // Up to 64 KiB mostly; seldom past the 2 and 3 MiB work buffers.
            const size_t run = what == 255 ? 0x40000u + in.U16() * 64u : in.U16();
            bytes.insert(bytes.end(), run, in.U8());
        }
    }
    return bytes;
}

uint32_t g_frames_since_shortening = 0;

int32_t TakeBlock(const MXOutputBlock* block, void* user) {
    // Every byte that goes out must be there to be read.
    const auto* const bytes = static_cast<const uint8_t*>(block->data);
    uint8_t sum = 0;
    for (uint32_t i = 0; i < block->length; i += 61)
        sum = static_cast<uint8_t>(sum + bytes[i]);
    if (block->length != 0) sum = static_cast<uint8_t>(sum + bytes[block->length - 1]);
    *static_cast<volatile uint8_t*>(user) = sum;
    // Now and then the sink takes less.
    if (++g_frames_since_shortening % 13 == 0) const_cast<MXOutputBlock*>(block)->length /= 2;
    return 0;
}

int64_t g_clock = 0;

// Mostly in rising order, at any scale; now and then anything.
void GiveTimes(MXFrameInfo& frame, Input& in) {
    constexpr uint32_t kScales[] = {90000, 1000, 48000, 44100, 30000, 24000, 1000000, 1, 0};
    const auto wide = [&] { return static_cast<int64_t>(in.U32() | uint64_t{in.U32()} << 32); };
    g_clock += in.U8();
    const uint8_t kind = in.U8();
    const int64_t dts = kind < 240 ? g_clock : wide();
    const int64_t pts = kind < 240 ? dts + in.U8() : wide();
    MXSetFrameTimes(&frame, in.Choose(kScales), dts, pts, kind < 250 ? in.U8() : wide());
}

void GiveFrame(void* handle, uint32_t format, Input& in) {
    const FrameBytes bytes(MakeFrameBytes(in), format == MX_FORMAT_RTP ? 1 : 0);
    MXFrameInfo frame{};
    frame.size = in.U8() == 255 ? in.U32() : static_cast<uint32_t>(sizeof frame);
    frame.frame_pointer = in.U8() == 255 ? nullptr : bytes.data();
    frame.frame_size = bytes.size();
    frame.frame_type = in.Choose(kFrameTypes);
    frame.frame_sub_type = in.Choose(kSubTypes);
    frame.encode_type = frame.frame_type == MX_FRAME_VIDEO ? in.Choose(kVideoCodecs) : in.Choose(kAudioCodecs);
    frame.timestamp = in.Number();
    frame.frame_rate = in.Number();
    frame.samples_per_sec = in.Choose(kRates);
    frame.bits_per_sample = in.Number();
    frame.channels = in.Number();
    const uint8_t extras = in.U8();
    if (extras & 1) {
        frame.utc_time = in.U32();
        frame.width = in.Number();
        frame.height = in.Number();
        frame.deinterlace = in.Number();
        frame.bitrate = in.Number();
    }
    if (extras & 2) {
        frame.encrypt_offset = in.U16();
        frame.encrypt_length = in.Number();
        frame.frame_seq = in.Number();
        frame.ps_clock_rebase = in.U8();
    }
    std::vector<MXBlockInfo> blocks;
    if (extras & 4) {
        frame.n_slice = in.U8() % 20;
        frame.m_slice = in.U8() % 20;
        frame.has_blocks = in.U8();
        blocks.resize(size_t{frame.n_slice} * frame.m_slice);
        frame.blocks = blocks.empty() ? nullptr : blocks.data();
    }
    if (extras & 8) {
        frame.svc_head_0 = in.U8();
        frame.svc_head_1 = in.U8();
        frame.ma_total_channels = in.U8();
        frame.ma_cur_channel = in.U8();
        frame.rotation_angle = in.Number();
        frame.tp_company_type = in.U16();
        frame.tp_stream_header_len = in.U16();
    }
    if (format >= MX_FORMAT_FMP4 && in.U8() < 200) GiveTimes(frame, in);
    MX_InputFrame(handle, in.U8() == 255 ? nullptr : &frame);
}

void SetRtp(void* handle, Input& in) {
    const std::vector<uint8_t> extension = in.Bytes(in.U8());
    const std::vector<uint8_t> custom = in.Bytes(in.U8());
    MXRtpParam param{};
    param.size = sizeof param;
    param.max_rtp_packet_length = in.Number();
    param.rtp_sequence_number = in.U32();
    param.rtp_timestamp = in.U32();
    param.rtp_audio_sample = in.Number();
    param.rtp_payload_type = in.U8();
    param.rtp_extension_data = extension.data();
    param.rtp_extension_data_length = static_cast<uint32_t>(extension.size());
    param.rtp_custom_data = custom.data();
    param.rtp_custom_data_length = static_cast<uint32_t>(custom.size());
    param.rtp_packet_output_all_flag = in.U8() & 1;
    param.rtp_audio_custom_data = custom.data();
    param.rtp_audio_custom_data_length = static_cast<uint8_t>(custom.size());
    MX_SetParam(handle, in.U8() & 1, &param, sizeof param);
    uint32_t size = sizeof param;
    MX_GetParam(handle, MX_PARAM_RTP, &param, &size);
}

void Run(Input& in) {
    const uint32_t format = kFormats[in.U8() % std::size(kFormats)];
    volatile uint8_t seen = 0;
    g_frames_since_shortening = in.U8();
    g_clock = 0;
    MXCreateParam param{};
    param.user = const_cast<uint8_t*>(&seen);
    param.output = TakeBlock;
    void* const handle = MX_CreateHandle(format, &param);
    if (handle == nullptr) std::abort();

    MXHeaderInfo info{};
    const auto header = [&] {
        const uint8_t kind = in.U8();
        info.video_present = kind & 1;
        info.video_encode_type = in.Choose(kVideoCodecs);
        info.frame_rate = static_cast<int32_t>(in.Number());
        info.audio_present = kind & 2;
        info.audio_encode_type = in.Choose(kAudioCodecs);
        info.channels = in.Number();
        info.bits_per_sample = in.Number();
        info.samples_per_sec = in.Choose(kRates);
        info.reserved_gap = in.U16();
        info.start_time_ms = kind & 4 ? MX_NO_START_TIME : in.Number();
        info.self_timed = kind & 8;
        info.resync_period = in.U8();
        MX_CreateHeader(handle, kind & 16 ? nullptr : &info);
    };
    if (in.U8() < 230) header();
    while (!in.Empty()) {
        const uint8_t call = in.U8();
        if (call < 200) {
            GiveFrame(handle, format, in);
        } else if (call < 212) {
            MXOutputBlock block{};
            const uint32_t size = MX_GetBackup(handle, &block);
            if (block.data != nullptr && size == block.length) TakeBlock(&block, param.user);
        } else if (call < 224) {
            SetRtp(handle, in);
        } else if (call < 234) {
            const std::vector<uint8_t> key = in.Bytes(in.U8() % 40);
            MX_SetEncryptType(handle, in.U8() % 4 == 3, key.data(), static_cast<uint32_t>(key.size()));
        } else if (call < 244) {
            const void* table = nullptr;
            uint32_t count = 0;
            MX_GetPacketCapacity(handle, in.U8() % 3, &table, &count);
        } else if (call < 250) {
            MX_CreateTailer(handle, nullptr);
        } else {
            header();
        }
    }
    MX_CreateTailer(handle, nullptr);
    MX_DestroyHandle(handle);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input in(data, size);
    Run(in);
    return 0;
}
