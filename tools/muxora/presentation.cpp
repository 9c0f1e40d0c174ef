#include "muxora/presentation.h"

#include <algorithm>
#include <cctype>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <vector>

#include "common/errors.h"
#include "common/json.h"
#include "common/pace.h"
#include "muxora/cmaf_rendition.h"
#include "muxora/presentation_folder.h"
#include "muxora/segment_names.h"

namespace Orvane::Muxora::Tools {

namespace {

namespace fs = std::filesystem;

constexpr int64_t kDefaultTargetMs = 6000;

std::string LowerExtension(const std::string& path) {
    std::string extension = fs::path(path).extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

int64_t TargetMs(const PackArguments& arguments) {
    if (arguments.segment.empty()) return kDefaultTargetMs;
    const SegmentRule rule = ParseSegmentRule(arguments.segment);
    constexpr int64_t kShortest = 500;
    constexpr int64_t kLongest = 60000;
    if (rule.duration_ms < kShortest || rule.duration_ms > kLongest) {
        throw WrongUsage("--segment of a playlist is a duration from 0.5s to 60s, such as 6s");
    }
    return rule.duration_ms;
}

void CheckArguments(const PackArguments& arguments) {
    if (arguments.realtime) throw WrongUsage("a playlist on demand has no pace; 'muxora serve' makes live ones");
    if (arguments.reserve != 0 || arguments.backup > 0) {
        throw WrongUsage("--reserve and --backup are for files with one index; a playlist appears when all is there");
    }
    if (!arguments.encrypt.empty()) throw WrongUsage("only ovx encrypts");
    const InputArguments& input = arguments.input;
    for (const std::string& path : input.paths) {
        std::error_code ignored;
        if (fs::equivalent(path, arguments.output, ignored)) {
            throw WrongUsage(arguments.output + " is an input as well; write to another file");
        }
    }
    if (input.paths.size() > 1 && (input.video >= 0 || input.audio >= 0)) {
        throw WrongUsage("--video N and --audio N go with one INPUT; of several, each is a rendition");
    }
}

std::string WithoutFolder(const std::string& path) {
    return path == "-" ? "standard input" : fs::path(path).filename().string();
}

class PresentationRun {
  public:
    PresentationRun(const PackArguments& arguments, bool dash)
        : arguments_(arguments),
          dash_(dash),
          target_ms_(TargetMs(arguments)),
          playlist_(arguments.output, OutputFile::Growth::kBeside),
          folder_(arguments.output, dash ? "dash" : "hls") {}

    void Run() {
        CatchInterrupts();
        ProgressLine progress(arguments_.quiet || arguments_.json);
        for (const std::string& path : arguments_.input.paths) {
            if (!Interrupted()) PackInput(path, progress);
        }
        if (Interrupted() && (arguments_.input.paths.size() > 1 || renditions_.empty())) {
            throw Failure("stopped by a signal; nothing was written");
        }
        if (renditions_.empty()) throw Failure("the input holds no frame that can be read");
        std::stable_partition(renditions_.begin(), renditions_.end(), [](const auto& one) { return one->IsVideo(); });
        target_ = 0;
        for (const auto& one : renditions_)
            target_ = std::max(target_, one->LongestSegment());
        AddNotes();
        if (arguments_.strict && !notes_.empty()) throw Failure("--strict: " + notes_.front());
        dash_ ? WriteManifest() : WritePlaylists();
        folder_.Keep();
        seconds_ = progress.Seconds();
    }

    void Report(const OwnStdout& out) const {
        if (arguments_.json) {
            out.Print(JsonLine(JsonSummary()) + "\n");
        } else if (!arguments_.quiet) {
            out.Print(Summary());
        }
    }

  private:
    double TargetSeconds() const { return static_cast<double>(target_ms_) / 1000; }

    bool HasVideo() const { return !renditions_.empty() && renditions_.front()->IsVideo(); }

    CmafRendition* Add(const MediaStream& stream) {
        const bool video = stream.type == MX_FRAME_VIDEO;
        const auto same = std::count_if(renditions_.begin(), renditions_.end(),
                                        [&](const auto& one) { return one->IsVideo() == video; });
        renditions_.push_back(std::make_unique<CmafRendition>(
            folder_.Path(), (video ? "video" : "audio") + std::to_string(same + 1), stream, target_ms_));
        return renditions_.back().get();
    }

    void PackInput(const std::string& path, ProgressLine& progress) {
        InputOptions options = arguments_.input.Options();
        options.ovx_key = [this] { return arguments_.key.Given() ? arguments_.key.Bytes() : std::vector<uint8_t>{}; };
        MediaInput input({path}, options);
        CmafRendition* const video = input.Video() != nullptr ? Add(*input.Video()) : nullptr;
        CmafRendition* audio = nullptr;
        if (input.Audio() != nullptr) {
            if (video == nullptr || film_sound_.empty()) {
                audio = Add(*input.Audio());
                if (video != nullptr) film_sound_ = path;
            } else {
                notes_.push_back("the sound of " + WithoutFolder(path) + " is left out: that of " +
                                 WithoutFolder(film_sound_) + " goes with all renditions");
            }
        }
        MediaFrame frame;
        int64_t media_ms = 0;
        while (!Interrupted() && input.Next(frame)) {
            media_ms = std::max(media_ms, frame.time_ms - options.start_ms);
            if (CmafRendition* const to = frame.IsVideo() ? video : audio) to->Give(frame);
            progress.Show(media_ms, input.DurationMs(), Bytes());
        }
        Finish(video);
        Finish(audio);
        for (std::string& note : input.Notes())
            notes_.push_back(std::move(note));
        if (input.DamagedFrames() != 0) {
            notes_.push_back(std::to_string(input.DamagedFrames()) + " damaged frames of " + WithoutFolder(path) +
                             " were left out");
        }
    }

    void Finish(CmafRendition* one) {
        if (one == nullptr) return;
        if (one->Frames().given != 0) return one->Finish();
        notes_.push_back("left out of " + WithoutFolder(one->About().path) + ": stream " +
                         std::to_string(one->About().number) + ", which holds no frame");
        renditions_.erase(std::find_if(renditions_.begin(), renditions_.end(),
                                       [&](const auto& other) { return other.get() == one; }));
    }

    // Do the segments of all renditions of pictures begin at the same times?
    bool Aligned() const {
        const CmafRendition* first = nullptr;
        for (const auto& one : renditions_) {
            if (!one->IsVideo()) continue;
            if (first == nullptr) first = one.get();
            const auto same = [&](const CmafRendition::Segment& a, const CmafRendition::Segment& b) {
                constexpr double kSameMoment = 0.002;
                return std::abs(first->SecondsAt(a.start) - one->SecondsAt(b.start)) < kSameMoment;
            };
            if (!std::equal(first->Segments().begin(), first->Segments().end(), one->Segments().begin(),
                            one->Segments().end(), same)) {
                return false;
            }
        }
        return true;
    }

    void AddNotes() {
        char text[200];
        for (const auto& one : renditions_) {
            const Tally& frames = one->Frames();
            if (frames.refused != 0) {
                notes_.push_back(std::to_string(frames.refused) + " frames of " + WithoutFolder(one->About().path) +
                                 " were refused and are missing");
            }
            if (one->IsVideo() && one->LongestSegment() > TargetSeconds() * 2) {
                std::snprintf(text, sizeof text, " has no key frame for %.1f s, and a segment is as long",
                              one->LongestSegment());
                notes_.push_back(WithoutFolder(one->About().path) + text);
            }
            if (one->Initialisations() > 1 && dash_) {
                throw Failure(WithoutFolder(one->About().path) +
                              " changes its coding on the way, and a DASH representation has one initialisation; write "
                              "HLS (-o DIR/index.m3u8), which tells players of the change");
            }
        }
        if (!Aligned()) {
            notes_.emplace_back(
                "the renditions' key frames stand at different times: players switch between them with a hitch; encode "
                "them with the same key frames");
        }
        if (Interrupted()) notes_.emplace_back("stopped by a signal; the presentation is complete up to there");
    }

    // What goes with pictures that play the most demanding sound.
    uint64_t SoundBitRate(bool average) const {
        uint64_t most = 0;
        for (const auto& one : renditions_) {
            if (!one->IsVideo()) most = std::max(most, average ? one->AverageBitRate() : one->PeakBitRate(target_));
        }
        return most;
    }

    std::string SoundCodecs() const {
        std::set<std::string> codecs;
        for (const auto& one : renditions_) {
            if (!one->IsVideo()) codecs.insert(one->Codecs());
        }
        std::string text;
        for (const std::string& codec : codecs)
            text += "," + codec;
        return text;
    }

    static void WriteText(const std::string& path, const std::string& text) {
        OutputFile file(path, OutputFile::Growth::kInPlace);
        file.Write(text.data(), text.size(), std::nullopt);
        file.Publish();
    }

    void PublishPlaylist(const std::string& text) {
        playlist_.Write(text.data(), text.size(), std::nullopt);
        playlist_.Publish();
    }

    // The name that viewers choose by, of sound; each once.
    static std::string LabelOf(const CmafRendition& one, std::set<std::string>& taken) {
        const std::string stem = one.About().path == "-" ? "sound" : fs::path(one.About().path).stem().string();
        std::string label = stem;
        for (int i = 2; !taken.insert(label).second; ++i)
            label = stem + " " + std::to_string(i);
        return label;
    }

    void WritePlaylists() {
        Streaming::MasterPlaylist master;
        std::set<std::string> labels;
        for (const auto& one : renditions_) {
            WriteText(folder_.Path() + "/" + one->Name() + ".m3u8",
                      Streaming::PrintMediaPlaylist(one->Playlist("", target_)));
            master.independent = master.independent && one->IsIndependent();
            const std::string uri = folder_.Address() + one->Name() + ".m3u8";
            const MediaStream& about = one->About();
            if (HasVideo() && !one->IsVideo()) {
                master.audio.push_back({LabelOf(*one, labels), uri, about.channels});
                continue;
            }
            Streaming::Variant& variant = master.variants.emplace_back();
            variant.uri = uri;
            variant.codecs = one->Codecs() + (one->IsVideo() ? SoundCodecs() : "");
            variant.bandwidth = one->PeakBitRate(target_) + (one->IsVideo() ? SoundBitRate(false) : 0);
            variant.average = one->AverageBitRate() + (one->IsVideo() ? SoundBitRate(true) : 0);
            variant.width = about.width;
            variant.height = about.height;
            variant.frame_rate = one->IsVideo() ? about.exact_rate : 0;
        }
        PublishPlaylist(Streaming::PrintMasterPlaylist(master));
    }

    // Players switch within a set: pictures of one codec, and sound where there is nothing else.
    Streaming::AdaptationSet& SetFor(const CmafRendition& one, std::vector<Streaming::AdaptationSet>& sets) const {
        const auto family = [](const std::string& codec) { return codec.substr(0, codec.find('.')); };
        for (Streaming::AdaptationSet& set : sets) {
            if (set.video == one.IsVideo() && (one.IsVideo() || !HasVideo()) &&
                family(set.representations.front().codec) == family(one.Codecs())) {
                return set;
            }
        }
        Streaming::AdaptationSet& set = sets.emplace_back();
        set.video = one.IsVideo();
        set.aligned = Aligned() || !set.video;
        return set;
    }

    void WriteManifest() {
        Streaming::Manifest manifest;
        manifest.ended = true;
        manifest.target = target_;
        std::set<std::string> labels;
        for (const auto& one : renditions_) {
            Streaming::AdaptationSet& set = SetFor(*one, manifest.sets);
            if (set.representations.empty() && !one->IsVideo()) set.label = LabelOf(*one, labels);
            set.begins_with_sap = one->IsIndependent() ? set.begins_with_sap : one->StartsWithSap();
            set.representations.push_back(one->Representation(folder_.Address(), target_));
            manifest.depth = std::max(manifest.depth, one->SecondsAt(one->Segments().back().end));
        }
        PublishPlaylist(Streaming::PrintManifest(manifest));
    }

    uint64_t Bytes() const {
        uint64_t bytes = 0;
        for (const auto& one : renditions_)
            bytes += one->Bytes();
        return bytes;
    }

    double MediaSeconds() const {
        double longest = 0;
        for (const auto& one : renditions_)
            longest = std::max(longest, one->SecondsAt(one->Segments().back().end));
        return longest;
    }

    std::string Summary() const {
        char text[300];
        std::snprintf(text, sizeof text, ": %s, %" PRIu64 " bytes, %.2f s of media in %.2f s\n", dash_ ? "DASH" : "HLS",
                      Bytes(), MediaSeconds(), seconds_);
        std::string summary = arguments_.output + text;
        for (const auto& one : renditions_) {
            std::snprintf(text, sizeof text, "  %s  %-24s  %zu segments, %" PRIu64 " kbit/s, at most %" PRIu64 "\n",
                          one->Name().c_str(), StreamText(one->About()).c_str(), one->Segments().size(),
                          one->AverageBitRate() / 1000, one->PeakBitRate(target_) / 1000);
            summary += text;
        }
        for (const std::string& note : notes_)
            summary += "  note: " + note + "\n";
        return summary;
    }

    Json JsonSummary() const {
        Json renditions = Json::array();
        for (const auto& one : renditions_) {
            renditions.push_back({{"name", one->Name()},
                                  {"input", one->About().path},
                                  {"codecs", one->Codecs()},
                                  {"segments", one->Segments().size()},
                                  {"bytes", one->Bytes()},
                                  {"bandwidth", one->PeakBitRate(target_)},
                                  {"given", one->Frames().given},
                                  {"refused", one->Frames().refused}});
        }
        return Json{{"output", arguments_.output},
                    {"format", dash_ ? "dash" : "hls"},
                    {"bytes", Bytes()},
                    {"media_seconds", MediaSeconds()},
                    {"seconds", seconds_},
                    {"renditions", renditions},
                    {"notes", notes_}};
    }

    const PackArguments& arguments_;
    bool dash_;
    int64_t target_ms_;
    OutputFile playlist_;  // holds the lock on the name from the beginning
    PresentationFolder folder_;
    std::vector<std::unique_ptr<CmafRendition>> renditions_;
    std::string film_sound_;  // the input with pictures whose sound was taken
    std::vector<std::string> notes_;
    double target_ = 0;  // of all playlists: the longest segment
    double seconds_ = 0;
};

}  // namespace

bool IsPresentation(const PackArguments& arguments) {
    const std::string extension = LowerExtension(arguments.output);
    return arguments.format_key.empty() && arguments.jobs == 0 && (extension == ".m3u8" || extension == ".mpd");
}

void PackPresentation(const PackArguments& arguments, const OwnStdout& out) {
    CheckArguments(arguments);
    PresentationRun run(arguments, LowerExtension(arguments.output) == ".mpd");
    run.Run();
    run.Report(out);
}

}  // namespace Orvane::Muxora::Tools
