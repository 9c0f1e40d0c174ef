#include "workload.h"

#include <benchmark/benchmark.h>
#include <sched.h>

#include <algorithm>
#include <cstring>

namespace bench {

namespace {

constexpr uint32_t kFrameRate = 25;
constexpr uint32_t kAacSize = 341;  // 128 kbit/s at 48000 Hz
constexpr uint32_t kAacRate = 48000;
constexpr uint32_t kTelephoneSize = 320;  // 40 ms at 8000 Hz
constexpr uint32_t kReadableBehind = 64;

void Append(std::vector<uint8_t>& out, std::initializer_list<uint8_t> bytes) {
    out.insert(out.end(), bytes);
}

}  // namespace

Workload::Workload(const WorkloadShape& shape, Codecs codecs) : shape_(shape) {
    const uint32_t audio_step = codecs.audio == MX_AUDIO_AAC ? 1024 * 1000 : 40 * kAacRate;  // ms times kAacRate
    uint64_t audio_time = 0;
    for (uint32_t number = 0; number < shape.seconds * kFrameRate; ++number) {
        const uint32_t timestamp = number * 1000 / kFrameRate;
        const bool key = number % kFrameRate == 0;
        while (codecs.audio != 0 && audio_time / kAacRate < timestamp) {
            AddAudio(static_cast<uint32_t>(audio_time / kAacRate), codecs.audio);
            audio_time += audio_step;
        }
        AddVideo(key ? shape.key_frame_size : shape.other_frame_size, key, timestamp, codecs.video);
    }
    if (codecs.video != 0) return;
    // A format without video takes the same bytes as audio.
    for (Frame& frame : frames_) {
        frame.info.frame_type = MX_FRAME_AUDIO;
        frame.info.encode_type = codecs.audio;
        frame.info.samples_per_sec = kAacRate;
    }
}

MXFrameInfo Workload::Next(const Frame& frame, uint32_t pass) const {
    MXFrameInfo info = frame.info;
    auto* const bytes = static_cast<uint8_t*>(info.frame_pointer);
    for (const uint32_t at : frame.start_codes)
        std::memcpy(bytes + at, "\0\0\0\1", 4);
    info.timestamp += pass * shape_.seconds * 1000 + 1000;
    return info;
}

void Workload::AddVideo(uint32_t size, bool key, uint32_t timestamp, uint32_t codec) {
    std::vector<uint8_t> bytes;
    bytes.reserve(size + kReadableBehind);
    Frame frame{};
    const auto nal = [&](std::initializer_list<uint8_t> payload) {
        frame.start_codes.push_back(static_cast<uint32_t>(bytes.size()));
        Append(bytes, {0, 0, 0, 1});
        Append(bytes, payload);
    };
    nal({0x09, 0x10});
    if (key) {
        nal({0x67, 0x64, 0x00, 0x28, 0xAC, 0xD9, 0x40, 0x78, 0x02, 0x27, 0xE5, 0xC0, 0x44, 0x11, 0x6E, 0x3C});
        nal({0x68, 0xEB, 0xE3, 0xCB, 0x22, 0xC0});
    }
    nal({static_cast<uint8_t>(key ? 0x65 : 0x41)});
    // Slice data: random bytes with the emulation prevention that an encoder puts in.
    uint32_t zeros = 0;
    while (bytes.size() < size) {
        random_ = random_ * 1664525 + 1013904223;
        auto byte = static_cast<uint8_t>(random_ >> 24);
        if (zeros >= 2 && byte <= 3) byte = 3;
        zeros = byte == 0 ? zeros + 1 : 0;
        bytes.push_back(byte);
    }
    bytes.back() = 0x80;
    frame.info.frame_size = static_cast<uint32_t>(bytes.size());
    frame.info.frame_type = MX_FRAME_VIDEO;
    frame.info.frame_sub_type = key ? MX_SUB_I : MX_SUB_P;
    frame.info.encode_type = codec;
    frame.info.timestamp = timestamp;
    frame.info.width = 1920;
    frame.info.height = 1080;
    frame.info.frame_rate = kFrameRate;
    frame.info.size = sizeof frame.info;
    frame.info.frame_pointer = Store(bytes);
    largest_ = std::max(largest_, frame.info.frame_size);
    bytes_ += frame.info.frame_size;
    frames_.push_back(std::move(frame));
}

void Workload::AddAudio(uint32_t timestamp, uint32_t codec) {
    const bool aac = codec == MX_AUDIO_AAC;
    std::vector<uint8_t> bytes;
    // ADTS: AAC LC, 48000 Hz, stereo, a frame of kAacSize bytes (ISO/IEC 13818-7 6.2).
    if (aac) {
        Append(bytes, {0xFF, 0xF1, 0x4C, static_cast<uint8_t>(0x80 | kAacSize >> 11),
                       static_cast<uint8_t>(kAacSize >> 3), static_cast<uint8_t>((kAacSize & 7) << 5 | 0x1F), 0xFC});
    }
    while (bytes.size() < (aac ? kAacSize : kTelephoneSize)) {
        random_ = random_ * 1664525 + 1013904223;
        bytes.push_back(static_cast<uint8_t>(random_ >> 24));
    }
    Frame frame{};
    frame.info.size = sizeof frame.info;
    frame.info.frame_size = static_cast<uint32_t>(bytes.size());
    frame.info.frame_type = MX_FRAME_AUDIO;
    frame.info.encode_type = codec;
    frame.info.timestamp = timestamp;
    frame.info.samples_per_sec = aac ? kAacRate : 8000;
    frame.info.bits_per_sample = 16;
    frame.info.channels = aac ? 2 : 1;
    frame.info.frame_pointer = Store(bytes);
    bytes_ += frame.info.frame_size;
    largest_ = std::max(largest_, frame.info.frame_size);
    frames_.push_back(std::move(frame));
}

uint8_t* Workload::Store(const std::vector<uint8_t>& bytes) {
    std::vector<uint8_t> stored = bytes;
    stored.resize(bytes.size() + kReadableBehind);
    storage_.push_back(std::move(stored));
    return storage_.back().data();
}

void CopyPass(const Workload& workload, std::vector<uint8_t>& buffer) {
    buffer.resize(workload.largest());
    for (const auto& frame : workload.frames()) {
        // The record is made ready as it is for a packager, so that the harness weighs on both sides alike.
        const MXFrameInfo info = workload.Next(frame, 0);
        std::memcpy(buffer.data(), info.frame_pointer, info.frame_size);
        benchmark::DoNotOptimize(buffer.data());
        benchmark::ClobberMemory();
    }
}

void PinThread() {
    const int processor = sched_getcpu();
    if (processor < 0) return;
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(static_cast<size_t>(processor), &set);
    sched_setaffinity(0, sizeof set, &set);
}

void Ratio::Add(double ours, double reference) {
    ours_.push_back(ours);
    reference_.push_back(reference);
    if (reference > 0) ratios_.push_back(ours / reference);
}

namespace {

// The value that the given part of the others lies below.
double Quantile(std::vector<double> values, double part) {
    if (values.empty()) return 0;
    const auto place = values.begin() + static_cast<std::ptrdiff_t>(static_cast<double>(values.size() - 1) * part);
    std::nth_element(values.begin(), place, values.end());
    return *place;
}

}  // namespace

double Ratio::Ours() const {
    return Quantile(ours_, 0.5);
}

double Ratio::Reference() const {
    return Quantile(reference_, 0.5);
}

double Ratio::Median() const {
    return Quantile(ratios_, 0.5);
}

double Ratio::Spread() const {
    return (Quantile(ratios_, 0.75) - Quantile(ratios_, 0.25)) / 2;
}

}  // namespace bench
