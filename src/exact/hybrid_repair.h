#pragma once

#include <cstdint>
#include <vector>

#include "MuxoraExt.h"
#include "exact/fragment_reader.h"
#include "exact/mp4_track.h"
#include "exact/sample_index.h"

namespace Orvane::Muxora {

// Completes a hybrid MP4 that was cut off while it grew: see MX_RepairHybrid.
//
//     ftyp free moov free  moof mdat  moof mdat  mo        what a kill leaves
//     ftyp mdat(                              ) moov       what becomes of it
class HybridRepair {
  public:
    explicit HybridRepair(const MXHybridFile& file) : file_(file) {}

    // Once. Throws std::bad_alloc; what is there by then can be repaired by another.
    MXHybridRepair Run();

  private:
    struct BoxHead {
        uint64_t size = 0;
        uint8_t type[4] = {};
        bool Is(const char (&name)[5]) const;
        bool IsZero() const { return size == 0 && type[0] == 0; }
    };

    bool IsGrowing();
    bool ReadFront();
    bool ReadFragments();
    enum class Found { kFragment, kEnd, kTrouble };
    uint64_t BehindGuard(uint64_t at);
    Found ReadFragment();
    bool Remember(uint64_t media);
    void Write();

    BoxHead HeadAt(uint64_t at);
    std::vector<uint8_t> BytesAt(uint64_t at, uint64_t size);
    void Read(uint64_t at, void* data, size_t size);
    bool Refuse(uint64_t at, const char* message);
    void Fail(uint64_t at, const char* message);

    const MXHybridFile& file_;
    MXHybridRepair result_{sizeof(MXHybridRepair), MX_HYBRID_OTHER, 0, 0, 0, 0, ""};
    std::vector<Mp4Track> tracks_;
    FragmentHead head_;
    RecordingIndex index_;
    uint64_t position_ = 0;           // behind the last whole box
    uint64_t last_media_ = 0;         // where the media of the last fragment begins
    uint64_t samples_ = 0;            // so far
    int64_t last_dts_[2] = {-1, -1};  // sound, pictures
};

}  // namespace Orvane::Muxora
