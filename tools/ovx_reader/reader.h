#pragma once

#include <deque>
#include <optional>

#include "ovx_reader/data_check.h"

namespace Orvane::OvxReader {

// What is wrong with a unit whose place is known. Bits.
enum Damage : uint8_t {
    kNoDamage = 0,
    kDamagedHead = 1,       // its tail tells where it begins; a head that is gone is not counted in
    kDamagedExtension = 2,  // the records do not parse
    kDamagedFrame = 4,      // the data check is wrong
    kDamagedTail = 8,       // its head tells where it ends
};

// A stretch of the input: one unit, or bytes that belong to none.
struct Piece {
    uint64_t offset = 0;
    uint64_t length = 0;
    bool is_unit = false;

    // Of a unit.
    uint8_t damage = kNoDamage;
    Head head;  // means nothing with kDamagedHead
    Extension extension;
    ByteSpan frame;
    Check check = Check::kMissing;

    // Of lost bytes: the length of the unit whose head stands in front, and of the one whose tail stands at the end;
    // 0 if there is none. They tell a unit that was cut.
    uint32_t head_length = 0;
    uint32_t tail_length = 0;

    bool Intact() const { return is_unit && damage == kNoDamage; }
    // Are the head's fields and the frame's bytes known to be right, whatever else is wrong?
    bool Usable() const { return Intact() || (is_unit && (damage & kDamagedHead) == 0 && check == Check::kRight); }
};

// Reads units from bytes in memory. Damaged input is read on: the tags of heads are looked for forward and those of
// tails backward, and what lies between the units is told. The pieces cover the input in order, without a gap.
class Reader {
  public:
    // The bytes must outlive the reader and the pieces.
    explicit Reader(ByteSpan bytes) : bytes_(bytes) {}

    // The next piece; nothing at the end.
    std::optional<Piece> Next();

  private:
    // Where a piece stands: crafted input has millions of them in one damaged stretch.
    struct Place {
        enum Kind : uint8_t { kUnit, kHeadless, kLost };
        uint64_t offset;
        uint64_t length;
        Kind kind;
    };
    Piece PieceAt(const Place& place) const;

    std::optional<Head> HeadAt(size_t offset) const;
    // The length in the tail that ends at `end`.
    std::optional<uint32_t> TailBefore(size_t end) const;
    // A head whose tail stands where it should.
    std::optional<Head> UnitAt(size_t offset) const;
    // The next head's tag, or `end`.
    size_t FindTag(size_t from, size_t end) const;
    // The next such unit, or the end of the input.
    size_t FindUnit(size_t from) const;

    Piece UnitPiece(size_t offset, const Head& head) const;
    // For a unit whose head can't be trusted: the data check shows where the records end.
    Piece HeadlessPiece(size_t end, uint32_t length) const;
    Piece LostPiece(size_t offset, size_t end) const;
    // Fills `pending_` with the places of a stretch in which no unit is whole.
    void ExplainDamage(size_t begin, size_t end);
    void ExplainHeadless(size_t begin, size_t end);
    bool BeginsUnit(size_t offset, uint32_t length) const;

    ByteSpan bytes_;
    size_t at_ = 0;
    std::deque<Place> pending_;  // explained, and not given out yet
};

}  // namespace Orvane::OvxReader
