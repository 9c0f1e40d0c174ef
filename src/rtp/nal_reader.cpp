#include "rtp/nal_reader.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "codec/start_code.h"

namespace Orvane::Muxora {

namespace {

// NextStartCode tries the places ahead of the last three.
constexpr int64_t kUntried = 3;

}  // namespace

bool NalReader::Next() {
    EndsBehind(std::numeric_limits<int64_t>::max() / 2);
    if (!has_next_) return false;
    position_ = static_cast<uint32_t>(end_);
    end_ = std::min(Start() + skip_, length_);
    open_ = end_ < length_;
    has_next_ = false;
    return true;
}

// Looks for the end as far as `place`, or closes the unit.
void NalReader::Search(int64_t place) {
    const int64_t stop = std::min(length_, place + 1 + kUntried);
    const auto code = NextStartCode(data_, static_cast<uint32_t>(stop), static_cast<uint32_t>(end_));
    if (code) {
        end_ = code.position;
        open_ = false;
        has_next_ = true;
    } else if (stop == length_) {
        end_ = length_;
        open_ = false;
    } else {
        end_ = stop - kUntried;
    }
}

void NalReader::Copy(uint8_t* out, int64_t from, int64_t count) {
    const int64_t stop = from + count;
    // A frame's last bytes are left to EndsBehind, and so is what begins ahead of the copy.
    const bool search = open_ && end_ >= from && end_ < stop && stop + kUntried < length_;
    if (!search) {
        std::memcpy(out, data_ + from, static_cast<size_t>(count));
        return;
    }
    // A start code across the end of the copy, or right behind it, has a 0 or a 1 at that place.
    const uint8_t* const end = data_ + stop;
    const uint8_t* const hit = CopyToStartCode(out, data_ + from, end);
    if (hit != end) {
        std::memcpy(out + (hit - data_ - from), hit, static_cast<size_t>(end - hit));
    } else if (*end > 1) {
        end_ = stop + 1;
    }
}

}  // namespace Orvane::Muxora
