// muxora pack: real media into any format.
#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>

#include "common/json.h"
#include "common/output.h"
#include "common/packer.h"
#include "common/working_file.h"
#include "muxora/command.h"
#include "muxora/options.h"
#include "muxora/snapshot.h"

namespace Orvane::Muxora::Tools {

namespace {

// Offsets of 32 bits reach this far.
constexpr uint64_t kSmallFileLimit = UINT32_MAX;

struct PackArguments {
    InputArguments input;
    RtpArguments rtp;
    std::string output;
    std::string format_key;
    bool realtime = false;
    uint32_t reserve = 0;
    double backup = 0;
    std::string key;
    std::string encrypt;
    bool quiet = false;
    bool json = false;
};

const Format& ChooseFormat(const PackArguments& arguments) {
    if (!arguments.format_key.empty()) {
        const Format* format = FormatByKey(arguments.format_key);
        if (format == nullptr) {
            throw WrongUsage("there is no format '" + arguments.format_key + "'; choose one of: " + FormatKeys());
        }
        return *format;
    }
    const Format* format = FormatByPath(arguments.output);
    if (format == nullptr) {
        throw WrongUsage("the format cannot be told from '" + arguments.output +
                         "'; name it with -f KEY, one of: " + FormatKeys());
    }
    return *format;
}

bool HasSmallOffsets(const Format& format) {
    return (format.IsIso() && format.number != MX_FORMAT_MP4_64 && format.number != MX_FORMAT_MOV_64) ||
           format.number == MX_FORMAT_WAV || format.number == MX_FORMAT_MKV;
}

// Formats that count pictures by a whole frame rate; the others have the frames' own times.
bool CountsPictures(const Format& format) {
    switch (format.number) {
        case MX_FORMAT_OVX:
        case MX_FORMAT_OVX_ALT:
        case MX_FORMAT_RTP:
        case MX_FORMAT_TS:
        case MX_FORMAT_PS:
        case MX_FORMAT_PS_OV:
        case MX_FORMAT_PS_GAYS:
            return false;
        default:
            return true;
    }
}

void CheckArguments(const PackArguments& arguments, const Format& format) {
    const bool piped = arguments.output == "-";
    const std::string key(format.key);
    if (piped && format.seeks) {
        throw WrongUsage(key + " goes back in its output and cannot be piped; write to a file, or choose " +
                         (format.IsIso() ? "mp4noseek" : "a forward-only format (see muxora formats)"));
    }
    if (arguments.reserve != 0 && !format.IsIso()) throw WrongUsage("--reserve is for mp4, mov and their kin only");
    if (arguments.reserve != 0 && piped) throw WrongUsage("--reserve makes the format go back; write to a file");
    if (arguments.backup > 0 && !format.IsIso()) {
        throw WrongUsage("--backup is for mp4, mov and their kin only: " + key + " has no index to lose, or no backup");
    }
    if (arguments.backup > 0 && piped) throw WrongUsage("--backup needs a file; a pipe cannot be completed later");
    const bool ovx = format.number == MX_FORMAT_OVX || format.number == MX_FORMAT_OVX_ALT;
    if ((!arguments.key.empty() || !arguments.encrypt.empty()) && !ovx) throw WrongUsage("only ovx encrypts");
    if (arguments.key.empty() != arguments.encrypt.empty()) {
        throw WrongUsage("--key HEX and --encrypt OFFSET:LENGTH belong together");
    }
    for (const std::string& path : arguments.input.paths) {
        std::error_code ignored;
        if (!piped && path != "-" && std::filesystem::is_regular_file(path, ignored) &&
            std::filesystem::equivalent(path, arguments.output, ignored)) {
            throw WrongUsage(arguments.output + " is an input as well; write to another file");
        }
    }
}

void ReadEncryption(const PackArguments& arguments, PackerSettings& settings) {
    if (arguments.key.empty()) return;
    settings.key = HexBytes(arguments.key, "--key");
    if (settings.key.size() != 16 && settings.key.size() != 24 && settings.key.size() != 32) {
        throw WrongUsage("--key must have 32, 48 or 64 hex digits (AES-128, AES-192, AES-256)");
    }
    unsigned offset = 0;
    unsigned length = 0;
    char rest = 0;
    // NOLINTNEXTLINE(cert-err34-c): the count of fields tells of every error, the range is checked below.
    const int fields = std::sscanf(arguments.encrypt.c_str(), "%9u:%9u%c", &offset, &length, &rest);
    if (fields != 2 || offset > UINT16_MAX || length < 16) {
        throw WrongUsage("--encrypt must be OFFSET:LENGTH, with OFFSET up to 65535 and LENGTH at least 16, as 0:256");
    }
    settings.encrypt_offset = static_cast<uint16_t>(offset);
    settings.encrypt_length = length;
}

// One run of the subcommand.
class PackRun {
  public:
    PackRun(const PackArguments& arguments, const Format& format, const OwnStdout& out)
        : arguments_(arguments), format_(format), input_(arguments.input.paths, arguments.input.Options()) {
        if (arguments.output != "-" && !std::filesystem::is_directory(arguments.output))
            CheckNotGrowing(arguments.output);
        // Also without --backup: what a killed run left behind is not to be written over.
        if (arguments.output != "-" && std::filesystem::exists(SnapshotPath(arguments.output))) {
            throw Failure(arguments.output + " was cut off before: complete it with 'muxora repair " +
                          arguments.output + "', or remove " + SnapshotPath(arguments.output));
        }
        settings_.reserve = arguments.reserve;
        ReadEncryption(arguments, settings_);
        settings_.rtp = arguments.rtp.Param(input_.Video(), input_.Audio());
        if (arguments.output == "-") {
            output_.emplace(out);
        } else {
            output_.emplace(arguments.output,
                            arguments.backup > 0 ? OutputFile::Growth::kInPlace : OutputFile::Growth::kBeside);
        }
        packer_.emplace(format_, settings_, input_.Video(), input_.Audio(),
                        [this](const MXOutputBlock& block) { return Store(block); });
    }

    void Run() {
        try {
            if (arguments_.backup > 0) StartSnapshots();
            PackFrames();
            if (snapshots_) snapshots_->Stop();
            packer_->Finish();
            if (!output_->Trouble().empty()) throw Failure(output_->Trouble());
        } catch (const Failure& failure) {
            // A recording that something describes is worth more than a clean directory.
            if (!snapshots_ || snapshots_->Taken() == 0) throw;
            snapshots_->Stop();
            output_->Leave();
            throw Failure(std::string(failure.what()) + "; what was recorded stays: muxora repair " +
                          arguments_.output);
        }
        output_->Publish();
        if (snapshots_) snapshots_->Remove();
    }

    void Report(const OwnStdout& out) const {
        if (arguments_.json || !arguments_.quiet) {
            const std::string text = arguments_.json ? JsonSummary() + "\n" : Summary();
            // A pipe carries the media alone.
            arguments_.output == "-" ? static_cast<void>(std::fputs(text.c_str(), stderr)) : out.Print(text);
        }
        if (!full_.empty()) throw Failure(full_);
    }

  private:
    uint64_t Store(const MXOutputBlock& block) {
        const uint64_t before = output_->End();
        if (format_.number == MX_FORMAT_RTP) {
            StorePacket(block);
        } else if (block.seek_type == MX_SEEK_ABSOLUTE) {
            output_->Write(block.data, block.length, static_cast<uint64_t>(block.offset));
        } else {
            output_->Write(block.data, block.length, std::nullopt);
        }
        return output_->End() - before;
    }

    // RFC 4571: each packet behind its length. Two payloads come without it.
    void StorePacket(const MXOutputBlock& block) {
        if (codec_now_ == MX_VIDEO_H265 || codec_now_ == MX_VIDEO_MJPEG) {
            const uint8_t length[2] = {static_cast<uint8_t>(block.length >> 8 & 0xFF),
                                       static_cast<uint8_t>(block.length & 0xFF)};
            output_->Write(length, sizeof length, std::nullopt);
        }
        output_->Write(block.data, block.length, std::nullopt);
    }

    void StartSnapshots() {
        // Twice as often as asked for: the last one then is on the disk in time, whenever the end comes.
        const auto period =
            std::chrono::milliseconds(std::max<int64_t>(static_cast<int64_t>(arguments_.backup * 500), 50));
        snapshots_.emplace(format_, packer_->Handle(), *output_, period);
    }

    void PackFrames() {
        CatchInterrupts();
        ProgressLine progress(arguments_.quiet || arguments_.json);
        Pace pace(1);
        MediaFrame frame;
        const int64_t start_ms = arguments_.input.Options().start_ms;
        const int64_t total_ms = input_.DurationMs();
        while (!Interrupted() && input_.Next(frame)) {
            if (arguments_.realtime) pace.WaitFor(frame.time_ms);
            if (HasSmallOffsets(format_) && output_->End() + frame.Size() > kSmallFileLimit - kIndexRoom) {
                full_ = arguments_.output + " ends at 4 GiB, where the offsets of " + std::string(format_.key) +
                        " end; what fits is finished" + (format_.IsIso() ? ", use mp464 or mov64 for more" : "");
                break;
            }
            codec_now_ = frame.IsVideo() ? frame.codec : 0;
            has_b_pictures_ = has_b_pictures_ || (frame.IsVideo() && frame.sub_type == MX_SUB_B);
            packer_->Give(frame);
            if (!output_->Trouble().empty()) throw Failure(output_->Trouble());
            media_ms_ = std::max(media_ms_, frame.time_ms - start_ms);
            progress.Show(media_ms_, total_ms, output_->End());
        }
        seconds_ = progress.Seconds();
    }

    std::vector<std::string> Notes() const {
        std::vector<std::string> notes;
        const MediaStream* video = input_.Video();
        if (video != nullptr && CountsPictures(format_) && std::abs(video->exact_rate - video->frame_rate) > 0.001) {
            char text[160];
            std::snprintf(text, sizeof text, "%.3f frames a second are written as %u: %s times pictures by whole rates",
                          video->exact_rate, video->frame_rate, std::string(format_.key).c_str());
            notes.emplace_back(text);
        }
        const bool has_own_times =
            format_.number == MX_FORMAT_OVX || format_.number == MX_FORMAT_OVX_ALT || format_.number == MX_FORMAT_RTP;
        if (has_b_pictures_ && !has_own_times) {
            notes.push_back("the video has B pictures: they keep their decoding order, and " +
                            std::string(format_.key) + " states no other; players sort them by the codec's own order");
        }
        // Two headers are fixed, whatever the frames are.
        const uint32_t fixed_rate = format_.number == MX_FORMAT_WAV ? 8000 : 16000;
        const MediaStream* audio = input_.Audio();
        if (audio != nullptr && (format_.number == MX_FORMAT_WAV || format_.number == MX_FORMAT_ASF_STREAM) &&
            (audio->codec != MX_AUDIO_PCM16 || audio->samples_per_sec != fixed_rate || audio->channels != 1)) {
            notes.push_back(std::string(format_.key) + " always states 16 bit PCM, " + std::to_string(fixed_rate) +
                            " Hz, one channel: players take this sound for that");
        }
        if (input_.DamagedFrames() != 0) {
            notes.push_back(std::to_string(input_.DamagedFrames()) + " damaged frames of the input were left out");
        }
        const uint64_t refused = packer_->Video().refused + packer_->Audio().refused;
        if (refused != 0) {
            notes.push_back(std::to_string(refused) + " frames were refused by the format and are missing");
        }
        if (snapshots_ && !snapshots_->Trouble().empty()) notes.push_back(snapshots_->Trouble());
        if (Interrupted()) notes.emplace_back("stopped by a signal; the file is complete up to there");
        return notes;
    }

    std::string Summary() const {
        char text[400];
        std::snprintf(text, sizeof text, "%s: %s, %" PRIu64 " bytes, %.2f s of media in %.2f s\n",
                      output_->Path().c_str(), std::string(format_.key).c_str(), output_->End(),
                      static_cast<double>(media_ms_) / 1000, seconds_);
        std::string summary = text;
        const auto line = [&](const char* kind, const MediaStream* stream, const Tally& tally) {
            if (stream == nullptr) return;
            std::snprintf(text, sizeof text,
                          "  %s  %-24s  frames: %" PRIu64 " given, %" PRIu64 " written, %" PRIu64 " dropped%s\n", kind,
                          StreamText(*stream).c_str(), tally.given, tally.written, tally.dropped,
                          tally.refused != 0 ? (", " + std::to_string(tally.refused) + " refused").c_str() : "");
            summary += text;
        };
        line("video", input_.Video(), packer_->Video());
        line("audio", input_.Audio(), packer_->Audio());
        for (const std::string& note : Notes())
            summary += "  note: " + note + "\n";
        return summary;
    }

    std::string JsonSummary() const {
        const auto stream_json = [](const MediaStream& stream, const Tally& tally) {
            return Json{
                {"codec", stream.type == MX_FRAME_VIDEO ? VideoCodecName(stream.codec) : AudioCodecName(stream.codec)},
                {"given", tally.given},
                {"written", tally.written},
                {"dropped", tally.dropped},
                {"refused", tally.refused},
                {"bytes", tally.bytes}};
        };
        Json json{{"output", output_->Path()},
                  {"format", format_.key},
                  {"bytes", output_->End()},
                  {"media_seconds", static_cast<double>(media_ms_) / 1000},
                  {"seconds", seconds_}};
        if (input_.Video() != nullptr) json["video"] = stream_json(*input_.Video(), packer_->Video());
        if (input_.Audio() != nullptr) json["audio"] = stream_json(*input_.Audio(), packer_->Audio());
        if (snapshots_) json["snapshots"] = snapshots_->Taken();
        json["notes"] = Notes();
        return JsonLine(json);
    }

    // What the index behind the media data may take.
    static constexpr uint64_t kIndexRoom = 64u << 20;

    const PackArguments& arguments_;
    const Format& format_;
    MediaInput input_;
    PackerSettings settings_;
    std::optional<OutputFile> output_;
    std::optional<Packer> packer_;
    mutable std::optional<SnapshotTaker> snapshots_;
    uint32_t codec_now_ = 0;
    bool has_b_pictures_ = false;
    int64_t media_ms_ = 0;
    double seconds_ = 0;
    std::string full_;
};

void Pack(const PackArguments& arguments) {
    const Format& format = ChooseFormat(arguments);
    CheckArguments(arguments, format);
    const OwnStdout out;
    PackRun run(arguments, format, out);
    run.Run();
    run.Report(out);
}

}  // namespace

void AddPack(CLI::App& app) {
    CLI::App* command = app.add_subcommand("pack", "Pack media files or raw streams into a format");
    auto arguments = std::make_shared<PackArguments>();
    arguments->input.AddTo(*command);
    command->add_option("-o,--output", arguments->output, "The file to write; - is the standard output")->required();
    command->add_option("-f,--format", arguments->format_key, "Format key (see muxora formats); else by extension");
    command->add_flag("--realtime", arguments->realtime, "As fast as the media plays, not faster");
    command->add_option("--reserve", arguments->reserve, "mp4, mov: room in front for the index, in bytes");
    command
        ->add_option("--backup", arguments->backup,
                     "mp4, mov: keep snapshots of the index beside the file, so that a killed recording loses at most "
                     "this many seconds (see muxora repair)")
        ->check(CLI::Range(0.1, 3600.0));
    command->add_option("--key", arguments->key, "ovx: AES key in hex, 16, 24 or 32 bytes");
    command->add_option("--encrypt", arguments->encrypt, "ovx: OFFSET:LENGTH of the stretch of each frame to encrypt");
    command->add_flag("--quiet", arguments->quiet, "No progress and no summary");
    command->add_flag("--json", arguments->json, "Print the summary as JSON");
    arguments->rtp.AddTo(*command);
    command->footer(
        "Examples:\n"
        "  muxora pack film.mp4 -o film.ts\n"
        "  muxora pack video.h264 sound.aac --fps 30 -o film.mov\n"
        "  muxora pack film.mkv -f mp4noseek -o - | ffplay -\n"
        "  muxora pack rtsp://camera/1 -o recording.mp4 --realtime --backup 1");
    command->callback([arguments] { Pack(*arguments); });
}

}  // namespace Orvane::Muxora::Tools
