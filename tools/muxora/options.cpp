#include "muxora/options.h"

#include <unistd.h>
#include <CLI/CLI.hpp>

#include <cctype>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <thread>

#include "muxora/command.h"

namespace Orvane::Muxora::Tools {

namespace {

int64_t NowNs() {
    return std::chrono::steady_clock::now().time_since_epoch() / std::chrono::nanoseconds(1);
}

// Static payload types of RFC 3551 where the codec has one, else a dynamic one.
uint32_t VideoPayloadType(const MediaStream& stream) {
    return stream.codec == MX_VIDEO_MJPEG ? 26 : 96;
}

uint32_t AudioPayloadType(const MediaStream& stream) {
    const bool telephone = stream.samples_per_sec == 8000 && stream.channels == 1;
    if (stream.codec == MX_AUDIO_MULAW && telephone) return 0;
    if (stream.codec == MX_AUDIO_ALAW && telephone) return 8;
    if (stream.codec == MX_AUDIO_MPEG) return 14;
    return 97;
}

}  // namespace

void InputArguments::AddTo(CLI::App& command) {
    command.add_option("INPUT", paths, "Media files, or raw elementary streams; - is the standard input")->required();
    command.add_option("--fps", fps, "Frames per second of raw video; in a file, what to state instead of its own")
        ->check(CLI::Range(1, 1000));
    command.add_option("--duration", duration, "Stop after so many seconds of media")->check(CLI::Range(0.001, 1e9));
    auto* pick_video = command.add_option("--video", video, "Take this stream, counted from 0 through all inputs")
                           ->check(CLI::NonNegativeNumber);
    auto* pick_audio = command.add_option("--audio", audio, "Take this stream, counted from 0 through all inputs")
                           ->check(CLI::NonNegativeNumber);
    command.add_flag("--no-video", no_video, "Leave the video out")->excludes(pick_video);
    command.add_flag("--no-audio", no_audio, "Leave the audio out")->excludes(pick_audio);
}

InputOptions InputArguments::Options() const {
    InputOptions options;
    options.video = no_video ? StreamChoice::kNone : video;
    options.audio = no_audio ? StreamChoice::kNone : audio;
    options.frame_rate = fps;
    options.duration_ms = static_cast<int64_t>(duration * 1000);
    return options;
}

void KeyArguments::AddTo(CLI::App& command) {
    auto* hex = command.add_option("--key", key,
                                   "ovx: AES key in hex, 16, 24 or 32 bytes; others can read it off the list of "
                                   "processes: prefer --key-file or the variable MUXORA_KEY");
    command.add_option("--key-file", file, "ovx: the file that holds the key in hex")->excludes(hex);
}

bool KeyArguments::Given() const {
    return !key.empty() || !file.empty() || std::getenv("MUXORA_KEY") != nullptr;
}

std::vector<uint8_t> KeyArguments::Bytes() const {
    std::string text = key;
    std::string name = "--key";
    if (!file.empty()) {
        std::ifstream in(file);
        if (!in) throw Failure("cannot read the key from " + file);
        text.assign(std::istreambuf_iterator<char>(in), {});
        name = file;
    } else if (const char* variable = std::getenv("MUXORA_KEY"); key.empty() && variable != nullptr) {
        text = variable;
        name = "MUXORA_KEY";
    }
    std::vector<uint8_t> bytes = HexBytes(text, name);
    if (bytes.size() != 16 && bytes.size() != 24 && bytes.size() != 32) {
        throw WrongUsage(name + " must have 32, 48 or 64 hex digits (AES-128, AES-192, AES-256)");
    }
    return bytes;
}

void RtpArguments::AddTo(CLI::App& command) {
    const std::string group = "RTP";
    command.add_option("--rtp-max-length", max_length, "Largest packet in bytes (1400)")
        ->group(group)
        ->check(CLI::Range(100, 65000));
    command.add_option("--rtp-sequence", sequence, "Video sequence number to start behind")->group(group);
    command.add_option("--rtp-timestamp", timestamp, "Video RTP time to start with")->group(group);
    command.add_option("--rtp-ssrc", ssrc, "Video SSRC")->group(group);
    command.add_option("--rtp-payload-type", payload_type, "Video payload type")
        ->group(group)
        ->check(CLI::Range(0, 127));
    command.add_option("--rtp-audio-sample", audio_sample, "Audio clock in Hz, a multiple of 1000")->group(group);
    command.add_option("--rtp-audio-payload-type", audio_payload_type, "Audio payload type")
        ->group(group)
        ->check(CLI::Range(0, 127));
    command.add_option("--rtp-audio-sequence", audio_sequence, "Audio sequence number to start behind")->group(group);
    command.add_option("--rtp-audio-timestamp", audio_timestamp, "Audio RTP time to start with")->group(group);
    command.add_option("--rtp-audio-ssrc", audio_ssrc, "Audio SSRC")->group(group);
}

MXRtpParam RtpArguments::Param(const MediaStream* video, const MediaStream* audio) const {
    MXRtpParam param{};
    param.size = sizeof param;
    param.max_rtp_packet_length = max_length;
    param.rtp_sequence_number = sequence;
    param.rtp_timestamp = timestamp;
    param.rtp_ssrc = ssrc != 0 ? ssrc : 0x4D580001;
    param.rtp_payload_type = payload_type != 0 || video == nullptr ? payload_type : VideoPayloadType(*video);
    param.rtp_audio_sequence_number = audio_sequence;
    param.rtp_audio_timestamp = audio_timestamp;
    param.rtp_audio_ssrc = audio_ssrc != 0 ? audio_ssrc : 0x4D580002;
    if (audio != nullptr) {
        param.rtp_audio_payload_type = audio_payload_type != 0 ? audio_payload_type : AudioPayloadType(*audio);
        // MPEG audio runs on the 90 kHz clock (RFC 2250), all else on its samples.
        const uint32_t clock = audio->codec == MX_AUDIO_MPEG ? 90000 : audio->samples_per_sec;
        param.rtp_audio_sample = audio_sample != 0 ? audio_sample : clock;
    }
    return param;
}

ProgressLine::ProgressLine(bool quiet) : active_(!quiet && isatty(STDERR_FILENO) == 1), start_ns_(NowNs()) {
}

ProgressLine::~ProgressLine() {
    if (shown_) std::fputs("\r\x1b[K", stderr);
}

double ProgressLine::Seconds() const {
    return static_cast<double>(NowNs() - start_ns_) / 1e9;
}

void ProgressLine::ShowCount(size_t done, size_t total) {
    if (!active_) return;
    shown_ = true;
    const double left = done != 0 ? Seconds() / static_cast<double>(done) * static_cast<double>(total - done) : 0;
    std::fprintf(stderr, "\r\x1b[K%zu of %zu files  %s left", done, total, ClockText(left).c_str());
    std::fflush(stderr);
}

void ProgressLine::Show(int64_t done_ms, int64_t total_ms, uint64_t bytes) {
    if (!active_) return;
    const double now = Seconds();
    if (last_ >= 0 && now - last_ < 0.2) return;
    last_ = now;
    shown_ = true;
    const double done = static_cast<double>(done_ms) / 1000;
    const double speed = now > 0 ? done / now : 0;
    if (total_ms > 0) {
        const double share = std::min(1.0, static_cast<double>(done_ms) / static_cast<double>(total_ms));
        const double left = share > 0 ? now / share - now : 0;
        std::fprintf(stderr, "\r\x1b[K%3.0f %%  %s  %s  %.1fx  %s left", share * 100, ClockText(done).c_str(),
                     SizeText(bytes).c_str(), speed, ClockText(left).c_str());
    } else {
        std::fprintf(stderr, "\r\x1b[K%s  %s  %.1fx", ClockText(done).c_str(), SizeText(bytes).c_str(), speed);
    }
    std::fflush(stderr);
}

}  // namespace Orvane::Muxora::Tools
