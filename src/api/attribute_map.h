// The components' description of a frame: a map of names to numbers, turned into the record that packagers read.
#pragma once

#include <cstdint>
#include <vector>

#include "Muxora.h"
#include "MuxoraAPI.h"

namespace Orvane::Muxora {

// Converts the frames of one stream. It owns the block records, so that they keep their room from frame to frame.
class CFrameAttributes {
  public:
    // Fills a zeroed record, all but the frame's data and length. `blocks` of the record lasts until the next call. The
    // keys "frametype", "framesubtype" and "encodetype" are entered into the map when they are absent. Bad values are
    // not refused here. Blocks that there is no memory for, or an absurd number of them, are left out.
    void Fill(const AttributeMap& attributes, MXFrameInfo& frame);

  private:
    struct Date {
        int32_t year;
        int32_t month;
        int32_t day;
        int32_t hour;
        int32_t minute;
        int32_t second;
        bool operator==(const Date&) const = default;
    };

    uint32_t UtcTime(const Date& date);
    void FillBlocks(const AttributeMap& attributes, MXFrameInfo& frame);

    std::vector<MXBlockInfo> blocks_;
    Basalt::flex_string key_;
    // The date that was converted last: the calendar's arithmetic is dear, and dates change once a second.
    Date last_date_{};
    uint32_t last_utc_time_ = 0;
};

}  // namespace Orvane::Muxora
