#include "measure.h"

#include <memory>
#include <utility>

namespace bench {

const Workload& StreamOf(const WorkloadShape& shape, Codecs codecs) {
    static const WorkloadShape* kept_shape = nullptr;
    static std::vector<std::pair<Codecs, std::unique_ptr<Workload>>> kept;
    if (kept_shape != &shape) kept.clear();
    kept_shape = &shape;
    for (const auto& [its_codecs, workload] : kept) {
        if (its_codecs.video == codecs.video && its_codecs.audio == codecs.audio) return *workload;
    }
    return *kept.emplace_back(codecs, std::make_unique<Workload>(shape, codecs)).second;
}

}  // namespace bench
