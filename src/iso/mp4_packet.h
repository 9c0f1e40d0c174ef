#pragma once

#include <memory>

#include "core/grow_buffer.h"
#include "core/mutex.h"
#include "core/package.h"
#include "iso/file_boxes.h"
#include "iso/track_boxes.h"
#include "iso/variant.h"

namespace Orvane::Muxora {

// MP4, MOV and 3GP, with their 64-bit and no-seek forms (ISO/IEC 14496-12, -14, -15; QuickTime File Format). Media data
// goes out as it arrives, one sample a chunk; the index grows in the box tree and goes out at the end, into the gap
// reserved for it if it fits.
//
// One video track and one audio track, which begin by themselves: video with the first key frame, audio with the first
// audio frame after that. They never restart: frames of another codec or audio channel vanish, and so does everything
// ahead of the first key frame. Private data lies among the media data with no table that refers to it.
//
// getBackup may run on a second thread; every operation takes the lock, and `output` is called with it held.
class CMp4Packet : public CPackage {
  public:
    explicit CMp4Packet(uint32_t format, const MXCreateParam* param = nullptr);

    uint32_t init() override;
    uint32_t uninit() override;
    uint32_t createHeader(MXHeaderInfo* info, uint32_t unused) override;
    uint32_t inputFrame(MXFrameInfo* frame, uint32_t reserved) override;
    uint32_t createTailer(const void* info, uint32_t unused) override;
    // The index of everything written so far, and where it would belong. The bytes are good until the next call.
    uint32_t getBackup(MXOutputBlock* block) override;
    bool checkFrame(const MXFrameInfo* frame) const override;
    uint32_t getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const override;
    uint32_t getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const override;

  private:
    uint32_t InputVideo(const MXFrameInfo& frame);
    uint32_t InputAudio(const MXFrameInfo& frame);
    uint32_t InputExt(const MXFrameInfo& frame);
    // All of it: mdat is made last.
    bool HasTree() const { return mdat_ != nullptr; }
    void OpenVideo(const MXFrameInfo& frame);
    void OpenAudio(const MXFrameInfo& frame);
    uint32_t Convert(const MXFrameInfo& frame, uint8_t* out, uint32_t outCap) const;
    bool ResetWorkBuffer();
    uint64_t SampleOffset() const { return writePos_ + SampleHeaderSize(); }
    uint32_t SampleHeaderSize() const;
    uint32_t WriteCopied(uint32_t trackType, const MXFrameInfo& frame);

    const BoxVariant variant_;
    CMXMutex mutex_;
    CGrowBuffer workBuffer_;
    CGrowBuffer backup_;
    uint32_t largest_backup_ = 0;

    uint64_t writePos_ = 0;  // file position of the next byte
    uint64_t freePos_ = 0;   // file position of free
    uint64_t mdatPos_ = 0;   // file position of mdat

    bool videoStarted_ = false;
    uint32_t videoEncodeType_ = 0;
    bool audioStarted_ = false;
    uint32_t audioEncodeType_ = 0;
    uint32_t audioChannel_ = 0;
    bool extStarted_ = false;

    // From init to uninit.
    std::unique_ptr<CBox_ftyp> ftyp_;
    std::unique_ptr<CBox_free> free_;
    std::unique_ptr<CBox_moov> moov_;
    std::unique_ptr<CBox_mdat> mdat_;
};

}  // namespace Orvane::Muxora
