// Ten million frames in one handle, two days of a camera with sound: what a frame costs, and what the handle has
// allocated, behind the first frames, behind a million and at the end. The frames are small, so that the packager's own
// work shows, and so are the tables that grow with the hours.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <limits>
#include <string>

#include "format_rows.h"
#include "workload.h"

namespace bench {
namespace {

constexpr uint64_t kMillion = 1000000;
constexpr WorkloadShape kTiny{"tiny_frames", 200, 64, 40};

struct Mark {
    double ns_per_frame = 0;
    double mib = 0;
};

size_t Allocated() {
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

class Recording {
  public:
    explicit Recording(const FormatRow& row) : workload_(kTiny, row.codecs), before_(Allocated()), handle_(Open(row)) {}

    bool Good() const { return handle_ != nullptr; }
    void PackUpTo(uint64_t frames) {
        while (packed_ < frames)
            PackOnce();
    }
    // Of the next passes the quickest, as other programs may disturb any of them.
    Mark Measure() {
        constexpr int kPasses = 40;  // some 100,000 frames
        double best = std::numeric_limits<double>::max();
        for (int i = 0; i < kPasses; ++i)
            best = std::min(best, Seconds([this] { PackOnce(); }));
        return {best * 1e9 / static_cast<double>(workload_.frames().size()),
                static_cast<double>(Allocated() - before_) / (1 << 20)};
    }
    double Finish() {
        return Seconds([this] { MX_CreateTailer(handle_.get(), nullptr); });
    }

  private:
    void PackOnce() {
        Pack(handle_.get(), workload_, pass_++);
        packed_ += workload_.frames().size();
    }

    Workload workload_;
    size_t before_;
    Handle handle_;
    uint32_t pass_ = 0;
    uint64_t packed_ = 0;
};

void BenchLongRecording(benchmark::State& state, const FormatRow& row) {
    for ([[maybe_unused]] auto step : state) {
        Recording recording(row);
        if (!recording.Good()) return state.SkipWithError("not in this build");
        recording.PackUpTo(kMillion / 10);
        const Mark begin = recording.Measure();
        recording.PackUpTo(kMillion);
        const Mark million = recording.Measure();
        recording.PackUpTo(10 * kMillion);
        const Mark end = recording.Measure();
        const double tail = recording.Finish();
        state.counters["ns/frame"] = begin.ns_per_frame;
        state.counters["ns_at_1M"] = million.ns_per_frame;
        state.counters["ns_at_10M"] = end.ns_per_frame;
        state.counters["x_first"] = end.ns_per_frame / begin.ns_per_frame;
        state.counters["MiB_at_1M"] = million.mib;
        state.counters["MiB_at_10M"] = end.mib;
        state.counters["tail_ms"] = tail * 1e3;
    }
}

const bool kRegistered = [] {
    for (const FormatRow& row : FormatRows()) {
        benchmark::RegisterBenchmark((std::string("10M_frames/") + row.name).c_str(),
                                     [&row](benchmark::State& state) { BenchLongRecording(state, row); })
            ->Unit(benchmark::kSecond)
            ->Iterations(1);
    }
    return true;
}();

}  // namespace
}  // namespace bench
