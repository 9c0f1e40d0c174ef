// Whatever the processor has: the same frames come to the same bytes under every kernel, each forced in turn.
#include <gtest/gtest.h>

#include <cstdlib>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "MuxoraExt.h"
#include "api/format_table.h"
#include "codec/fragments.h"
#include "codec/full_packets.h"
#include "codec/kernels/crc32_kernels.h"
#include "codec/kernels/start_code_kernels.h"
#include "codec/piece_copy.h"
#include "core/clock.h"
#include "core/rtp_params.h"
#include "ovx/aes_kernels.h"
#include "support/frames.h"
#include "support/kernels.h"
#include "support/noise.h"
#include "support/sink.h"

namespace Orvane::Muxora {
namespace {

using test::Bytes;
using test::ByteVector;
using test::operator+;

constexpr uint32_t kFormats[] = {
    MX_FORMAT_MP4,        MX_FORMAT_ASF,    MX_FORMAT_AVI,   MX_FORMAT_OVX,   MX_FORMAT_FLV,  MX_FORMAT_ASF_STREAM,
    MX_FORMAT_MOV,        MX_FORMAT_RTP,    MX_FORMAT_TS,    MX_FORMAT_PS,    MX_FORMAT_MKV,  MX_FORMAT_MP4_NOSEEK,
    MX_FORMAT_FLV_STREAM, MX_FORMAT_MP4_64, MX_FORMAT_PS_OV, MX_FORMAT_PS_GD, MX_FORMAT_WAV,  MX_FORMAT_PS_GAYS,
    MX_FORMAT_MOV_64,     MX_FORMAT_FMP4,   MX_FORMAT_HMP4,  MX_FORMAT_XMKV,  MX_FORMAT_XFLV, MX_FORMAT_XTS};

// Slices of noise with zeros strewn in, a start code in front of each; one byte more than the frame stands behind it.
ByteVector Picture(std::mt19937& random, bool key, size_t slice_size, size_t slices) {
    ByteVector data = Bytes("00 00 00 01 09 10");
    if (key) {
        data =
            data + Bytes("00 00 00 01 67 64 00 28 AC D9 40 78 02 27 E5 C0 44 11 6E 3C 00 00 00 01 68 EB E3 CB 22 C0");
    }
    for (size_t i = 0; i < slices; ++i) {
        data = data + (i % 2 == 0 ? Bytes("00 00 00 01") : Bytes("00 00 01")) + Bytes(key ? "65" : "41");
        const ByteVector noise = test::RandomBytes(random, slice_size);
        for (const uint8_t byte : noise)
            data.push_back(random() % 40 == 0 ? uint8_t{0} : static_cast<uint8_t>(byte | 4));
    }
    data.push_back(0x80);
    return data;
}

ByteVector Adts(std::mt19937& random, uint32_t size) {
    return test::Adts(test::RandomBytes(random, size - 7));
}

struct Media {
    std::vector<ByteVector> pictures;
    std::vector<ByteVector> sounds;
};

// Made once: noise is most of what this test takes in an emulator.
Media MakeMedia(bool wav) {
    Media media;
    std::mt19937 random(4);
    const size_t sizes[] = {70'000, 40, 1385, 5000, 33'333, 2048, 1384, 65'500};
    for (uint32_t i = 0; i < std::size(sizes); ++i) {
        media.pictures.push_back(Picture(random, i % 4 == 0, sizes[i], 1 + i % 3));
        media.sounds.push_back(wav ? test::RandomBytes(random, 4000) : Adts(random, 341 + i));
    }
    return media;
}

// The whole output of a format, from the same frames each time.
ByteVector Pack(uint32_t format) {
    static const Media kWithAac = MakeMedia(false);
    static const Media kWithPcm = MakeMedia(true);
    const Media& media = format == MX_FORMAT_WAV ? kWithPcm : kWithAac;
    const ScopedClock clock(1'700'000'000);
    std::srand(1);
    test::Sink sink;
    const MXCreateParam param = sink.Param();
    const auto package = MakePackage(format, &param);
    if (package == nullptr || package->init() != MX_OK) return {};
    if (auto* const rtp = dynamic_cast<IRtpParams*>(package.get())) rtp->SetRtpValue("rtp_audio_sample", 48000);
    MXHeaderInfo header{};
    header.size = sizeof header;
    header.video_present = format != MX_FORMAT_WAV;
    header.video_encode_type = MX_VIDEO_H264;
    header.width = 1920;
    header.height = 1080;
    header.frame_rate = 25;
    header.audio_present = 1;
    header.audio_encode_type = format == MX_FORMAT_WAV ? MX_AUDIO_PCM16 : MX_AUDIO_AAC;
    header.channels = 2;
    header.bits_per_sample = 16;
    header.samples_per_sec = 48000;
    header.start_time_ms = 1;
    package->createHeader(&header, 0);
    const uint8_t key[16] = {7};
    package->setEncryptType(MX_ENCRYPT_AES, key, sizeof key);
    for (uint32_t i = 0; i < media.pictures.size(); ++i) {
        const bool is_key = i % 4 == 0;
        ByteVector picture = media.pictures[i];  // some formats change the caller's
        MXFrameInfo video = test::VideoFrame(picture, MX_VIDEO_H264, is_key ? MX_SUB_I : MX_SUB_P, 40 * i + 40);
        video.frame_size -= 1;
        video.encrypt_length = 4000;
        package->inputFrame(&video, 0);
        ByteVector sound = media.sounds[i];
        MXFrameInfo audio = test::AudioFrame(sound, header.audio_encode_type, 40 * i + 41);
        package->inputFrame(&audio, 0);
    }
    package->createTailer(&header, 0);
    ByteVector out;
    for (const auto& block : sink.blocks) {
        out.insert(out.end(), block.data.begin(), block.data.end());
        for (int shift = 0; shift < 64; shift += 8)
            out.push_back(static_cast<uint8_t>(block.offset >> shift));
    }
    return out;
}

std::map<uint32_t, ByteVector> PackAll() {
    std::map<uint32_t, ByteVector> all;
    for (const uint32_t format : kFormats)
        all[format] = Pack(format);
    return all;
}

template <typename Choice, typename Family>
void ExpectTheSame(Choice& choice, const Family& family, const std::map<uint32_t, ByteVector>& expected) {
    for (const auto& kernel : test::Supported(family)) {
        ASSERT_TRUE(choice.Use(kernel.name));
        for (const uint32_t format : kFormats)
            EXPECT_TRUE(Pack(format) == expected.at(format)) << "format " << format << " by " << kernel.name;
    }
    choice.Use(Choice::Best().name);
}

TEST(KernelSets, EveryFormatHasTheSameBytesUnderEachKernel) {
    // What everything else is held against: the kernels that every processor has.
    Kernels::start_code_choice.Use(Kernels::StartCodeKernels().back().name);
    Kernels::crc32_choice.Use(Kernels::Crc32Kernels().back().name);
    Kernels::aes_choice.Use(Kernels::AesKernels().back().name);
    fragment_choice.Use(FragmentKernels().back().name);
    piece_choice.Use(PieceKernels().back().name);
    cut_choice.Use(CutKernels().back().name);
    const std::map<uint32_t, ByteVector> expected = PackAll();
    for (const auto& [format, bytes] : expected)
        EXPECT_GT(bytes.size(), format == MX_FORMAT_WAV ? 25'000u : 250'000u) << format;

    ExpectTheSame(Kernels::start_code_choice, Kernels::StartCodeKernels(), expected);
    ExpectTheSame(Kernels::crc32_choice, Kernels::Crc32Kernels(), expected);
    ExpectTheSame(Kernels::aes_choice, Kernels::AesKernels(), expected);
    ExpectTheSame(fragment_choice, FragmentKernels(), expected);
    ExpectTheSame(piece_choice, PieceKernels(), expected);
    ExpectTheSame(cut_choice, CutKernels(), expected);
    // And all the fastest together.
    EXPECT_TRUE(PackAll() == expected);
}

}  // namespace
}  // namespace Orvane::Muxora
