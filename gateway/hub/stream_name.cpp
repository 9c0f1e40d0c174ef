#include "hub/stream_name.h"

#include <algorithm>

#include "bounds.h"

namespace Orvane::Muxora::Gateway {

bool IsStreamName(const std::string& name) {
    const auto good = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
    };
    return !name.empty() && name.size() <= kMaxStreamName && std::all_of(name.begin(), name.end(), good);
}

}  // namespace Orvane::Muxora::Gateway
