// One handle of the library: frames in, blocks out.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "MuxoraExt.h"
#include "hub/block.h"
#include "hub/frame.h"
#include "packaging/chunk_store.h"

namespace Orvane::Muxora::Gateway {

struct PackagerSettings {
    uint32_t format = 0;       // MXFormat or MXExactFormat
    bool chunks = false;       // MX_FRAGMENT_CHUNK: one chunk a frame
    uint32_t fragment_ms = 0;  // otherwise: a fragment's longest; 0: up to the next key frame
    uint32_t tracks = MX_TRACKS_BOTH;
    uint32_t boxes = 0;
    MXHeaderInfo header{};  // the streams that are known beforehand
    bool stored = false;    // blocks stand in a ChunkStore
};

// Turns frames into blocks.
class FramePacker {
  public:
    // Takes each block, during Give.
    using Sink = std::function<void(BlockPtr block)>;

    virtual ~FramePacker() = default;
    // The library makes this format.
    virtual bool Good() const = 0;
    // False when the format does not take the frame; the next one may be given.
    virtual bool Give(const Frame& frame) = 0;
};

class Packager final : public FramePacker {
  public:
    Packager(const PackagerSettings& settings, Sink sink);
    Packager(const Packager&) = delete;
    Packager& operator=(const Packager&) = delete;

    bool Good() const override { return handle_ != nullptr; }
    bool Give(const Frame& frame) override;
    // Writes the tail, if the format has one.
    void Finish();

    uint64_t Refused() const { return refused_; }

  private:
    static int32_t Output(const MXOutputBlock* block, void* user);
    void Take(const MXOutputBlock& block);

    Sink sink_;
    std::optional<ChunkStore> store_;
    std::unique_ptr<void, decltype(&MX_DestroyHandle)> handle_{nullptr, MX_DestroyHandle};
    const Frame* now_ = nullptr;  // while one is given
    uint64_t refused_ = 0;
};

}  // namespace Orvane::Muxora::Gateway
