// Access units of H.264 and H.265 in Annex-B form.
#pragma once

#include <memory>
#include <vector>

#include "units/unit_cutter.h"

namespace Orvane::Muxora {

// Where a NAL unit stands towards the access unit begun.
enum class NalPlace : uint8_t {
    kInside,
    kFirst,    // of the next one
    kPerhaps,  // the first of the next one if a picture begins behind it
    kPicture   // inside, and it carries a part of the picture
};

// The rules of one codec: which NAL unit begins an access unit, and what it says.
class INalRules {
  public:
    virtual ~INalRules() = default;
    // How many bytes of a NAL unit, of which `head` is the beginning and not empty, have to be there to tell its place.
    virtual size_t HeadSize(std::span<const uint8_t> head) const = 0;
    virtual NalPlace Place(std::span<const uint8_t> head) const = 0;
    // Takes a NAL unit into the unit: its beginning, and later the whole of it.
    virtual void Begin(std::span<const uint8_t> head) = 0;
    virtual void End(std::span<const uint8_t> nal) = 0;
    virtual bool HasPicture() const = 0;
    // What the unit came to; the next NAL unit begins another.
    virtual UnitInfo Finish() = 0;
};

// MXFrameSubType by SliceKind.
inline constexpr uint32_t kPictureKinds[] = {MX_SUB_I, MX_SUB_P, MX_SUB_B};

std::unique_ptr<INalRules> MakeAvcRules();
std::unique_ptr<INalRules> MakeHevcRules();

class VideoCutter : public IUnitCutter {
  public:
    explicit VideoCutter(std::unique_ptr<INalRules> rules);

    std::optional<UnitCut> Next(std::span<const uint8_t> bytes, BytesEnd end) override;
    void Restart() override;
    const UnitInfo& Info() const override { return info_; }
    std::span<const size_t> ShortStartCodes() const override { return {short_codes_.data(), short_count_}; }

  private:
    std::optional<UnitCut> WithoutStartCode(std::span<const uint8_t> bytes, BytesEnd end);
    UnitCut LastUnit(std::span<const uint8_t> bytes);
    void EndNal(std::span<const uint8_t> bytes, size_t end);
    UnitCut CutUnit(size_t length);

    std::unique_ptr<INalRules> rules_;
    UnitInfo info_;
    size_t scan_ = 0;                  // where the search goes on
    size_t nal_ = 0;                   // the first byte of the NAL unit begun; 0: none, as a start code comes first
    std::optional<size_t> perhaps_;    // where the next unit may turn out to have begun
    std::vector<size_t> short_codes_;  // of the unit begun
    size_t short_count_ = 0;           // of them, in the unit that was cut
    bool cut_ = false;                 // and nothing has been looked at since
};

}  // namespace Orvane::Muxora
