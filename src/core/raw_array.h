#pragma once

#include <cstddef>
#include <memory>

namespace Orvane::Muxora {

// An array that is written before it is read: its elements begin without a value. (g++ 10 lacks
// std::make_unique_for_overwrite.)
template <typename Element>
std::unique_ptr<Element[]> MakeRawArray(size_t count) {
    return std::unique_ptr<Element[]>(new Element[count]);
}

}  // namespace Orvane::Muxora
