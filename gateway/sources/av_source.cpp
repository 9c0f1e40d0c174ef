#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>
#include <vector>

#include "bounds.h"
#include "log.h"
#include "media_input/av_handles.h"
#include "media_input/stream_reader.h"
#include "sources/source.h"

namespace Orvane::Muxora::Gateway {

namespace {

using Clock = std::chrono::steady_clock;
using Tools::AvPtr;
using Tools::InputError;
using Tools::StreamReader;

constexpr std::string_view kListen = "listen+";
// The first picture is shown then: what is decoded ahead of it needs times above 0.
constexpr int64_t kBeginUs = 1000000;
constexpr int64_t kBlockMs = 20;  // of PCM and G.711
constexpr const char* kNetworkProtocols = "udp,rtp,srtp,tcp,tls,rtmp,rtmps,rtsp,srt,http,https,httpproxy,crypto";
constexpr const char* kDescriptionProtocols = "file,udp,rtp,srtp,tcp,crypto";
// How far a live input is read before its streams are taken as they are.
constexpr int64_t kAnalyseUs = 1500000;
constexpr int64_t kProbeBytes = 1 << 20;
// A file whose clock is behind by more is not played faster to catch up: its time starts again.
constexpr std::chrono::seconds kTooLate{1};
// Nor is a jump of its times waited for that is bridged anyway.
constexpr std::chrono::seconds kTooEarly{60};
// Further from the begin no time of an input lies, and no frame lasts longer: whatever is added, nothing overflows.
constexpr int64_t kFurthestUs = int64_t{1} << 53;
constexpr int64_t kFurthestTicks = int64_t{1} << 61;
constexpr int64_t kLongestFrameUs = 10000000;

std::string AvText(int error) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(error, text, sizeof text);
    return text;
}

bool StartsWith(const std::string& text, std::string_view start) {
    return text.compare(0, start.size(), start) == 0;
}

bool EndsWith(const std::string& text, std::string_view end) {
    return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// Sleeps that an end of the gateway cuts short.
class Stopper {
  public:
    bool Stopped() const { return stopped_; }
    void Stop() {
        {
            const std::lock_guard lock(mutex_);
            stopped_ = true;
        }
        wake_.notify_all();
    }
    // False when stopped.
    bool SleepUntil(Clock::time_point when) {
        std::unique_lock lock(mutex_);
        return !wake_.wait_until(lock, when, [this] { return stopped_.load(); });
    }

  private:
    std::atomic<bool> stopped_{false};
    std::mutex mutex_;
    std::condition_variable wake_;
};

// What is opened, and how.
struct InputKind {
    std::string url;
    bool paced = false;    // a file: played by the clock, and again from its start
    bool listens = false;  // waits for a sender
    const char* protocols = nullptr;
};

InputKind KindOf(const std::string& input) {
    InputKind kind;
    kind.listens = StartsWith(input, kListen);
    const std::string rest = kind.listens ? input.substr(kListen.size()) : input;
    if (rest == "-") {
        kind.url = "pipe:0";
    } else if (rest.find("://") != std::string::npos) {
        kind.url = rest;
        kind.protocols = kNetworkProtocols;
    } else if (EndsWith(rest, ".sdp")) {
        kind.url = rest;
        kind.protocols = kDescriptionProtocols;
    } else {
        std::error_code error;
        const auto status = std::filesystem::status(rest, error);
        if (!std::filesystem::exists(status)) throw std::runtime_error(rest + ": there is no such file");
        if (std::filesystem::is_directory(status)) throw std::runtime_error(rest + ": is a directory");
        kind.url = "file:" + rest;
        kind.paced = std::filesystem::is_regular_file(status);
    }
    return kind;
}

class AvSource final : public Source {
  public:
    AvSource(StreamPtr stream, InputKind kind, std::string shown)
        : stream_(std::move(stream)), kind_(std::move(kind)), shown_(std::move(shown)), thread_([this] { Run(); }) {}

    ~AvSource() override {
        stopper_.Stop();
        thread_.join();
    }

  private:
    // One time that the input was opened.
    struct Session {
        AvPtr<AVFormatContext> format;
        std::vector<std::unique_ptr<StreamReader>> readers;
    };

    void Run() {
        av_log_set_level(AV_LOG_QUIET);
        auto pause = kFirstPause;
        while (!stopper_.Stopped()) {
            std::string trouble;
            frames_given_ = 0;
            try {
                Session session = Open();
                stream_->Opened();
                LogInfo("input opened", {{"stream", stream_->Name()}, {"input", shown_}});
                trouble = Play(session);
            } catch (const std::exception& error) {
                trouble = error.what();
            }
            if (stopper_.Stopped()) return;
            if (frames_given_ > 0) pause = kFirstPause;
            // A file that came to its end goes on at once.
            if (trouble.empty() && kind_.paced && frames_given_ > 0) continue;
            if (trouble.empty()) trouble = "the input ended";
            stream_->Lost(trouble);
            LogWarning("input lost",
                       {{"stream", stream_->Name()}, {"why", trouble}, {"again_in_ms", std::to_string(pause.count())}});
            if (!stopper_.SleepUntil(Clock::now() + pause)) return;
            pause = std::min(pause * 2, std::chrono::duration_cast<std::chrono::milliseconds>(kLongestPause));
        }
    }

    static int Interrupted(void* self) {
        const auto& source = *static_cast<AvSource*>(self);
        return source.stopper_.Stopped() || Clock::now() > source.silence_ends_ ? 1 : 0;
    }

    Session Open() {
        Session session;
        AVDictionary* settings = nullptr;
        if (kind_.protocols != nullptr) av_dict_set(&settings, "protocol_whitelist", kind_.protocols, 0);
        if (StartsWith(kind_.url, "rtsp:")) av_dict_set(&settings, "rtsp_transport", "tcp", 0);
        if (StartsWith(kind_.url, "udp:")) {
            av_dict_set(&settings, "fifo_size", "50000", 0);
            av_dict_set(&settings, "overrun_nonfatal", "1", 0);
        }
        if (kind_.listens) av_dict_set(&settings, "listen", "1", 0);
        if (!kind_.paced) {
            av_dict_set_int(&settings, "analyzeduration", kAnalyseUs, 0);
            av_dict_set_int(&settings, "probesize", kProbeBytes, 0);
            av_dict_set(&settings, "fflags", "nobuffer", 0);
        }
        AVFormatContext* context = avformat_alloc_context();
        if (context == nullptr) throw std::runtime_error("out of memory");
        context->interrupt_callback = {Interrupted, this};
        // A listener waits for its sender as long as that takes.
        silence_ends_ = kind_.listens ? Clock::time_point::max() : Clock::now() + kInputSilence;
        const int opened = avformat_open_input(&context, kind_.url.c_str(), nullptr, &settings);
        av_dict_free(&settings);
        if (opened < 0) throw std::runtime_error("cannot be opened: " + AvText(opened));
        session.format.reset(context);
        silence_ends_ = Clock::now() + kInputSilence;
        const int found = avformat_find_stream_info(context, nullptr);
        if (found < 0) throw std::runtime_error("its streams cannot be read: " + AvText(found));
        Choose(session);
        return session;
    }

    // The first stream of each kind that can be packed.
    void Choose(Session& session) const {
        Tools::InputOptions options;
        options.block_ms = kBlockMs;
        bool video = false;
        bool audio = false;
        std::string refused;
        for (unsigned i = 0; i < session.format->nb_streams; ++i) {
            AVStream& stream = *session.format->streams[i];
            const AVMediaType type = stream.codecpar->codec_type;
            bool* taken = type == AVMEDIA_TYPE_VIDEO ? &video : type == AVMEDIA_TYPE_AUDIO ? &audio : nullptr;
            stream.discard = AVDISCARD_ALL;
            if (taken == nullptr || *taken || (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0) continue;
            try {
                auto about = Tools::DescribeStream(stream, stream_->Name(), static_cast<int>(i), 0);
                session.readers.push_back(std::make_unique<StreamReader>(stream, std::move(about), options));
                stream.discard = AVDISCARD_DEFAULT;
                *taken = true;
            } catch (const InputError& error) {
                refused = error.what();
            }
        }
        if (session.readers.empty()) {
            throw std::runtime_error(refused.empty() ? "there is neither video nor audio in it" : refused);
        }
        if (!refused.empty()) LogWarning("part of the input left out", {{"stream", stream_->Name()}, {"why", refused}});
    }

    // Reads to the end. Gives what ended it, or nothing at the end of the input.
    std::string Play(Session& session) {
        const AvPtr<AVPacket> packet(av_packet_alloc());
        if (!packet) throw std::runtime_error("out of memory");
        BeginTimes();
        for (;;) {
            silence_ends_ = Clock::now() + kInputSilence;
            const int result = av_read_frame(session.format.get(), packet.get());
            if (result == AVERROR(EAGAIN)) {
                if (!stopper_.SleepUntil(Clock::now() + std::chrono::milliseconds(5))) return "stopped";
                continue;
            }
            if (result < 0) {
                for (const auto& reader : session.readers)
                    reader->Take(nullptr);
                while (GiveNext(session, true)) {
                }
                const bool silent = result == AVERROR_EXIT && !stopper_.Stopped();
                return silent                  ? "nothing came for " + std::to_string(kInputSilence.count()) + " s"
                       : result == AVERROR_EOF ? ""
                                               : AvText(result);
            }
            for (const auto& reader : session.readers) {
                if (reader->Index() == packet->stream_index) reader->Take(packet.get());
            }
            av_packet_unref(packet.get());
            while (GiveNext(session, !kind_.paced)) {
            }
            if (stopper_.Stopped()) return "stopped";
        }
    }

    // Gives the earliest frame that is ready; a file's only when each stream has one, so that they come in order.
    bool GiveNext(Session& session, bool all) {
        StreamReader* next = nullptr;
        for (const auto& reader : session.readers) {
            if (reader->ready.empty()) {
                if (!all && !TooFarAhead(session)) return false;
                continue;
            }
            if (next == nullptr || reader->ready.front().dts_us < next->ready.front().dts_us) next = reader.get();
        }
        if (next == nullptr || stopper_.Stopped()) return false;
        StreamReader::Timed timed = std::move(next->ready.front());
        next->ready_bytes -= timed.frame.bytes.size();
        next->ready.pop_front();
        Give(*next, std::move(timed));
        if (next->damaged != damaged_) stream_->SetDamaged(damaged_ = next->damaged);
        return true;
    }

    static bool TooFarAhead(const Session& session) {
        constexpr size_t kReadAheadBytes = 16u << 20;
        size_t held = 0;
        for (const auto& reader : session.readers)
            held += reader->ready_bytes;
        return held > kReadAheadBytes;
    }

    // Each session goes on where the one before ended.
    void BeginTimes() {
        offset_us_.reset();
        // Times that no stream comes to are the input's mistake: what follows is bridged as a jump.
        start_us_ = end_us_ = end_us_ < kFurthestUs ? end_us_ : kBeginUs;
    }

    void Give(const StreamReader& reader, StreamReader::Timed timed) {
        timed.pts_us = std::clamp(timed.pts_us, -kFurthestUs, kFurthestUs);
        timed.dts_us = std::clamp(timed.dts_us, -kFurthestUs, kFurthestUs);
        timed.duration_us = std::clamp<int64_t>(timed.duration_us, 0, kLongestFrameUs);
        if (!offset_us_) {
            // A source that comes back after a pause has the pause in its times: players go on where they stood.
            // It is the shown times that go on, so that pictures out of order leave no gap.
            offset_us_ = start_us_ - timed.pts_us;
        }
        const int64_t dts_us = timed.dts_us + *offset_us_;
        end_us_ = std::max(end_us_, timed.pts_us + *offset_us_ + (timed.duration_us > 0 ? timed.duration_us : 20000));
        if (kind_.paced) WaitFor(dts_us);
        Frame frame;
        const auto ticks = Ticks(reader, timed.frame);
        frame.time_scale = ticks;
        const auto convert = [ticks](int64_t us) {
            return std::clamp(av_rescale_rnd(us, ticks, 1000000, AV_ROUND_NEAR_INF), -kFurthestTicks, kFurthestTicks);
        };
        frame.dts = convert(dts_us);
        frame.pts = frame.dts + convert(timed.pts_us - timed.dts_us);
        frame.duration = timed.duration_us > 0 ? convert(timed.duration_us) : 0;
        frame.media = std::move(timed.frame);
        frame.arrival_us = WallClockUs();
        // A file can wait; what comes live and finds no place is lost, and counted.
        while (kind_.paced && stream_->UnderWay() >= kMaxFramesUnderWay) {
            if (!stopper_.SleepUntil(Clock::now() + std::chrono::milliseconds(5))) return;
        }
        stream_->Push(std::move(frame));
        ++frames_given_;
    }

    // The input's own ticks where they are whole parts of a second, so that no time is rounded.
    static uint32_t Ticks(const StreamReader& reader, const Tools::MediaFrame& frame) {
        const AVRational base = reader.TimeBase();
        const bool sampled = !frame.IsVideo() && frame.codec != MX_AUDIO_AAC && frame.codec != MX_AUDIO_MPEG;
        if (sampled && frame.samples_per_sec != 0) return frame.samples_per_sec;
        if (base.den > 0 && base.den <= 1000000) return static_cast<uint32_t>(base.den);
        return frame.IsVideo() || frame.samples_per_sec == 0 ? 90000 : frame.samples_per_sec;
    }

    void WaitFor(int64_t dts_us) {
        const auto now = Clock::now();
        if (!clock_start_) clock_start_ = {now, start_us_};
        const std::chrono::microseconds due(dts_us - clock_start_->media_us);
        const auto played = std::chrono::duration_cast<std::chrono::microseconds>(now - clock_start_->wall);
        if (played - due > kTooLate || due - played > kTooEarly) {
            clock_start_ = {now, dts_us};
        } else {
            stopper_.SleepUntil(clock_start_->wall + due);
        }
    }

    const StreamPtr stream_;
    const InputKind kind_;
    const std::string shown_;
    Stopper stopper_;
    Clock::time_point silence_ends_ = Clock::time_point::max();
    uint64_t frames_given_ = 0;
    uint64_t damaged_ = 0;
    std::optional<int64_t> offset_us_;  // from the input's times to the stream's
    int64_t start_us_ = 0;
    int64_t end_us_ = kBeginUs;
    // From which moment, and from which time of the stream on, a file is played by the clock.
    struct ClockStart {
        Clock::time_point wall;
        int64_t media_us;
    };
    std::optional<ClockStart> clock_start_;
    std::thread thread_;
};

}  // namespace

bool IsNetworkInput(const std::string& input) {
    static constexpr std::string_view kSchemes[] = {"rtsp://", "rtmp://",        "rtmps://", "srt://", "udp://",
                                                    "rtp://",  "listen+rtmp://", "nats://",  "tls://"};
    return std::any_of(std::begin(kSchemes), std::end(kSchemes),
                       [&input](std::string_view scheme) { return StartsWith(input, scheme); });
}

std::string WithoutSecrets(const std::string& input) {
    const size_t scheme = input.find("://");
    if (scheme == std::string::npos) return input;
    const size_t begin = scheme + 3;
    // A password may hold whatever ends a host elsewhere: the last '@' is the one behind it.
    const size_t at = input.rfind('@');
    const size_t host = at == std::string::npos || at < begin ? begin : at + 1;
    const size_t end = std::min(input.find_first_of("/?# ", host), input.size());
    return input.substr(0, begin) + input.substr(host, end - host) + (end < input.size() ? "/..." : "");
}

std::unique_ptr<Source> OpenAvSource(const StreamPtr& stream, const std::string& input, bool trusted) {
    if (!trusted && !IsNetworkInput(input))
        throw std::runtime_error("only rtsp, rtmp, srt, udp, rtp and nats addresses");
    return std::make_unique<AvSource>(stream, KindOf(input), WithoutSecrets(input));
}

}  // namespace Orvane::Muxora::Gateway
