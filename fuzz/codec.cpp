// What all formats stand on, called by itself with any bytes, places and lengths: searches, conversions, readers of
// bits and of codec headers, writers of fields, the cipher. Each is held to what its header promises, by a model that
// is slow and short.
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <span>
#include <vector>

#include "MuxoraAPI.h"
#include "codec/annexb.h"
#include "codec/audio_frames.h"
#include "codec/audio_header.h"
#include "codec/audio_measures.h"
#include "codec/avc_convert.h"
#include "codec/bit_reader.h"
#include "codec/ebml.h"
#include "codec/hevc_convert.h"
#include "codec/hevc_sps.h"
#include "codec/mpeg4_config.h"
#include "codec/mpeg4_headers.h"
#include "codec/parameter_sets.h"
#include "codec/rbsp.h"
#include "codec/sps_details.h"
#include "codec/start_code.h"
#include "codec/wave_tag.h"
#include "core/byte_writer.h"
#include "harness/frame_memory.h"
#include "harness/input.h"
#include "harness/kernels.h"
#include "ovx/aes.h"

namespace {

using namespace Orvane::Muxora;
using fuzz::Input;
using fuzz::Require;

using Bytes = std::vector<uint8_t>;

// All that is left of an input, in memory whose end, `offset` bytes behind it, AddressSanitizer watches.
struct Rest {
    explicit Rest(Input& in) : Rest(in.U8() % 32, in.Bytes(SIZE_MAX)) {}
    Rest(size_t offset, const Bytes& bytes)
        : memory(bytes.size(), offset), data(memory.Data()), length(static_cast<uint32_t>(bytes.size())) {
        if (!bytes.empty()) std::memcpy(data, bytes.data(), bytes.size());
    }

    fuzz::FrameMemory memory;
    uint8_t* data;
    uint32_t length;
};

// The first place with these bytes.
template <size_t N>
const uint8_t* Search(const uint8_t* begin, const uint8_t* end, const uint8_t (&code)[N]) {
    return std::search(begin, end, std::begin(code), std::end(code));
}

void SearchStartCodes(Input& in) {
    const uint32_t from = in.U16();
    const Rest rest(in);
    const uint8_t* const end = rest.data + rest.length;
    constexpr uint8_t kShort[] = {0, 0, 1};
    constexpr uint8_t kLong[] = {0, 0, 0, 1};
    const uint8_t* const first = Search(rest.data, end, kShort);
    const uint8_t* const first_long = Search(rest.data, end, kLong);
    Require(FindStartCode(rest.data, end) == first);
    Require(FindLongStartCode(rest.data, end) == first_long);
    const auto copies = [&](auto copy_to, const uint8_t* place) {
        const auto out = std::make_unique<uint8_t[]>(rest.length);
        Require(copy_to(out.get(), rest.data, end) == place);
        Require(std::memcmp(rest.data, out.get(), static_cast<size_t>(place - rest.data)) == 0);
    };
    copies(CopyToStartCode, first);
    copies(CopyToLongStartCode, first_long);

    StartCode expected;
    for (uint32_t at = from; !expected && at + 3 < rest.length; ++at) {
        if (std::memcmp(rest.data + at, kLong, 4) == 0)
            expected = {at, 4};
        else if (std::memcmp(rest.data + at, kShort, 3) == 0)
            expected = {at, 3};
    }
    const StartCode found = NextStartCode(rest.data, rest.length, from);
    Require(found.size == expected.size && (!found || found.position == expected.position));
    Require(!NextStartCode(nullptr, rest.length, from));
}

// Units behind their lengths, from the first byte to the last.
void RequireWhole(std::span<const uint8_t> frame) {
    while (!frame.empty()) {
        Require(frame.size() >= 4);
        const uint32_t length =
            uint32_t{frame[0]} << 24 | uint32_t{frame[1]} << 16 | uint32_t{frame[2]} << 8 | frame[3];
        Require(length <= frame.size() - 4);
        frame = frame.subspan(4 + length);
    }
}

// What a conversion should give where there is room for it all.
Bytes LengthPrefixed(const uint8_t* data, uint32_t length) {
    Bytes out;
    for (StartCode code = NextStartCode(data, length, 0); code;) {
        const StartCode next = NextStartCode(data, length, code.Payload());
        const uint32_t end = next ? next.position : length;
        uint8_t head[4];
        PutBE32(head, end - code.Payload());
        out.insert(out.end(), std::begin(head), std::end(head));
        out.insert(out.end(), data + code.Payload(), data + end);
        code = next;
    }
    return out;
}

void Convert(Input& in) {
    const uint32_t capacity = in.Number();
    const bool null_out = in.U8() == 255;
    const Rest rest(in);
    Bytes area(std::min<uint32_t>(capacity, 1u << 16));
    uint8_t* const out = null_out || area.empty() ? nullptr : area.data();
    const auto room = static_cast<uint32_t>(area.size());
    for (const auto convert : {&CAvcConvert::ConvertToLengthPrefixed, &HevcConvertToLengthPrefixed}) {
        const uint32_t written = convert(rest.data, rest.length, out, room);
        if (written == UINT32_MAX) {
            Require(out == nullptr || room == 0);
            continue;
        }
        Require(out != nullptr && written <= room);
        RequireWhole({out, written});
        const Bytes all = LengthPrefixed(rest.data, rest.length);
        if (all.size() > room) continue;
        Require(written == all.size() && (written == 0 || std::memcmp(out, all.data(), written) == 0));
    }
    for (const auto copy :
         {&CAvcConvert::GetSps, &CAvcConvert::GetPps, &HevcGetVps, &HevcGetSps, &HevcGetPps, &HevcGetPrefixSei}) {
        const int32_t length = copy(rest.data, rest.length, out, room);
        Require(length <= static_cast<int32_t>(room) && length >= -1);
        Require(length <= 0 || out != nullptr);
        // What it found stands in the input, but for two bytes of length that H.265's put in front.
        if (length > 2)
            Require(std::search(rest.data, rest.data + rest.length, out + 2, out + length) != rest.data + rest.length);
        Require(copy(rest.data, rest.length, nullptr, 0) == -1 && copy(nullptr, 0, area.data(), 1) <= 0);
    }
    const Mpeg4Config config = FindMpeg4Config(rest.data, rest.length);
    Require(!config.found || uint64_t{config.offset} + config.length <= rest.length);
    const std::span<const uint8_t> headers = FindMpeg4Headers({rest.data, rest.length});
    Require(headers.empty() ||
            (headers.data() >= rest.data && headers.data() + headers.size() <= rest.data + rest.length));
}

// The bits as they stand, and zeros behind them.
class Bits {
  public:
    explicit Bits(std::span<const uint8_t> bytes) : bytes_(bytes) {}
    uint32_t Peek(uint32_t count) const {
        uint32_t value = 0;
        for (uint32_t i = 0; i < count; ++i)
            value = value << 1 | Bit(at_ + i);
        return value;
    }
    uint32_t Read(uint32_t count) {
        const uint32_t value = Peek(count);
        at_ += count;
        return value;
    }
    uint32_t ReadUe() {
        uint32_t zeros = 0;
        while (zeros < 32 && Bit(at_ + zeros) == 0)
            ++zeros;
        if (zeros == 32) return UINT32_MAX;
        at_ += zeros + 1;
        return (1u << zeros) - 1 + Read(zeros);
    }
    uint32_t Left() const { return static_cast<uint32_t>(bytes_.size() * 8 > at_ ? bytes_.size() * 8 - at_ : 0); }

  private:
    uint32_t Bit(size_t at) const { return at / 8 < bytes_.size() ? bytes_[at / 8] >> (7 - at % 8) & 1u : 0; }

    std::span<const uint8_t> bytes_;
    size_t at_ = 0;
};

void ReadBits(Input& in) {
    const Bytes calls = in.Bytes(in.U8());
    const uint32_t value = in.U32();
    for (uint32_t first = 0; first < 34; first += 3) {
        const uint32_t last = value % 40;
        const auto cut = [&](uint32_t width, uint32_t bits) {
            const uint32_t to = std::min(last, width);
            if (first >= to) return 0u;
            return static_cast<uint32_t>(uint64_t{bits} >> (width - to) & ((uint64_t{1} << (to - first)) - 1));
        };
        const auto swapped = [](uint32_t bytes, int width) {
            return width == 16 ? (bytes >> 8 & 0xFF) | (bytes & 0xFF) << 8 : __builtin_bswap32(bytes);
        };
        Require(ExtractBits8(static_cast<uint8_t>(value), first, last) == cut(8, value & 0xFF));
        Require(ExtractBits16(static_cast<uint16_t>(value), first, last) == cut(16, swapped(value & 0xFFFF, 16)));
        Require(ExtractBits32(value, first, last) == cut(32, swapped(value, 32)));
    }
    const Rest rest(in);
    CBitReader reader;
    reader.Init(nullptr, rest.length);
    Require(reader.Read(32) == 0);
    reader.Init(rest.data, rest.length);
    Bits model({rest.data, rest.length});
    for (const uint8_t call : calls) {
        const uint32_t count = call % 33;
        if (call < 99) {
            Require(reader.Read(count) == model.Read(count));
        } else if (call < 132) {
            Require(reader.Peek(count) == model.Peek(count));
        } else if (call < 165) {
            reader.Skip(count);
            model.Read(count);
        } else if (model.Left() > 64) {
            const uint32_t expected = model.ReadUe();
            if (call < 210) {
                Require(reader.ReadUe() == expected);
            } else {
                const int64_t half = (int64_t{expected} + 1) / 2;
                const int32_t got = reader.ReadSe();
                if (expected != UINT32_MAX) Require(got == (expected % 2 != 0 ? half : -half));
            }
            if (expected == UINT32_MAX) break;
        }
    }
}

uint64_t WideNumber(Input& in) {
    return in.U64() >> in.U8() % 64;
}

void WriteNumbers(Input& in) {
    while (!in.Empty()) {
        const uint64_t value = WideNumber(in);
        uint32_t length = 0;
        const uint8_t* const code = EbmlCodeSize(value, &length);
        Require(length == EbmlCodeLength(value) && length <= 8);
        // Beyond four bytes a size has no code of its own.
        if (value < 0xFFFFFFF) {
            uint64_t read = code[0] & (0xFFu >> length);
            Require(code[0] >> (8 - length) == 1);
            for (uint32_t i = 1; i < length; ++i)
                read = read << 8 | code[i];
            // All ones would say "unknown".
            Require(read == value && read != (uint64_t{1} << 7 * length) - 1);
        }
        uint8_t area[4];
        const auto small = static_cast<uint32_t>(value) & 0x0FFFFFFF;
        const uint32_t groups = PutDescriptorLength(area, small);
        uint32_t read = 0;
        for (uint32_t i = 0; i < groups; ++i) {
            Require((area[i] >= 0x80) == (i + 1 < groups));
            read = read << 7 | (area[i] & 0x7F);
        }
        Require(read == small && PutDescriptorLength(nullptr, small) == 0);
        WaveFormatTag(static_cast<uint32_t>(value));
    }
}

// Fields one behind the other in an area of any size; one that does not fit is left out.
void WriteFields(Input& in) {
    constexpr uint8_t* kNowhere = nullptr;
    constexpr uint8_t kGuid[16] = {};
    Require(PutU8(kNowhere, 1) + PutBE16(kNowhere, 1) + PutBE24(kNowhere, 1) + PutBE32(kNowhere, 1) == 0);
    Require(PutBE64(kNowhere, 1) + PutLE16(kNowhere, 1) + PutLE32(kNowhere, 1) + PutLE64(kNowhere, 1) == 0);
    Require(PutGuid(kNowhere, kGuid) == 0);
    const uint32_t capacity = in.U8();
    Bytes area(capacity + 1, 0xC3);
    ByteCursor out(in.U8() == 255 ? nullptr : area.data(), capacity);
    const uint32_t room = out.Data() != nullptr ? capacity : 0;
    Bytes model;
    bool ok = true;
    while (!in.Empty()) {
        const uint64_t value = WideNumber(in);
        const uint8_t what = in.U8() % 10;
        constexpr uint32_t kWidths[] = {1, 2, 3, 4, 8, 2, 4, 8, 16, 5};
        Bytes field(kWidths[what]);
        for (size_t i = 0; i < field.size(); ++i) {
            const size_t place = what < 5 ? field.size() - 1 - i : i;
            field[i] = what == 9 ? 7 : static_cast<uint8_t>(what == 8 ? i : value >> (8 * place));
        }
        switch (what) {
            case 0:
                out.U8(static_cast<uint8_t>(value));
                break;
            case 1:
                out.BE16(static_cast<uint16_t>(value));
                break;
            case 2:
                out.BE24(static_cast<uint32_t>(value));
                break;
            case 3:
                out.BE32(static_cast<uint32_t>(value));
                break;
            case 4:
                out.BE64(value);
                break;
            case 5:
                out.LE16(static_cast<uint16_t>(value));
                break;
            case 6:
                out.LE32(static_cast<uint32_t>(value));
                break;
            case 7:
                out.LE64(value);
                break;
            case 8:
                out.Guid(field.data());
                break;
            default:
                out.Fill(7, 5);
                break;
        }
        if (field.size() <= room - model.size()) {
            model.insert(model.end(), field.begin(), field.end());
        } else {
            ok = false;
        }
    }
    Require(out.Ok() == ok && out.Size() == model.size());
    Require(model.empty() || std::memcmp(out.Data(), model.data(), model.size()) == 0);
    Require(area[capacity] == 0xC3);
}

void Encrypt(Input& in) {
    CAes cipher;
    size_t key_length = 0;
    while (!in.Empty()) {
        const uint8_t call = in.U8();
        if (call < 100) {
            const Bytes key = in.Bytes(call < 50 ? size_t{16} + call % 3 * 8 : in.U8());
            const bool usable = key.size() == 16 || key.size() == 24 || key.size() == 32;
            const bool no_key = key.empty() || key.size() >= 64 || (key.size() % 2 != 0 && key.size() != 1);
            Require(cipher.setKey(key.data(), static_cast<uint32_t>(key.size())) == usable);
            if (!no_key) key_length = usable ? key.size() : 0;
            Require(cipher.isReady() == (key_length != 0));
            // The same one again.
            if (usable) Require(cipher.setKey(key.data(), static_cast<uint32_t>(key.size())));
            continue;
        }
        fuzz::UseKernels(call % 4);
        const Bytes text = in.Bytes(in.U8());
        const auto length = static_cast<uint32_t>(text.size());
        const uint32_t whole = length / 16 * 16;
        Bytes secret(text.size() + 1);
        uint32_t capacity = call == 255 ? in.U8() : length;
        const bool fits = capacity >= whole;
        const bool done = cipher.encrypt(text.data(), length, secret.data(), &capacity);
        Require(done == (key_length != 0 && whole != 0 && fits));
        Require(!cipher.encrypt(text.data(), length, secret.data(), nullptr));
        Require(!cipher.decrypt(text.data(), length, nullptr, &capacity));
        if (!done) continue;
        // Another kernel does the same, and takes it back.
        Require(capacity == whole && !std::equal(text.begin(), text.begin() + whole, secret.begin()));
        fuzz::UseKernels((call + 1) % 4);
        Bytes other(text.size());
        Require(cipher.encrypt(text.data(), length, other.data(), &capacity) && capacity == whole);
        Require(std::equal(other.begin(), other.begin() + whole, secret.begin()));
        Require(cipher.decrypt(secret.data(), length, secret.data(), &capacity) && capacity == whole);
        Require(std::equal(text.begin(), text.begin() + whole, secret.begin()));
        capacity = whole - 1;
        Require(!cipher.decrypt(secret.data(), length, secret.data(), &capacity));
    }
}

void MeasureSound(Input& in) {
    const uint32_t rate = in.Number();
    const uint8_t codec = in.U8();
    const uint32_t bits = in.Number();
    const uint32_t channels = in.Number();
    const uint32_t index = in.U8();
    Rest rest(in);
    const std::span<const uint8_t> bytes(rest.data, rest.length);
    const std::span<const uint8_t> payload = AdtsPayload(rest.data, rest.length);
    Require(payload.data() == nullptr || (payload.data() == rest.data + 7 && payload.size() + 7 <= rest.length));
    Require(CountAdtsFrames(rest.data, rest.length) <= rest.length / 6 + 1);
    uint32_t version = 77;
    uint32_t layer = 77;
    CountMpegAudioFrames(rest.data, rest.length, rate, &version, &layer);
    Require(CountMpegAudioFrames(nullptr, rest.length, rate, &version, &layer) == 0);
    Require(CountMpegAudioFrames(rest.data, rest.length, 0, &version, &layer) == 0);
    MpegAudioSamplesPerFrame(version, layer);
    Require(MpegAudioBitrate(index % 4, index / 4 % 5, index / 8) <= 448);
    const auto adts = ReadAdtsHeader(bytes);
    Require(!adts ||
            (adts->frame_size <= rest.length && adts->header_size <= adts->frame_size && adts->samples >= 1024));
    if (adts) Require(SamplingFrequencyIndex(adts->sample_rate) == adts->frequency_index);
    const auto mpeg = ReadMpegAudioHeader(bytes);
    Require(!mpeg || (mpeg->layer >= 1 && mpeg->layer <= 3 && mpeg->sample_rate >= 8000 && mpeg->samples != 0));
    MXFrameInfo frame{};
    frame.frame_type = MX_FRAME_AUDIO;
    frame.encode_type = codec;
    frame.frame_pointer = rest.data;
    frame.frame_size = rest.length;
    frame.samples_per_sec = rate;
    frame.bits_per_sample = bits;
    frame.channels = channels;
    const AudioMeasure measure = MeasureAudio(frame);
    Require(measure.samples == 0 || measure.sample_rate != 0);
    Require(GetAudioFrameDuration(frame) >= 0);
}

template <typename Write>
Bytes Written(uint32_t size, Write write) {
    Bytes out(size + 16);
    ByteCursor cursor(out.data(), static_cast<uint32_t>(out.size()));
    write(cursor);
    Require(cursor.Size() == size);
    out.resize(size);
    return out;
}

// All that a decoder is told.
Bytes DecoderConfiguration(const CParameterSets& sets) {
    Bytes all = Written(sets.UnitsSize(), [&](ByteCursor& out) { sets.WriteAnnexB(out); });
    const Bytes prefixed = Written(sets.UnitsSize(), [&](ByteCursor& out) { sets.WriteLengthPrefixed(out); });
    RequireWhole(prefixed);
    all.insert(all.end(), prefixed.begin(), prefixed.end());
    if (sets.Complete()) {
        const Bytes record = Written(sets.ConfigurationSize(), [&](ByteCursor& out) { sets.WriteConfiguration(out); });
        all.insert(all.end(), record.begin(), record.end());
    }
    return all;
}

void GatherParameterSets(Input& in) {
    const uint8_t how = in.U8();
    CParameterSets sets(how % 2 == 0 ? NalCodec::kAvc : NalCodec::kHevc);
    while (!in.Empty()) {
        const uint8_t call = in.U8();
        Bytes frame = in.Bytes(call < 240 ? size_t{call} : in.U16());
        const Bytes before = DecoderConfiguration(sets);
        FrameNals found;
        if (how % 4 < 2) {
            found = sets.ScanAnnexB(frame);
        } else {
            // The fuzzer's bytes as one unit, or as they are.
            if (call % 4 != 0) {
                uint8_t length[4];
                PutBE32(length, static_cast<uint32_t>(frame.size()));
                frame.insert(frame.begin(), std::begin(length), std::end(length));
            }
            found = sets.ScanLengthPrefixed(frame);
        }
        Require(found.rest <= frame.size());
        const Bytes after = DecoderConfiguration(sets);
        if (!found.changed) Require(after == before);
        if (call % 8 == 0) {
            sets.Undo();
            Require(DecoderConfiguration(sets) == before);
        }
        sets.Details();
    }
}

void ReadParameterSets(Input& in) {
    const Rest rest(in);
    const std::span<const uint8_t> nal(rest.data, rest.length);
    const auto avc = ReadAvcSps(nal);
    Require(!avc || (avc->width != 0 && avc->height != 0 && (nal[0] & 31) == 7));
    HevcProfile profile;
    const auto hevc = ReadHevcSps(nal, &profile);
    Require(!hevc || (hevc->width != 0 && hevc->height != 0 && (nal[0] >> 1 & 63) == 33));
    Require(hevc.has_value() == ReadHevcSps(nal).has_value());
    HevcSpsSummary summary;
    const int32_t result = ParseHevcSps(rest.data, rest.length, &summary);
    Require(result == 0 || (result == -1 && summary == HevcSpsSummary{}));
    Require(ParseHevcSps(nullptr, rest.length, &summary) == -1);
    if (const auto message = FindSeiMessage(nal, 1); message && !message->empty()) {
        Require(message->data() >= rest.data && message->data() + message->size() <= rest.data + rest.length);
    }
}

constexpr void (*kCases[])(Input& in) = {SearchStartCodes, Convert, ReadBits,     WriteNumbers,
                                         WriteFields,      Encrypt, MeasureSound, GatherParameterSets,
                                         ReadParameterSets};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    fuzz::UseKernels(data[1] % 4);
    Input in(data + 2, size - 2);
    kCases[data[0] % std::size(kCases)](in);
    return 0;
}
