#include "basalt/unknown.h"

namespace Basalt {

IUnknown::IUnknown() = default;
IUnknown::IUnknown(const IUnknown& /*other*/) {
}
IUnknown& IUnknown::operator=(const IUnknown& /*other*/) {
    return *this;
}
IUnknown::~IUnknown() = default;

void IUnknown::destroy() {
    delete this;
}

CVersion IUnknown::getVersion() {
    return {};
}

uint32_t IUnknown::addRef() {
    return references_.fetch_add(1, std::memory_order_relaxed) + 1;
}

uint32_t IUnknown::release() {
    const uint32_t left = references_.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (left == 0) destroy();
    return left;
}

}  // namespace Basalt
