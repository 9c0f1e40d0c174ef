// Runs each format once, warm, on the small and on the typical frames, for callgrind to count the instructions: see
// instructions.py. The kernels are those of one instruction set, so that the counts do not depend on the machine.
#include <valgrind/callgrind.h>

#include <cstdio>
#include <string>

#include "codec/fragments.h"
#include "codec/full_packets.h"
#include "codec/kernels/crc32_kernels.h"
#include "codec/kernels/start_code_kernels.h"
#include "codec/piece_copy.h"
#include "format_rows.h"
#include "workload.h"

namespace {

using namespace Orvane::Muxora;

bool UseAvx2() {
    return Kernels::start_code_choice.Use("avx2") && Kernels::crc32_choice.Use("pclmulqdq") && cut_choice.Use("avx2") &&
           fragment_choice.Use("avx2") && piece_choice.Use("avx2");
}

// Counts one call under a name, which instructions.py finds in the dump, with the number of frames.
template <typename Call>
void Count(const std::string& name, const bench::Workload& workload, Call call) {
    CALLGRIND_ZERO_STATS;
    CALLGRIND_TOGGLE_COLLECT;
    call();
    CALLGRIND_TOGGLE_COLLECT;
    const std::string label = name + "=" + std::to_string(workload.frames().size());
    CALLGRIND_DUMP_STATS_AT(label.c_str());
}

// A second for the typical frames, two for the small ones: each has a key frame a second.
constexpr bench::WorkloadShape kShapes[] = {{"1080p25_8Mbit", 200'000, 33'000, 1}, {"small_frames", 20'000, 4'000, 2}};

}  // namespace

int main() {
    if (!UseAvx2()) {
        std::fputs("instructions: this processor lacks AVX2 or PCLMULQDQ\n", stderr);
        return 2;
    }
    CALLGRIND_START_INSTRUMENTATION;
    for (const bench::WorkloadShape& shape : kShapes) {
        const std::string prefix = std::string(shape.name) + "/";
        for (const bench::FormatRow& row : bench::FormatRows()) {
            const bench::Workload workload(shape, row.codecs);
            const bench::Handle handle = bench::Open(row);
            if (handle == nullptr) continue;
            bench::Pack(handle.get(), workload, 0);
            Count(prefix + row.name, workload, [&] { bench::Pack(handle.get(), workload, 1); });
        }
    }
    return 0;
}
