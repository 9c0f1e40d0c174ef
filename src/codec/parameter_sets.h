#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "codec/sps_details.h"
#include "core/byte_writer.h"

namespace Orvane::Muxora {

enum class NalCodec : uint8_t { kAvc, kHevc };

// What a look at a frame found.
struct FrameNals {
    bool has_start_code = false;      // Annex-B: one at least
    uint32_t rest = 0;                // behind the delimiters and parameter sets that the frame begins with
    bool changed = false;             // a parameter set is new, or differs from the one with its number
    bool has_delimiter = false;       // an access unit delimiter
    bool has_parameter_sets = false;  // of every kind that the codec has
    bool has_picture = false;
    bool random_access = false;  // the picture is IDR, or with H.265 any IRAP
};

// The parameter sets of an H.264 or H.265 stream: gathered from its frames by number, given back as a decoder
// configuration (ISO/IEC 14496-15) or as NAL units. Holds at most kMostSets of at most kLongestSet bytes; what goes
// beyond stays in the stream alone. Does not allocate while a stream repeats its sets.
class CParameterSets {
  public:
    static constexpr uint32_t kMostSets = 64;
    static constexpr uint32_t kLongestSet = 4096;

    explicit CParameterSets(NalCodec codec) : codec_(codec) {}

    // Take in the sets that stand ahead of the first picture in a frame with 4-byte lengths, or in an Annex-B frame. Of
    // the picture only the beginning is read: its first byte, and what a search for start codes takes in one step.
    FrameNals ScanLengthPrefixed(std::span<const uint8_t> frame);
    FrameNals ScanAnnexB(std::span<const uint8_t> frame);

    // Takes back what the last scan took in, if it changed anything; also one that ended in std::bad_alloc.
    void Undo();

    // Is there a set of each kind?
    bool Complete() const;
    NalCodec codec() const { return codec_; }
    // What the first sequence parameter set says, if there is one that can be read.
    std::optional<SpsDetails> Details() const;

    // The AVCDecoderConfigurationRecord (5.3.3.1) or HEVCDecoderConfigurationRecord (8.3.3.1), and its size.
    // `only_here` states that the frames bring no sets of their own (array_completeness; H.265 only).
    void WriteConfiguration(ByteCursor& out, bool only_here = false) const;
    uint32_t ConfigurationSize() const;

    // All sets, each behind 00 00 00 01 or behind its length in four bytes, and the size of that.
    void WriteAnnexB(ByteCursor& out) const;
    void WriteLengthPrefixed(ByteCursor& out) const;
    uint32_t UnitsSize() const;

  private:
    enum class Kind : uint8_t { kVps, kSps, kPps };
    struct Set {
        Kind kind;
        uint32_t id;
        std::vector<uint8_t> bytes;
    };

    enum class Unit : uint8_t { kParameters, kPicture, kOther };

    Unit Look(std::span<const uint8_t> nal, FrameNals& found, uint32_t& kinds);
    bool HasAll(uint32_t kinds) const;
    bool Keep(Kind kind, std::span<const uint8_t> nal);
    void Remember();
    uint32_t Count(Kind kind) const;
    const Set* First(Kind kind) const;
    void WriteAvc(ByteCursor& out) const;
    void WriteHevc(ByteCursor& out, bool only_here) const;

    NalCodec codec_;
    std::vector<Set> sets_;    // by kind, then by number
    std::vector<Set> before_;  // the last scan
    bool changed_ = false;     // by the last scan
};

}  // namespace Orvane::Muxora
