// One handle of the library: frames in, blocks out.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "MuxoraExt.h"
#include "hub/block.h"
#include "hub/frame.h"

namespace Orvane::Muxora::Gateway {

struct PackagerSettings {
    uint32_t format = 0;  // MXFormat or MXExactFormat
    bool chunks = false;  // MX_FRAGMENT_CHUNK: one chunk a frame; otherwise the format's default
    uint32_t tracks = MX_TRACKS_BOTH;
    uint32_t boxes = 0;
    MXHeaderInfo header{};  // the streams that are known beforehand
};

class Packager {
  public:
    // Takes each block, during Give and Finish.
    using Sink = std::function<void(BlockPtr block)>;

    Packager(const PackagerSettings& settings, Sink sink);
    Packager(const Packager&) = delete;
    Packager& operator=(const Packager&) = delete;

    // The library makes this format.
    bool Good() const { return handle_ != nullptr; }
    // False when the format does not take the frame; the next one may be given.
    bool Give(const Frame& frame);
    // Writes the tail, if the format has one.
    void Finish();

    uint64_t Refused() const { return refused_; }

  private:
    static int32_t Output(const MXOutputBlock* block, void* user);
    void Take(const MXOutputBlock& block);

    Sink sink_;
    std::unique_ptr<void, decltype(&MX_DestroyHandle)> handle_{nullptr, MX_DestroyHandle};
    const Frame* now_ = nullptr;  // while one is given
    uint64_t refused_ = 0;
};

}  // namespace Orvane::Muxora::Gateway
