// Kernels that the processor at hand can run.
#pragma once

#include <algorithm>
#include <iterator>
#include <vector>

namespace test {

// Those of a list of kernels that this processor supports; the portable ones always are.
template <typename Kernels>
auto Supported(const Kernels& kernels) {
    using Kernel = std::decay_t<decltype(*kernels.begin())>;
    std::vector<Kernel> supported;
    std::copy_if(kernels.begin(), kernels.end(), std::back_inserter(supported),
                 [](const Kernel& kernel) { return kernel.supported(); });
    return supported;
}

}  // namespace test
