#pragma once

#include <algorithm>
#include <cstdint>

namespace Orvane::Muxora {

// Goes through the NAL units of an Annex-B frame. The search for the end of a unit runs only as far ahead as its
// packets ask, and along with their copies: the frame comes from memory once.
class NalReader {
  public:
    // `skip` bytes behind a start code are never taken for the beginning of the next one.
    NalReader(const uint8_t* data, uint32_t length, uint32_t skip) : data_(data), length_(length), skip_(skip) {}

    // Goes behind the next start code. False with nothing changed if there is none.
    bool Next();

    // The start code in front of the unit: 00 00 01 or 00 00 00 01.
    int64_t Position() const { return position_; }
    bool IsShortCode() const { return data_[position_ + 2] != 0; }
    // The first byte of the unit.
    int64_t Start() const { return Position() + (IsShortCode() ? 3 : 4); }

    // Does the unit end behind `place`?
    bool EndsBehind(int64_t place) {
        if (end_ <= place && open_) Search(place);
        return end_ > place;
    }

    // Copies `count` bytes of a unit whose end is not known, from `from` on, or fewer where the unit is found to end or
    // the frame does. Returns how many. `out` has room for all.
    int64_t CopyAhead(uint8_t* out, int64_t from, int64_t count);

    // Tells of a unit whose end is not known that no start code begins in front of `place`.
    void Passed(int64_t place) {
        if (open_) end_ = std::max(end_, place);
    }

    bool IsEndKnown() const { return !open_; }
    // Where the unit ends at the latest.
    int64_t Limit() const { return open_ ? length_ : end_; }
    // Both are good as soon as EndsBehind has said no.
    int64_t End() const { return end_; }
    bool IsLast() const { return !has_next_; }

  private:
    void Search(int64_t place);
    void CloseAt(int64_t start_code);

    const uint8_t* data_;
    int64_t length_;
    uint32_t skip_;
    uint32_t position_ = 0;
    // The unit ends at `end_`, or it is open and nothing that begins in front of `end_` is a start code.
    int64_t end_ = 0;
    bool open_ = true;
    bool has_next_ = false;  // there is a start code at the end
};

}  // namespace Orvane::Muxora
