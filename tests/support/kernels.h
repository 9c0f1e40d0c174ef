// Kernels that the processor at hand can run.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <vector>

namespace test {

// Those of a list of kernels that this processor supports; the portable ones always are. Where MUXORA_EVERY_KERNEL is
// set the processor is known to have all that they want, and one that is left out is a failure.
template <typename Kernels>
auto Supported(const Kernels& kernels) {
    using Kernel = std::decay_t<decltype(*kernels.begin())>;
    std::vector<Kernel> supported;
    std::copy_if(kernels.begin(), kernels.end(), std::back_inserter(supported),
                 [](const Kernel& kernel) { return kernel.supported(); });
    if (std::getenv("MUXORA_EVERY_KERNEL") != nullptr) {
        EXPECT_EQ(supported.size(), kernels.size()) << "a kernel is not run on this processor";
    }
    return supported;
}

}  // namespace test
