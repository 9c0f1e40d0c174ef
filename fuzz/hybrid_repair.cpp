// A hybrid MP4 of any bytes: MX_RepairHybrid completes it or leaves it as it was, reads nothing outside the file,
// writes no gap, and finds nothing more to do in what it completed.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "MuxoraExt.h"

namespace {

using File = std::vector<uint8_t>;

File& Of(void* user) {
    return *static_cast<File*>(user);
}

uint32_t Read(void* user, uint64_t position, void* data, uint32_t length) {
    const File& file = Of(user);
    if (position > file.size() || length > file.size() - position) std::abort();
    std::copy_n(file.data() + position, length, static_cast<uint8_t*>(data));
    return 0;
}

uint32_t Write(void* user, uint64_t position, const void* data, uint32_t length) {
    File& file = Of(user);
    if (position > file.size()) std::abort();
    file.resize(std::max<size_t>(file.size(), position + length));
    std::copy_n(static_cast<const uint8_t*>(data), length, file.data() + position);
    return 0;
}

uint32_t Cut(void* user, uint64_t length) {
    if (length > Of(user).size()) std::abort();
    Of(user).resize(length);
    return 0;
}

MXHybridRepair Repair(File& file) {
    const MXHybridFile access{sizeof(MXHybridFile), 0, &file, file.size(), Read, Write, Cut};
    MXHybridRepair repair{};
    repair.size = sizeof repair;
    const uint32_t result = MX_RepairHybrid(&access, &repair);
    const bool done = repair.state == MX_HYBRID_REPAIRED || repair.state == MX_HYBRID_OTHER;
    if (done != (result == MX_OK) || repair.state == MX_HYBRID_FAILED) std::abort();
    return repair;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const File before(data, data + size);
    File file = before;
    const MXHybridRepair repair = Repair(file);
    if (repair.state != MX_HYBRID_REPAIRED) {
        if (file != before) std::abort();
        return 0;
    }
    if (repair.length != file.size() || repair.media_end > size || repair.fragments == 0) std::abort();
    if (Repair(file).state != MX_HYBRID_OTHER) std::abort();
    return 0;
}
