// What the benchmarks print: the usual lines as they come, and one table at the end.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

namespace bench {

// Counters of the rows that go into the table.
inline constexpr char kTimesMemcpy[] = "x_memcpy";
inline constexpr char kSpread[] = "spread";  // of x_memcpy, half the distance between the quartiles
inline constexpr char kNsPerFrame[] = "ns/frame";
// Ends the name of a row of the general-purpose muxer.
inline constexpr char kGeneralPurpose[] = "_general_purpose";

// The usual reporter says first how the library of the benchmarks itself was built, and warns of a build with
// assertions, which is what Debian has. Here that has no part in the figures: the times are taken by a clock of our own
// around passes of a millisecond and more. So this one tells about the machine alone.
class TableReporter : public benchmark::ConsoleReporter {
  public:
    TableReporter() : ConsoleReporter(OO_Tabular) {}

    bool ReportContext(const Context& context) override;
    void ReportRuns(const std::vector<Run>& runs) override;
    void Finalize() override;

  private:
    struct Cell {
        double times_memcpy;
        double spread;
        double ns_per_frame;
    };

    std::vector<std::string> workloads_;  // in the order in which they ran
    std::vector<std::string> formats_;
    std::map<std::pair<std::string, std::string>, Cell> cells_;  // by workload and format
};

}  // namespace bench
