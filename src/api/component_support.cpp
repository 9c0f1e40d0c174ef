#include "api/component_support.h"

#include "build_stamp.h"

namespace Orvane::Muxora {

Basalt::CVersion ComponentVersion() {
    return {"Application", 1, 0, 0, MUXORA_REVISION, MUXORA_BUILD_DATE};
}

bool TellCapacity(const CPackage* packager, CapacityType type, const void** table, int* count) {
    if (packager == nullptr || table == nullptr || count == nullptr) return false;
    const PackageCall inside(*packager);
    if (!inside) return Fail(MUXORA_REFUSED);
    uint32_t entries = 0;
    if (packager->getCodecCapacity(static_cast<uint32_t>(type), table, &entries) != MX_OK) return Fail(MUXORA_REFUSED);
    *count = static_cast<int>(entries);
    return true;
}

}  // namespace Orvane::Muxora
