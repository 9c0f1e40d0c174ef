#pragma once

#include <functional>
#include <memory>
#include <string>

#include "basalt/abi.h"

namespace Basalt {

/** A string of bytes. */
using flex_string = std::string;

/** Shared ownership: the object goes with its last pointer. */
template <typename T>
using TSharedPtr = std::shared_ptr<T>;

/** A callable of two arguments; may be empty. */
template <typename Result, typename First, typename Second>
using TFunction2 = std::function<Result(First, Second)>;

}  // namespace Basalt
