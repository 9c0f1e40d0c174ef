// The C interface of the repair of hybrid MP4.
#include <new>

#include "MuxoraExt.h"
#include "exact/hybrid_repair.h"

uint32_t MX_RepairHybrid(const MXHybridFile* file, MXHybridRepair* repair) noexcept {
    if (file == nullptr || repair == nullptr) return MX_NULL_RECORD;
    if (file->size < sizeof *file || repair->size < sizeof *repair) return MX_FAILED;
    if (file->read == nullptr || file->write == nullptr || file->cut == nullptr) return MX_FAILED;
    try {
        *repair = Orvane::Muxora::HybridRepair(*file).Run();
    } catch (const std::bad_alloc&) {
        return MX_NO_RESOURCES;
    } catch (...) {
        return MX_FAILED;  // a function of the caller's threw
    }
    const bool done = repair->state == MX_HYBRID_REPAIRED || repair->state == MX_HYBRID_OTHER;
    return done ? MX_OK : MX_FAILED;
}
