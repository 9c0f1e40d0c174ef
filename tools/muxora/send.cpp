// muxora send --to rtp://HOST:PORT, and the choice between the three ways to send.
#include "muxora/send.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <deque>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "common/json.h"
#include "common/output.h"
#include "common/packer.h"
#include "common/rtp_sender.h"
#include "common/sdp.h"
#include "common/ts_link.h"
#include "muxora/command.h"

namespace Orvane::Muxora::Tools {

namespace {

constexpr size_t kRtpHeaderSize = 12;

class SendRun {
  public:
    explicit SendRun(const SendArguments& arguments)
        : arguments_(arguments),
          target_(ParseRtpTarget(arguments.to)),
          input_(arguments.input.paths, arguments.input.Options()) {
        settings_.rtp = arguments.rtp.Param(input_.Video(), input_.Audio());
        settings_.split_units = true;
        settings_.way_out = "send it as a transport stream, to udp:// or srt://";
        RtpTarget audio_target = target_;
        audio_target.port = static_cast<uint16_t>(target_.port + 2);
        video_.emplace(target_, settings_.rtp.rtp_ssrc);
        audio_.emplace(audio_target, settings_.rtp.rtp_audio_ssrc);
        packer_.emplace(*FormatByKey("rtp"), settings_, input_.Video(), input_.Audio(),
                        [this](const MXOutputBlock& block) { return Collect(block); });
    }

    void Run() {
        Prepare();
        if (!arguments_.sdp.empty()) WriteSdp();
        CatchInterrupts();
        ProgressLine progress(arguments_.quiet || arguments_.json);
        Pace wait(1);
        wait.WaitFor(0);
        wait.WaitFor(static_cast<int64_t>(arguments_.wait * 1000));
        Pace pace(arguments_.speed);
        const int64_t start_ms = arguments_.input.Options().start_ms;
        while (!Interrupted() && Next()) {
            pace.WaitFor(now_.time_ms);
            packer_->Give(now_);
            SendPackets();
            media_ms_ = std::max(media_ms_, now_.time_ms - start_ms);
            progress.Show(media_ms_, input_.DurationMs(), bytes_);
        }
        if (!Interrupted()) packer_->Finish();
        // The goodbye must not overtake the last packets on their way to a receiver that polls several ports.
        if (!Interrupted()) std::this_thread::sleep_for(std::chrono::milliseconds(250));
        seconds_ = progress.Seconds();
    }

    void Report(const OwnStdout& out) const {
        const uint64_t lost = video_->Lost() + audio_->Lost();
        if (arguments_.json) {
            const Json json{{"to", arguments_.to},
                            {"packets", video_->Packets() + audio_->Packets()},
                            {"bytes", bytes_},
                            {"media_seconds", static_cast<double>(media_ms_) / 1000},
                            {"seconds", seconds_},
                            {"video_frames", packer_->Video().given},
                            {"audio_frames", packer_->Audio().given},
                            {"refused", packer_->Video().refused + packer_->Audio().refused},
                            {"unsent", lost}};
            out.Print(JsonLine(json) + "\n");
            return;
        }
        if (arguments_.quiet) return;
        char text[300];
        std::snprintf(text, sizeof text,
                      "%s: %" PRIu64 " frames in %" PRIu64 " packets, %" PRIu64 " bytes, %.2f s of media in %.2f s%s\n",
                      arguments_.to.c_str(), packer_->Video().given + packer_->Audio().given,
                      video_->Packets() + audio_->Packets(), bytes_, static_cast<double>(media_ms_) / 1000, seconds_,
                      lost != 0 ? (", " + std::to_string(lost) + " packets not taken by the system").c_str() : "");
        out.Print(text);
    }

  private:
    // The packets of a frame wait for the last one, which bears the marker.
    uint64_t Collect(const MXOutputBlock& block) {
        const auto* bytes = static_cast<const uint8_t*>(block.data);
        size_t size = block.length;
        // The generic and the H.264 packets come behind their 16-bit length.
        const bool bare = now_.IsVideo() && (now_.codec == MX_VIDEO_H265 || now_.codec == MX_VIDEO_MJPEG);
        if (!bare) {
            if (size < 2) return 0;
            bytes += 2;
            size -= 2;
        }
        if (size >= kRtpHeaderSize) packets_.emplace_back(bytes, bytes + size);
        return size;
    }

    void SendPackets() {
        RtpSender& sender = now_.IsVideo() ? *video_ : *audio_;
        for (auto& packet : packets_) {
            // RFC 6184 5.1, RFC 7798 4.1: set on the last packet of a picture and on no other.
            if (now_.IsVideo()) {
                constexpr uint8_t kMarker = 0x80;
                packet[1] = static_cast<uint8_t>((packet[1] & ~kMarker) | (&packet == &packets_.back() ? kMarker : 0));
            }
            sender.Send(packet.data(), packet.size(), now_.pts_ms);
            bytes_ += packet.size();
        }
        packets_.clear();
    }

    // Reads ahead to what the description needs.
    void Prepare() {
        constexpr size_t kFarEnough = 1000;
        bool video = input_.Video() == nullptr;
        bool audio = input_.Audio() == nullptr;
        MediaFrame frame;
        while (!(video && audio) && ahead_.size() < kFarEnough && input_.Next(frame)) {
            video = video || frame.IsKey();
            audio = audio || !frame.IsVideo();
            ahead_.push_back(std::move(frame));
        }
    }

    bool Next() {
        if (ahead_.empty()) return input_.Next(now_);
        now_ = std::move(ahead_.front());
        ahead_.pop_front();
        return true;
    }

    void WriteSdp() {
        SdpStream video;
        SdpStream audio;
        for (const MediaFrame& frame : ahead_) {
            if (frame.IsKey() && video.sample == nullptr) video.sample = &frame;
            if (!frame.IsVideo() && audio.sample == nullptr) audio.sample = &frame;
        }
        video.stream = input_.Video();
        video.payload_type = settings_.rtp.rtp_payload_type;
        video.port = target_.port;
        audio.stream = input_.Audio();
        audio.payload_type = settings_.rtp.rtp_audio_payload_type;
        audio.clock = settings_.rtp.rtp_audio_sample;
        audio.port = static_cast<uint16_t>(target_.port + 2);
        const std::string text = Sdp(target_.host, video, audio);
        OutputFile file(arguments_.sdp, OutputFile::Growth::kBeside);
        file.Write(text.data(), text.size(), std::nullopt);
        file.Publish();
    }

    const SendArguments& arguments_;
    RtpTarget target_;
    MediaInput input_;
    PackerSettings settings_;
    std::optional<RtpSender> video_;
    std::optional<RtpSender> audio_;
    std::optional<Packer> packer_;
    std::deque<MediaFrame> ahead_;
    MediaFrame now_;
    std::vector<std::vector<uint8_t>> packets_;
    uint64_t bytes_ = 0;
    int64_t media_ms_ = 0;
    double seconds_ = 0;
};

void Send(const SendArguments& arguments) {
    const OwnStdout out;
    if (TsLink::Takes(arguments.to)) {
        SendTs(arguments, out);
        return;
    }
    SendRun run(arguments);
    run.Run();
    run.Report(out);
}

}  // namespace

void AddSend(CLI::App& app) {
    CLI::App* command = app.add_subcommand(
        "send", "Send media to a receiver at its own pace: RTP, or a transport stream over UDP or SRT");
    auto arguments = std::make_shared<SendArguments>();
    arguments->input.AddTo(*command);
    command
        ->add_option("--to", arguments->to,
                     "rtp://HOST:PORT (video goes there, audio two ports above), udp://HOST:PORT, or srt://HOST:PORT")
        ->required();
    command->add_option("--sdp", arguments->sdp, "rtp: write the description that a player opens to this file");
    command->add_option("--speed", arguments->speed, "Times the speed of the media (1)")
        ->check(CLI::Range(0.01, 1000.0));
    command->add_option("--wait", arguments->wait, "Seconds before the first packet, behind the description of RTP")
        ->check(CLI::Range(0.0, 3600.0));
    command->add_flag("--quiet", arguments->quiet, "No progress and no summary");
    command->add_flag("--json", arguments->json, "Print the summary as JSON");
    arguments->rtp.AddTo(*command);
    command->footer(
        "Examples:\n"
        "  muxora send film.mp4 --to udp://239.1.2.3:5000?ttl=4\n"
        "  muxora send film.mp4 --to 'srt://receiver:9000?latency=200000'\n"
        "  muxora send film.mp4 --to rtp://127.0.0.1:5004 --sdp film.sdp --wait 2 &\n"
        "  ffplay -protocol_whitelist file,udp,rtp film.sdp");
    command->callback([arguments] { Send(*arguments); });
}

}  // namespace Orvane::Muxora::Tools
