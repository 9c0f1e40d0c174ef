// What the two components share.
#pragma once

#include <exception>

#include "Muxora.h"
#include "MuxoraAPI.h"
#include "api/attribute_map.h"
#include "core/package.h"

namespace Orvane::Muxora {

// The version of both components, with the stamps of this build.
Basalt::CVersion ComponentVersion();

// Leaves a code in the last error; always false, so that an operation can end with it.
inline bool Fail(uint32_t error) {
    Basalt::setLastError(error);
    return false;
}

// The record of a frame that came with a map.
inline MXFrameInfo MakeFrame(CFrameAttributes& converter, const void* data, unsigned length,
                             const AttributeMap& attributes) {
    MXFrameInfo frame{};
    converter.Fill(attributes, frame);
    frame.frame_pointer = const_cast<void*>(data);  // packagers change frames only in the cases that the header names
    frame.frame_size = length;
    return frame;
}

// Runs an operation of a packager; a result that is not MX_OK, memory that ran out, or a call inside a call, is a
// refusal.
template <typename Operation>
bool Run(const CPackage& packager, Operation operation) {
    const PackageCall inside(packager);
    if (!inside) return Fail(MUXORA_REFUSED);
    try {
        return operation() == MX_OK || Fail(MUXORA_REFUSED);
    } catch (const std::exception&) {
        return Fail(MUXORA_REFUSED);
    }
}

// getPacketCapacity of both components.
bool TellCapacity(const CPackage* packager, CapacityType type, const void** table, int* count);

}  // namespace Orvane::Muxora
