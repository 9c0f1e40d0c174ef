// A hybrid MP4 of any bytes: MX_RepairHybrid completes it or leaves it as it was, reads nothing outside the file,
// writes no gap, and finds nothing more to do in what it completed. Then again with a file that fails, which is told;
// and leaves a file that can be completed; where memory runs out; and with wrong records.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "MuxoraExt.h"
#include "core/clock.h"
#include "support/allocation_counter.h"

namespace {

using File = std::vector<uint8_t>;

// How many calls are left up to the first one that fails, itself counted.
uint32_t g_calls_left = UINT32_MAX;

bool Fails() {
    return g_calls_left == 0 || --g_calls_left == 0;
}

File& Of(void* user) {
    return *static_cast<File*>(user);
}

uint32_t Read(void* user, uint64_t position, void* data, uint32_t length) {
    const File& file = Of(user);
    if (position > file.size() || length > file.size() - position) std::abort();
    if (Fails()) return 1;
    std::copy_n(file.data() + position, length, static_cast<uint8_t*>(data));
    return 0;
}

uint32_t Write(void* user, uint64_t position, const void* data, uint32_t length) {
    File& file = Of(user);
    if (position > file.size()) std::abort();
    if (Fails()) return 1;
    file.resize(std::max<size_t>(file.size(), position + length));
    std::copy_n(static_cast<const uint8_t*>(data), length, file.data() + position);
    return 0;
}

uint32_t Cut(void* user, uint64_t length) {
    if (length > Of(user).size()) std::abort();
    if (Fails()) return 1;
    Of(user).resize(length);
    return 0;
}

MXHybridRepair Repair(File& file, uint32_t good_calls = UINT32_MAX - 1) {
    g_calls_left = good_calls + 1;
    const MXHybridFile access{sizeof(MXHybridFile), 0, &file, file.size(), Read, Write, Cut};
    MXHybridRepair repair{};
    repair.size = sizeof repair;
    const uint32_t result = MX_RepairHybrid(&access, &repair);
    const bool done = repair.state == MX_HYBRID_REPAIRED || repair.state == MX_HYBRID_OTHER;
    const bool met = g_calls_left == 0;
    if (done != (result == MX_OK) || met != (repair.state == MX_HYBRID_FAILED)) std::abort();
    return repair;
}

// Whatever was interrupted, the next try comes to the same file.
void RequireRepairs(File file, const File& repaired) {
    Repair(file);
    if (file != repaired) std::abort();
}

// The call behind so many good ones fails, and all that follow.
void RepairWithFaults(File file, uint32_t good_calls, const File& repaired) {
    Repair(file, good_calls);
    RequireRepairs(file, repaired);
}

// `Write` may fail to grow the file, too: then it throws, as a caller's might.
void RepairWithoutMemory(File file, uint32_t good_allocations, const File& repaired) {
    {
        const test::FailingAllocations failing(good_allocations, UINT64_MAX);
        const MXHybridFile access{sizeof(MXHybridFile), 0, &file, file.size(), Read, Write, Cut};
        MXHybridRepair repair{};
        repair.size = sizeof repair;
        MX_RepairHybrid(&access, &repair);
    }
    RequireRepairs(file, repaired);
}

void RepairWithWrongRecords() {
    File file;
    MXHybridFile access{sizeof(MXHybridFile), 0, &file, 0, Read, Write, Cut};
    MXHybridRepair repair{};
    repair.size = sizeof repair;
    const auto refuses = [&] {
        if (MX_RepairHybrid(&access, &repair) == MX_OK) std::abort();
    };
    if (MX_RepairHybrid(nullptr, &repair) != MX_NULL_RECORD || MX_RepairHybrid(&access, nullptr) != MX_NULL_RECORD) {
        std::abort();
    }
    repair.size = 0;
    refuses();
    repair.size = sizeof repair;
    access.size = 8;
    refuses();
    access = {sizeof(MXHybridFile), 0, &file, 0, nullptr, Write, Cut};
    refuses();
    access = {sizeof(MXHybridFile), 0, &file, 0, Read, nullptr, Cut};
    refuses();
    access = {sizeof(MXHybridFile), 0, &file, 0, Read, Write, nullptr};
    refuses();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        RepairWithWrongRecords();
        return 0;
    }
    // The index that is written holds the time of day.
    const Orvane::Muxora::ScopedClock clock(1700000000);
    const File before(data, data + size);
    File file = before;
    const MXHybridRepair repair = Repair(file);
    const uint8_t last = data[size - 1];
    if (last < 128) RepairWithFaults(before, last % 32, file);
    if (last >= 240) RepairWithoutMemory(before, last % 8, file);
    if (repair.state != MX_HYBRID_REPAIRED) {
        if (file != before) std::abort();
        return 0;
    }
    if (repair.length != file.size() || repair.media_end > size || repair.fragments == 0) std::abort();
    if (Repair(file).state != MX_HYBRID_OTHER) std::abort();
    return 0;
}
