// muxora send --to udp://HOST:PORT and srt://HOST:PORT.
#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <optional>
#include <vector>

#include "common/errors.h"
#include "common/json.h"
#include "common/pace.h"
#include "common/packer.h"
#include "common/ts_link.h"
#include "common/ts_schedule.h"
#include "muxora/send.h"

namespace Orvane::Muxora::Tools {

namespace {

PackerSettings Settings() {
    PackerSettings settings;
    settings.way_out = "send it to rtp://";
    return settings;
}

class TsRun {
  public:
    explicit TsRun(const SendArguments& arguments)
        : arguments_(arguments),
          input_(arguments.input.paths, arguments.input.Options()),
          pace_(arguments.speed),
          schedule_([this](std::span<const uint8_t> datagram, int64_t due_us) {
              if (Interrupted()) return;
              pace_.WaitForUs(due_us);
              link_->Send(datagram);
              bytes_ += datagram.size();
          }),
          packer_(*FormatByKey("xts"), Settings(), input_.Video(), input_.Audio(),
                  [this](const MXOutputBlock& block) { return Store(block); }) {}

    void Run() {
        CatchInterrupts();
        link_.emplace(arguments_.to);
        ProgressLine progress(arguments_.quiet || arguments_.json);
        Pace wait(1);
        wait.WaitForUs(0);
        wait.WaitForUs(static_cast<int64_t>(arguments_.wait * 1e6));
        MediaFrame frame;
        const int64_t start_ms = arguments_.input.Options().start_ms;
        while (!Interrupted() && input_.Next(frame)) {
            packer_.Give(frame);
            schedule_.Put(written_);
            written_.clear();
            media_ms_ = std::max(media_ms_, frame.time_ms - start_ms);
            progress.Show(media_ms_, input_.DurationMs(), bytes_);
        }
        if (!Interrupted()) {
            packer_.Finish();
            schedule_.Put(written_);
            schedule_.End();
        }
        seconds_ = progress.Seconds();
    }

    void Report(const OwnStdout& out) const {
        const uint64_t left_out = packer_.Video().dropped + packer_.Audio().dropped;
        const uint64_t refused = packer_.Video().refused + packer_.Audio().refused;
        // Behind the question mark there may be a passphrase.
        const std::string to = arguments_.to.substr(0, arguments_.to.find('?'));
        if (arguments_.json) {
            const Json json{{"to", to},
                            {"datagrams", link_->Datagrams()},
                            {"bytes", bytes_},
                            {"media_seconds", static_cast<double>(media_ms_) / 1000},
                            {"seconds", seconds_},
                            {"video_frames", packer_.Video().given},
                            {"audio_frames", packer_.Audio().given},
                            {"dropped", left_out},
                            {"refused", refused},
                            {"unsent", link_->Lost()},
                            {"notes", input_.Notes()}};
            out.Print(JsonLine(json) + "\n");
            return;
        }
        if (arguments_.quiet) return;
        char text[300];
        std::snprintf(text, sizeof text,
                      ": %" PRIu64 " frames in %" PRIu64 " datagrams, %" PRIu64 " bytes, %.2f s of media in %.2f s\n",
                      packer_.Video().given + packer_.Audio().given, link_->Datagrams(), bytes_,
                      static_cast<double>(media_ms_) / 1000, seconds_);
        std::string summary = to + text;
        if (link_->Lost() != 0) {
            summary += "  note: " + std::to_string(link_->Lost()) + " datagrams were not taken by the system\n";
        }
        for (const std::string& note : input_.Notes())
            summary += "  note: " + note + "\n";
        out.Print(summary);
    }

  private:
    uint64_t Store(const MXOutputBlock& block) {
        const auto* bytes = static_cast<const uint8_t*>(block.data);
        written_.insert(written_.end(), bytes, bytes + block.length);
        return block.length;
    }

    const SendArguments& arguments_;
    MediaInput input_;
    Pace pace_;
    std::optional<TsLink> link_;
    std::vector<uint8_t> written_;
    uint64_t bytes_ = 0;
    int64_t media_ms_ = 0;
    double seconds_ = 0;
    TsSchedule schedule_;
    Packer packer_;
};

}  // namespace

void SendTs(const SendArguments& arguments, const OwnStdout& out) {
    if (!arguments.sdp.empty()) throw WrongUsage("--sdp describes RTP; a transport stream describes itself");
    TsRun run(arguments);
    run.Run();
    run.Report(out);
}

}  // namespace Orvane::Muxora::Tools
