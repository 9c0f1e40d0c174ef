#include "muxora/pack_run.h"

#include <algorithm>
#include <chrono>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <filesystem>

#include "common/errors.h"
#include "common/json.h"
#include "common/pace.h"
#include "common/working_file.h"
#include "muxora/cut_off.h"

namespace Orvane::Muxora::Tools {

namespace {

// Offsets of 32 bits reach this far.
constexpr uint64_t kSmallFileLimit = UINT32_MAX;
// What the index behind the media data may take.
constexpr uint64_t kIndexRoom = 64u << 20;

bool HasSmallOffsets(const Format& format) {
    return (format.IsIso() && format.number != MX_FORMAT_MP4_64 && format.number != MX_FORMAT_MOV_64) ||
           format.number == MX_FORMAT_WAV || format.number == MX_FORMAT_MKV;
}

void ReadEncryption(const PackArguments& arguments, PackerSettings& settings) {
    if (arguments.encrypt.empty()) return;
    settings.key = arguments.key.Bytes();
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

void Add(Tally& to, const Tally& from) {
    to.given += from.given;
    to.written += from.written;
    to.dropped += from.dropped;
    to.refused += from.refused;
    to.bytes += from.bytes;
}

// Sets `asked` when the input needs the key.
InputOptions Options(const PackArguments& arguments, const Format& format, bool& asked) {
    InputOptions options = arguments.input.Options();
    options.lend_frames = format.number != MX_FORMAT_RTP;  // which sends a byte from behind the frame
    options.ovx_key = [&arguments, &asked] {
        asked = true;
        return arguments.key.Given() ? arguments.key.Bytes() : std::vector<uint8_t>{};
    };
    return options;
}

}  // namespace

PackRun::PackRun(const PackArguments& arguments, const Format& format, const OwnStdout& out)
    : arguments_(arguments),
      format_(format),
      out_(out),
      input_(arguments.input.paths, Options(arguments, format, key_asked_)) {
    const bool key = !arguments.key.key.empty() || !arguments.key.file.empty();
    if (key && arguments.encrypt.empty() && !key_asked_) {
        throw WrongUsage(
            "there is nothing for the key to do: the input is not encrypted, and --encrypt OFFSET:LENGTH is missing");
    }
    settings_.reserve = arguments.reserve;
    ReadEncryption(arguments, settings_);
    if (format.number == MX_FORMAT_HMP4 || format.number == MX_FORMAT_FMP4) {
        MXFragmentParam fragment{};
        fragment.size = sizeof fragment;
        // What is not in a whole fragment is what a killed recording loses.
        fragment.duration_ms = static_cast<uint32_t>(arguments.backup * 500);
        if (fragment.duration_ms != 0) fragment.mode = MX_FRAGMENT_DURATION;
        // A file whose second stream begins late is one with two tracks all the same; a recording must not wait.
        constexpr uint32_t kLongestWaitMs = 60000;
        if (arguments.backup <= 0 && !arguments.realtime) fragment.wait_ms = kLongestWaitMs;
        if (input_.Audio() == nullptr) fragment.tracks = MX_TRACKS_VIDEO;
        if (input_.Video() == nullptr) fragment.tracks = MX_TRACKS_AUDIO;
        settings_.fragment = fragment;
    }
    settings_.rtp = arguments.rtp.Param(input_.Video(), input_.Audio());
    if (!arguments.segment.empty()) rule_ = ParseSegmentRule(arguments.segment);
    RefuseIfStrict(false);
    OpenPart();
}

void PackRun::OpenPart() {
    const auto number = static_cast<unsigned>(parts_.size());
    if (arguments_.output == "-") {
        output_ = std::make_unique<OutputFile>(out_);
    } else {
        const std::string path =
            rule_ ? SegmentName(arguments_.output, number) : ContinuationName(arguments_.output, number);
        if (!std::filesystem::is_directory(path)) CheckNotGrowing(path);
        if (!parts_.empty() && path == parts_.back()) {
            throw WrongUsage("two segments would both be " + path + "; put %03d into the name");
        }
        // Also without --backup: what a killed run left behind is not to be written over.
        if (std::filesystem::exists(SnapshotPath(path))) {
            throw Failure(path + " was cut off before: complete it with 'muxora repair " + path + "', or remove " +
                          SnapshotPath(path));
        }
        if (IsCutOffHybrid(path)) {
            throw Failure(path + " was cut off before: complete it with 'muxora repair " + path + "', or remove it");
        }
        output_ = std::make_unique<OutputFile>(
            path, arguments_.backup > 0 ? OutputFile::Growth::kInPlace : OutputFile::Growth::kBeside);
    }
    packer_ = std::make_unique<Packer>(format_, settings_, input_.Video(), input_.Audio(),
                                       [this](const MXOutputBlock& block) { return Store(block); });
    key_at_ = 0;
    headers_ = 0;
    largest_gap_ = 0;
    // The exact formats are whole as far as they are written.
    if (arguments_.backup <= 0 || format_.IsExact()) return;
    // Twice as often as asked for: the last one then is on the disk in time, whenever the end comes.
    const auto period = std::chrono::milliseconds(std::max<int64_t>(static_cast<int64_t>(arguments_.backup * 500), 50));
    snapshots_ = std::make_unique<SnapshotTaker>(format_, packer_->Handle(), *output_, period);
}

void PackRun::ClosePart() {
    if (snapshots_) snapshots_->Stop();
    packer_->Finish();
    CheckStored();
    Add(video_, packer_->Video());
    Add(audio_, packer_->Audio());
    bytes_ += output_->End();
    RefuseIfStrict(true);
    output_->Publish();
    parts_.push_back(output_->Path());
    if (snapshots_) {
        snapshots_taken_ += snapshots_->Taken();
        if (!snapshots_->Trouble().empty()) full_ = snapshots_->Trouble();
        snapshots_->Remove();
    }
    snapshots_.reset();
    packer_.reset();
    output_.reset();
}

void PackRun::Run() {
    try {
        PackFrames();
        ClosePart();
    } catch (const Failure& failure) {
        // A recording that something describes is worth more than a clean directory.
        if (output_ && arguments_.backup > 0 && format_.IsExact() && output_->End() != 0) {
            output_->Leave();
            throw Failure(std::string(failure.what()) + "; what was recorded stays and plays: " + output_->Path());
        }
        if (!snapshots_ || snapshots_->Taken() == 0) throw;
        snapshots_->Stop();
        output_->Leave();
        throw Failure(std::string(failure.what()) + "; what was recorded stays: muxora repair " + output_->Path());
    }
}

bool PackRun::WantsNewPart(const MediaFrame& frame) const {
    if (arguments_.output == "-" || packer_->Video().written + packer_->Audio().written == 0) return false;
    // A file begins with a key frame, and one of sound alone anywhere.
    if (input_.Video() != nullptr && !frame.IsKey()) return false;
    if (rule_ && rule_->duration_ms != 0 && frame.time_ms - part_start_ms_ >= rule_->duration_ms) return true;
    if (rule_ && rule_->bytes != 0 && output_->End() >= rule_->bytes) return true;
    // Room for as much as two stretches between key frames: the next one may be longer than any before.
    return HasSmallOffsets(format_) &&
           output_->End() + kIndexRoom + std::max<uint64_t>(2 * largest_gap_, kIndexRoom) > kSmallFileLimit;
}

void PackRun::PackFrames() {
    CatchInterrupts();
    ProgressLine progress(arguments_.quiet || arguments_.json);
    Pace pace(1);
    MediaFrame frame;
    const int64_t start_ms = arguments_.input.Options().start_ms;
    const int64_t total_ms = input_.DurationMs();
    part_start_ms_ = start_ms;
    while (!Interrupted() && input_.Next(frame)) {
        if (arguments_.realtime) pace.WaitFor(frame.time_ms);
        const int64_t time_ms = frame.time_ms;
        if (WantsNewPart(frame)) {
            ClosePart();
            OpenPart();
            part_start_ms_ = time_ms;
            if (frame.time_scale != 0) {
                part_start_ticks_ = frame.pts;
                part_start_scale_ = frame.time_scale;
            }
        }
        if (frame.IsKey()) {
            largest_gap_ = std::max(largest_gap_, output_->End() - key_at_);
            key_at_ = output_->End();
        }
        if (HasSmallOffsets(format_) && output_->End() + frame.Size() > kSmallFileLimit - kIndexRoom) {
            full_ = output_->Path() + " ends at 4 GiB, where the offsets of " + std::string(format_.key) +
                    " end, and no key frame came to go on with in another file; what fits is finished" +
                    (format_.IsIso() ? ", use mp464 or mov64 for more" : "");
            break;
        }
        codec_now_ = frame.IsVideo() ? frame.codec : 0;
        if (frame.IsVideo()) MeasureRate(frame);
        has_b_pictures_ = has_b_pictures_ || (frame.IsVideo() && frame.sub_type == MX_SUB_B);
        frame.MoveBack(part_start_ms_ - start_ms, part_start_ticks_, part_start_scale_);
        packer_->Give(frame);
        CheckStored();
        media_ms_ = std::max(media_ms_, time_ms - start_ms);
        progress.Show(media_ms_, total_ms, bytes_ + output_->End());
    }
    seconds_ = progress.Seconds();
}

// How far a picture is from where a count of pictures at the stream's rate has it.
void PackRun::MeasureRate(const MediaFrame& frame) {
    if (pictures_ == 0) first_picture_ms_ = frame.time_ms;
    const double even_ms = static_cast<double>(pictures_++) * 1000 / std::max(input_.Video()->exact_rate, 1.0);
    const auto ms = static_cast<double>(frame.time_ms - first_picture_ms_);
    uneven_seconds_ = std::max(uneven_seconds_, std::abs(ms - even_ms) / 1000);
}

uint64_t PackRun::Store(const MXOutputBlock& block) {
    const uint64_t before = output_->End();
    // What completes an exact format where the sink can go back, and nothing lacks where it cannot.
    const bool exact = block.size >= sizeof(MXExactBlock);
    const uint32_t kind = exact ? reinterpret_cast<const MXExactBlock&>(block).kind : uint32_t{MX_BLOCK_MEDIA};
    if (kind == MX_BLOCK_PATCH && !output_->Seekable()) return 0;
    if (kind == MX_BLOCK_HEADER) ++headers_;
    if (NewInitialisation()) return 0;
    if (format_.number == MX_FORMAT_RTP) {
        StorePacket(block);
    } else if (block.seek_type == MX_SEEK_ABSOLUTE) {
        output_->Write(block.data, block.length, static_cast<uint64_t>(block.offset));
    } else {
        output_->Write(block.data, block.length, std::nullopt);
    }
    return output_->End() - before;
}

// Players of a fragmented MP4 read one moov; those of a stream take each.
bool PackRun::NewInitialisation() const {
    return format_.number == MX_FORMAT_FMP4 && headers_ > 1;
}

void PackRun::CheckStored() const {
    if (!output_->Trouble().empty()) throw Failure(output_->Trouble());
    if (NewInitialisation()) {
        throw Failure(output_->Path() + ": a stream begins late, or the pictures change their parameter sets (their " +
                      "size, as a rule), behind " + ClockText(static_cast<double>(media_ms_) / 1000) +
                      ", which players of one fmp4 file pass over; -f hmp4 states it");
    }
}

// RFC 4571: each packet behind its length. Two payloads come without it.
void PackRun::StorePacket(const MXOutputBlock& block) {
    if (codec_now_ == MX_VIDEO_H265 || codec_now_ == MX_VIDEO_MJPEG) {
        const uint8_t length[2] = {static_cast<uint8_t>(block.length >> 8 & 0xFF),
                                   static_cast<uint8_t>(block.length & 0xFF)};
        output_->Write(length, sizeof length, std::nullopt);
    }
    output_->Write(block.data, block.length, std::nullopt);
}

PackFacts PackRun::Facts() const {
    PackFacts facts;
    facts.video = input_.Video();
    facts.audio = input_.Audio();
    facts.has_b_pictures = has_b_pictures_;
    facts.uneven_seconds = uneven_seconds_;
    facts.media_ms = parts_.size() > 1 ? 0 : media_ms_;
    return facts;
}

std::vector<std::string> PackRun::Notes() const {
    std::vector<std::string> notes = FormatNotes(format_, Facts());
    for (std::string& note : input_.Notes())
        notes.push_back(std::move(note));
    if (input_.DamagedFrames() != 0) {
        notes.push_back(std::to_string(input_.DamagedFrames()) + " damaged frames of the input were left out");
    }
    if (const uint64_t refused = video_.refused + audio_.refused; refused != 0) {
        notes.push_back(std::to_string(refused) + " frames were refused by the format and are missing");
    }
    if (Interrupted()) notes.emplace_back("stopped by a signal; the file is complete up to there");
    return notes;
}

std::vector<std::string> PackRun::AllNotes() const {
    std::vector<std::string> notes = Notes();
    for (std::string& note : PlayerNotes(format_, Facts()))
        notes.push_back(std::move(note));
    return notes;
}

void PackRun::RefuseIfStrict(bool finished) const {
    if (!arguments_.strict) return;
    const std::vector<std::string> notes = Notes();
    if (!notes.empty()) throw Failure("--strict: " + notes.front());
    const uint64_t dropped = video_.dropped + audio_.dropped;
    if (finished && dropped != 0) {
        throw Failure("--strict: " + std::string(format_.key) + " left out " + std::to_string(dropped) +
                      " frames by its rules: those ahead of the first key frame, or of WAV the first block");
    }
}

void PackRun::Report(const OwnStdout& out) const {
    if (arguments_.json || !arguments_.quiet) {
        const std::string text = arguments_.json ? JsonLine(JsonSummary()) + "\n" : Summary();
        // A pipe carries the media alone.
        arguments_.output == "-" ? static_cast<void>(std::fputs(text.c_str(), stderr)) : out.Print(text);
    }
    if (!full_.empty()) throw Failure(full_);
}

std::string PackRun::Summary() const {
    char text[400];
    const std::string name =
        parts_.size() == 1 ? parts_[0]
                           : parts_.front() + " to " + parts_.back() + " (" + std::to_string(parts_.size()) + " files)";
    std::snprintf(text, sizeof text, ": %s, %" PRIu64 " bytes, %.2f s of media in %.2f s\n",
                  std::string(format_.key).c_str(), bytes_, static_cast<double>(media_ms_) / 1000, seconds_);
    std::string summary = name + text;
    const auto line = [&](const char* kind, const MediaStream* stream, const Tally& tally) {
        if (stream == nullptr) return;
        std::snprintf(text, sizeof text,
                      "  %s  %-24s  frames: %" PRIu64 " given, %" PRIu64 " written, %" PRIu64 " dropped%s\n", kind,
                      StreamText(*stream).c_str(), tally.given, tally.written, tally.dropped,
                      tally.refused != 0 ? (", " + std::to_string(tally.refused) + " refused").c_str() : "");
        summary += text;
    };
    line("video", input_.Video(), video_);
    line("audio", input_.Audio(), audio_);
    for (const std::string& note : AllNotes())
        summary += "  note: " + note + "\n";
    return summary;
}

Json PackRun::JsonSummary() const {
    const auto stream_json = [](const MediaStream& stream, const Tally& tally) {
        return Json{
            {"codec", stream.type == MX_FRAME_VIDEO ? VideoCodecName(stream.codec) : AudioCodecName(stream.codec)},
            {"given", tally.given},
            {"written", tally.written},
            {"dropped", tally.dropped},
            {"refused", tally.refused},
            {"bytes", tally.bytes}};
    };
    Json json{{"output", parts_.front()},
              {"format", format_.key},
              {"bytes", bytes_},
              {"media_seconds", static_cast<double>(media_ms_) / 1000},
              {"seconds", seconds_}};
    if (parts_.size() > 1) json["files"] = parts_;
    if (input_.Video() != nullptr) json["video"] = stream_json(*input_.Video(), video_);
    if (input_.Audio() != nullptr) json["audio"] = stream_json(*input_.Audio(), audio_);
    if (arguments_.backup > 0 && !format_.IsExact()) json["snapshots"] = snapshots_taken_;
    json["notes"] = AllNotes();
    return json;
}

}  // namespace Orvane::Muxora::Tools
