#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <utility>

#include "MuxoraAPI.h"
#include "basalt/packet.h"

namespace Orvane::Muxora {

// The abstract base of every packager, and the only way in which the front ends drive one. It owns what all formats
// share: the format number, the caller's user value, the allocator pair for large buffers and the output callback.
//
// Order of a stream's life: constructor, setCallback, init, createHeader, inputFrame for each frame, createTailer,
// uninit, destructor. Nothing restarts. Results are MXResult unless stated.
class CPackage {
  public:
    // Each member of `param` that is not null replaces a default.
    explicit CPackage(uint32_t format, const MXCreateParam* param = nullptr);
    virtual ~CPackage();
    CPackage(const CPackage&) = delete;
    CPackage& operator=(const CPackage&) = delete;

    virtual uint32_t setCallback(MXOutputFunction output, void* user);
    // Makes the inner objects that the format needs; once, before createHeader.
    virtual uint32_t init() = 0;
    virtual uint32_t uninit() = 0;
    // Writes the container's head, or keeps the options of `info`, which may be null.
    virtual uint32_t createHeader(MXHeaderInfo* info, uint32_t unused) = 0;
    // Packs a frame into the caller's packet. The default writes nothing and returns MX_OK.
    virtual uint32_t inputFrameEx(MXFrameInfo* frame, Basalt::CPacket& packet);
    // Packs a frame through the output callback.
    virtual uint32_t inputFrame(MXFrameInfo* frame, uint32_t reserved) = 0;
    virtual uint32_t createTailer(const void* info, uint32_t unused) = 0;
    // Extra data, RTP's header extension. The default keeps nothing.
    virtual uint32_t setExtData(const void* data, uint32_t length);
    virtual uint32_t getExtData(const void** data, uint32_t* length);
    // A snapshot of the index; returns a byte count. The default clears data, length, seek_type and offset32.
    virtual uint32_t getBackup(MXOutputBlock* block);
    virtual uint32_t setEncryptType(uint32_t type, const void* key, uint32_t key_length);
    // Does the format take this frame's type and codec?
    virtual bool checkFrame(const MXFrameInfo* frame) const = 0;
    // The advertised codecs, in encode_type numbers and in public numbers.
    virtual uint32_t getEncodeCapacity(uint32_t type, const void** table, uint32_t* count) const = 0;
    virtual uint32_t getCodecCapacity(uint32_t type, const void** table, uint32_t* count) const = 0;

    uint32_t format() const { return format_; }

    // Has the output callback thrown since this was asked last?
    bool TakeOutputThrew() { return std::exchange(output_threw_, false); }

    // The one shape of the capacity operations.
    static uint32_t Capacity(uint32_t type, std::span<const MXCapacityEntry> video,
                             std::span<const MXCapacityEntry> audio, const void** table, uint32_t* count);

  protected:
    // Hands out bytes for an absolute position. Returns the number of bytes that the callback took; what a callback
    // threw ends here, and the bytes count as they stood in the block.
    uint32_t EmitAt(const void* data, uint32_t length, uint64_t position);
    // Hands out bytes that follow the bytes before. Returns the number of bytes that the callback took.
    uint32_t EmitNext(const void* data, uint32_t length);
    // Fills a block whose size is set, hands it out, and gives back the length that it has then.
    uint32_t Output(MXOutputBlock& block, const void* data, uint32_t length, uint32_t seek_type, uint64_t position);

    // Large buffers come from `alloc` and go back through `free`.
    struct LargeBufferRelease {
        MXFreeFunction free;
        uint32_t size;
        void operator()(uint8_t* buffer) const noexcept;
    };
    using LargeBuffer = std::unique_ptr<uint8_t[], LargeBufferRelease>;
    // Null when `alloc` has no memory. The bytes are as `alloc` left them.
    LargeBuffer AllocateLarge(uint32_t size) const;

  private:
    friend class PackageCall;

    uint32_t format_;
    void* user_ = nullptr;
    MXAllocFunction alloc_;
    MXFreeFunction free_;
    MXOutputFunction output_;
    bool output_threw_ = false;
    mutable bool inside_ = false;  // a call, see PackageCall
};

// A call of a packager by its front end. The callbacks that it makes may come back to the packager: a call inside a
// call is not to be carried out. The flag is plain, as a packager is one thread's; what may be called on another thread
// (getBackup) has its own way.
class PackageCall {
  public:
    explicit PackageCall(const CPackage& package) : package_(package.inside_ ? nullptr : &package) {
        if (package_ != nullptr) package_->inside_ = true;
    }
    ~PackageCall() {
        if (package_ != nullptr) package_->inside_ = false;
    }
    PackageCall(const PackageCall&) = delete;
    PackageCall& operator=(const PackageCall&) = delete;
    // False inside another call.
    explicit operator bool() const { return package_ != nullptr; }

  private:
    const CPackage* package_;
};

// Is there a frame with bytes in it? What every packager asks first.
inline bool HasData(const MXFrameInfo* frame) {
    return frame != nullptr && frame->frame_pointer != nullptr && frame->frame_size != 0;
}

inline const uint8_t* FrameBytes(const MXFrameInfo& frame) {
    return static_cast<const uint8_t*>(frame.frame_pointer);
}

}  // namespace Orvane::Muxora
