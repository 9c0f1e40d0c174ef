#include "codec/kernels/start_code_kernels.h"

namespace Orvane::Muxora::Kernels {

// Looks at the third byte of each candidate: above 1 it rules out three positions at once.
const uint8_t* FindStartCodeScalar(const uint8_t* begin, const uint8_t* end) {
    if (end - begin < 3) return end;
    const uint8_t* const last = end - 3;
    for (const uint8_t* p = begin; p <= last;) {
        if (p[2] > 1) {
            p += 3;
        } else if (p[2] == 1) {
            if (p[0] == 0 && p[1] == 0) return p;
            p += 3;
        } else {
            p += p[1] == 0 ? 1 : 2;
        }
    }
    return end;
}

}  // namespace Orvane::Muxora::Kernels
