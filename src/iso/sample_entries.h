// stsd and the sample entries that it may hold, one a track (ISO/IEC 14496-12 8.5.2).
#pragma once

#include <cstdint>
#include <memory>

#include "iso/box.h"
#include "iso/codec_config.h"
#include "iso/track_records.h"
#include "iso/variant.h"

namespace Orvane::Muxora {

class CSampleEntry : public CBox {
  public:
    virtual void Init(uint32_t trackType, const TrackInfo* info) = 0;
    // A sample passes. Only MPEG-4 video looks at it.
    virtual void Update(const SampleInfo& /*sample*/) {}

  protected:
    using CBox::CBox;
};

// The fields that all visual entries share (ISO/IEC 14496-12 12.1.3).
class CVisualEntry : public CSampleEntry {
  public:
    void Init(uint32_t trackType, const TrackInfo* info) override;

  protected:
    static constexpr uint32_t kFieldsSize = 78;

    using CSampleEntry::CSampleEntry;
    // Up to and with depth, 76 bytes.
    void PutFields(ByteCursor& out) const;
    // All 78 bytes. Returns their number.
    uint32_t WriteFields(CGrowBuffer* buffer) const;

  private:
    uint16_t width_ = 0;
    uint16_t height_ = 0;
};

// H.264.
class CBox_avc1 final : public CVisualEntry {
  public:
    CBox_avc1() : CVisualEntry("avc1") {}
    void Init(uint32_t trackType, const TrackInfo* info) override;

  private:
    uint32_t WriteData(CGrowBuffer* buffer) const override;

    CBox_avcC avcC_;
};

// H.265.
class CBox_hev1 final : public CVisualEntry {
  public:
    CBox_hev1() : CVisualEntry("hev1") {}
    void Init(uint32_t trackType, const TrackInfo* info) override;

  private:
    uint32_t WriteData(CGrowBuffer* buffer) const override;

    CBox_hvcC hvcC_;
};

// MPEG-4 part 2.
class CBox_mp4v final : public CVisualEntry {
  public:
    CBox_mp4v() : CVisualEntry("mp4v") {}
    void Init(uint32_t trackType, const TrackInfo* info) override;
    void Update(const SampleInfo& sample) override;

  private:
    uint32_t WriteData(CGrowBuffer* buffer) const override;

    CBox_esds esds_;
};

// Motion JPEG.
class CBox_jpeg final : public CVisualEntry {
  public:
    CBox_jpeg() : CVisualEntry("jpeg") { SetDataSize(kFieldsSize); }

  private:
    uint32_t WriteData(CGrowBuffer* buffer) const override;
};

// Private data: a visual entry without a picture, one byte short.
class CBox_orvx final : public CVisualEntry {
  public:
    CBox_orvx();

  private:
    uint32_t WriteData(CGrowBuffer* buffer) const override;
};

// The codec of the audio inside a wave.
class CBox_frma final : public CBox {
  public:
    CBox_frma();

  private:
    uint32_t WriteData(CGrowBuffer* buffer) const override;
};

// The mp4a that stands inside a wave and holds nothing.
class CBox_mp4aInWave final : public CBox {
  public:
    CBox_mp4aInWave();

  private:
    uint32_t WriteData(CGrowBuffer* buffer) const override;
};

// QuickTime's holder of an audio decoder's configuration (QuickTime File Format, siDecompressionParam atom).
class CBox_wave final : public CBox {
  public:
    CBox_wave() : CBox("wave") {}
    void Init(uint32_t trackType, const TrackInfo* info);

  private:
    uint32_t WriteData(CGrowBuffer* buffer) const override;

    CBox_frma frma_;
    CBox_mp4aInWave mp4a_;
    CBox_esds esds_;
};

// AAC and MPEG audio. In QuickTime files a version 1 sound description with a wave, in all others the plain form with
// an esds.
class CBox_mp4a final : public CSampleEntry {
  public:
    explicit CBox_mp4a(BoxVariant variant) : CSampleEntry("mp4a"), quick_time_(IsQuickTime(variant)) {}
    void Init(uint32_t trackType, const TrackInfo* info) override;

  private:
    uint32_t WriteData(CGrowBuffer* buffer) const override;

    bool quick_time_;
    uint16_t channelcount_ = 0;
    uint16_t samplesize_ = 0;
    uint32_t samplerate_ = 0;
    std::unique_ptr<CBox> configuration_;  // esds or wave
};

class CBox_stsd final : public CBox {
  public:
    explicit CBox_stsd(BoxVariant variant);
    // Chooses the entry by the codec. Once: a later call changes nothing.
    void Init(uint32_t trackType, const TrackInfo* info);
    void Update(const SampleInfo& sample);

  private:
    uint32_t WriteData(CGrowBuffer* buffer) const override;
    std::unique_ptr<CSampleEntry> MakeEntry(uint32_t trackType, const TrackInfo* info) const;
    void Refresh();

    BoxVariant variant_;
    std::unique_ptr<CSampleEntry> entry_;
};

}  // namespace Orvane::Muxora
