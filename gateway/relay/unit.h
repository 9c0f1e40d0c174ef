// Frames as OVX units, and back: by the library's own format, and by the reader that was made without it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "MuxoraExt.h"
#include "hub/frame.h"
#include "media_input/ovx_frame.h"
#include "relay/message.h"

namespace Orvane::Muxora::Gateway {

// One stream's.
class UnitWriter {
  public:
    UnitWriter();
    UnitWriter(const UnitWriter&) = delete;
    UnitWriter& operator=(const UnitWriter&) = delete;

    // The unit of a frame, good until the next call; empty when the format does not take the frame: a picture ahead of
    // the first key frame.
    std::span<const uint8_t> Write(const Frame& frame);

  private:
    static int32_t Output(const MXOutputBlock* block, void* user);

    std::vector<uint8_t> unit_;
    std::unique_ptr<void, decltype(&MX_DestroyHandle)> handle_{nullptr, MX_DestroyHandle};
};

// One stream's of one origin: pictures go on with the form of the key frame before them.
class UnitReader {
  public:
    // Nothing when the bytes are no intact unit, or one that no format takes.
    std::optional<Frame> Read(std::span<const uint8_t> unit, const RelayNote& note);

  private:
    Tools::OvxPicture picture_;
};

}  // namespace Orvane::Muxora::Gateway
