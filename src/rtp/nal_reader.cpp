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
        CloseAt(code.position);
    } else if (stop == length_) {
        end_ = length_;
        open_ = false;
    } else {
        end_ = stop - kUntried;
    }
}

void NalReader::CloseAt(int64_t start_code) {
    end_ = start_code;
    open_ = false;
    has_next_ = true;
}

int64_t NalReader::CopyAhead(uint8_t* out, int64_t from, int64_t count) {
    constexpr int64_t kShortCode = 3;
    if (open_ && end_ < from) Search(from - 1);
    if (!open_) return 0;
    const int64_t stop = std::min(from + count, length_);
    if (end_ >= stop) {
        std::memcpy(out, data_ + from, static_cast<size_t>(stop - from));
        return stop - from;
    }
    for (int64_t done = from; done != stop;) {
        const uint8_t* const hit = CopyToStartCode(out + (done - from), data_ + done, data_ + stop);
        if (hit == data_ + stop) break;
        const int64_t position = hit - data_;
        const bool is_long = position > end_ && hit[-1] == 0;
        if (is_long || (position >= end_ && position < length_ - kUntried)) {
            CloseAt(is_long ? position - 1 : position);
            return position - from;
        }
        std::memcpy(out + (position - from), hit, kShortCode);
        done = position + kShortCode;
    }
    if (stop == length_) {
        end_ = length_;
        open_ = false;
    } else {
        // A start code across the end of the copy, or right behind it, has a 0 or a 1 at that place.
        end_ = data_[stop] > 1 ? stop + 1 : std::max(end_, stop - kUntried);
    }
    return stop - from;
}

}  // namespace Orvane::Muxora
