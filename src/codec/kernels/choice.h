// The choice of one kernel out of a family.
#pragma once

#include <algorithm>
#include <atomic>
#include <span>
#include <string_view>

namespace Orvane::Muxora::Kernels {

// A family is a list of kernels that give the same results, each with a `name` and a test whether the processor is
// `supported`, the fastest first; every processor has the last one. The first call chooses, and threads that race for
// it all choose the same.
template <typename Kernel, std::span<const Kernel> (*kFamily)()>
class KernelChoice {
  public:
    const Kernel& Get() {
        const Kernel* const kernel = kernel_.load(std::memory_order_relaxed);
        return kernel != nullptr ? *kernel : Keep(Best());
    }

    // Takes the kernel of that name from here on, in the whole process: for tests and measurements. False, with nothing
    // changed, if the family or the processor lacks it.
    bool Use(std::string_view name) {
        const auto family = kFamily();
        const auto found = std::find_if(family.begin(), family.end(), [=](const Kernel& kernel) {
            return kernel.name == name && kernel.supported();
        });
        if (found == family.end()) return false;
        Keep(*found);
        return true;
    }

    // The fastest that the processor has.
    static const Kernel& Best() {
        const auto family = kFamily();
        return *std::find_if(family.begin(), family.end() - 1, [](const Kernel& kernel) { return kernel.supported(); });
    }

  private:
    const Kernel& Keep(const Kernel& kernel) {
        kernel_.store(&kernel, std::memory_order_relaxed);
        return kernel;
    }

    std::atomic<const Kernel*> kernel_{nullptr};
};

}  // namespace Orvane::Muxora::Kernels
