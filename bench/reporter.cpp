#include "reporter.h"

#include <algorithm>
#include <cstdio>

namespace bench {

namespace {

void AddOnce(std::vector<std::string>& names, const std::string& name) {
    if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
}

}  // namespace

bool TableReporter::ReportContext(const Context& context) {
    const benchmark::CPUInfo& cpu = context.cpu_info;
    std::printf("%d processors of %.0f MHz", cpu.num_cpus, cpu.cycles_per_second / 1e6);
    for (const auto& cache : cpu.caches)
        std::printf(", L%d %s %d KiB", cache.level, cache.type.c_str(), cache.size / 1024);
    if (!cpu.load_avg.empty()) std::printf(", load %.1f", cpu.load_avg.front());
    std::printf("\n");
    name_field_width_ = context.name_field_width;
    printed_header_ = false;
    return true;
}

void TableReporter::ReportRuns(const std::vector<Run>& runs) {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
        const auto times = run.counters.find(kTimesMemcpy);
        const auto slash = run.run_name.function_name.find('/');
        if (run.error_occurred || times == run.counters.end() || slash == std::string::npos) continue;
        const std::string workload = run.run_name.function_name.substr(0, slash);
        const std::string format = run.run_name.function_name.substr(slash + 1);
        AddOnce(workloads_, workload);
        AddOnce(formats_, format);
        cells_[{workload, format}] = {times->second, run.counters.at(kSpread), run.counters.at(kNsPerFrame)};
    }
}

void TableReporter::Finalize() {
    if (cells_.empty()) return;
    std::printf("\nTimes the memcpy of the same frames (half the quartile distance), nanoseconds a frame:\n\n%-28s",
                "");
    for (const std::string& workload : workloads_)
        std::printf("%26s", workload.c_str());
    std::printf("\n");
    for (const std::string& format : formats_) {
        std::printf("%-28s", format.c_str());
        for (const std::string& workload : workloads_) {
            const auto found = cells_.find({workload, format});
            if (found == cells_.end()) {
                std::printf("%26s", "");
                continue;
            }
            const Cell& cell = found->second;
            std::printf("%8.2f (%.2f) %8.0f ns", cell.times_memcpy, cell.spread, cell.ns_per_frame);
        }
        std::printf("\n");
    }
}

}  // namespace bench
