// One run of muxora pack: an input, a packer, and the file or files that come out.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "common/json_fwd.h"
#include "common/output.h"
#include "common/packer.h"
#include "media_input/media_input.h"
#include "muxora/options.h"
#include "muxora/pack_notes.h"
#include "muxora/segment_names.h"
#include "muxora/snapshot.h"

namespace Orvane::Muxora::Tools {

struct PackArguments {
    InputArguments input;
    RtpArguments rtp;
    KeyArguments key;
    std::string output;
    std::string format_key;
    bool realtime = false;
    bool strict = false;
    uint32_t reserve = 0;
    double backup = 0;
    std::string encrypt;
    std::string segment;
    uint32_t jobs = 0;
    bool quiet = false;
    bool json = false;
};

class PackRun {
  public:
    // Opens input and output. Throws Failure, WrongUsage, InputError.
    PackRun(const PackArguments& arguments, const Format& format, const OwnStdout& out);

    void Run();
    // Prints what became of it. Throws Failure when less than all was written.
    void Report(const OwnStdout& out) const;

  private:
    void OpenPart();
    void ClosePart();
    bool WantsNewPart(const MediaFrame& frame) const;
    void PackFrames();
    void MeasureRate(const MediaFrame& frame);
    uint64_t Store(const MXOutputBlock& block);
    void StorePacket(const MXOutputBlock& block);
    bool NewInitialisation() const;
    void CheckStored() const;
    void RefuseIfStrict(bool finished) const;
    PackFacts Facts() const;
    // What is lost.
    std::vector<std::string> Notes() const;
    // That, and what is good to know.
    std::vector<std::string> AllNotes() const;
    std::string Summary() const;
    Json JsonSummary() const;

    const PackArguments& arguments_;
    const Format& format_;
    const OwnStdout& out_;
    bool key_asked_ = false;  // encrypted units came
    MediaInput input_;
    PackerSettings settings_;
    std::optional<SegmentRule> rule_;
    std::unique_ptr<OutputFile> output_;
    std::unique_ptr<Packer> packer_;
    std::unique_ptr<SnapshotTaker> snapshots_;
    std::vector<std::string> parts_;  // names of the finished files
    uint64_t bytes_ = 0;              // of the finished files
    uint64_t snapshots_taken_ = 0;
    Tally video_;
    Tally audio_;
    int64_t part_start_ms_ = 0;
    int64_t part_start_ticks_ = 0;  // the same on the clock of the stream that begins the part
    uint32_t part_start_scale_ = 1;
    uint64_t largest_gap_ = 0;  // bytes from one key frame to the next
    uint64_t key_at_ = 0;
    unsigned headers_ = 0;  // of the part, where the form tells them from media
    uint32_t codec_now_ = 0;
    bool has_b_pictures_ = false;
    uint64_t pictures_ = 0;
    int64_t first_picture_ms_ = 0;
    double uneven_seconds_ = 0;
    int64_t media_ms_ = 0;
    double seconds_ = 0;
    std::string full_;
};

}  // namespace Orvane::Muxora::Tools
