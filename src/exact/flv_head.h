// The head of an FLV file with exact times: the file header and "onMetaData", of one size from beginning to end, so
// that the end can complete it in place.
#pragma once

#include <cstdint>
#include <vector>

#include "core/byte_writer.h"

namespace Orvane::Muxora {

// Where key frames are, for players that seek. A fixed number of entries: when they are used up every second one goes,
// and from then on every second key frame is left out.
class CFlvIndex {
  public:
    struct Entry {
        double time;  // seconds
        double position;
    };

    explicit CFlvIndex(uint32_t capacity);
    void Add(double time, uint64_t position);
    uint32_t Capacity() const { return capacity_; }
    const std::vector<Entry>& Entries() const { return entries_; }

  private:
    uint32_t capacity_;
    uint64_t offered_ = 0;
    uint64_t stride_ = 1;
    std::vector<Entry> entries_;
};

struct FlvHead {
    static constexpr uint32_t kEntrySize = 18;
    static constexpr uint32_t kMostEntries = 100000;

    bool has_video = false;
    bool has_audio = false;
    double duration = 0;  // seconds
    double width = 0;
    double height = 0;
    double framerate = 0;
    double videocodecid = 0;
    double videodatarate = 0;  // kbit/s
    double audiocodecid = 0;
    double audiosamplerate = 0;
    double audiosamplesize = 0;
    double audiodatarate = 0;
    bool stereo = false;
    double filesize = 0;

    // The whole head; its size depends on the capacity of the index alone.
    void Write(ByteCursor& out, const CFlvIndex& index) const;
    static uint32_t Size(const CFlvIndex& index);
};

}  // namespace Orvane::Muxora
