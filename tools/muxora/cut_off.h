// Recordings whose process was killed.
#pragma once

#include <string>

namespace Orvane::Muxora::Tools {

// Is this a hybrid MP4 that was not finished, and that muxora repair completes? Only looks; false for what is no file.
bool IsCutOffHybrid(const std::string& path);

}  // namespace Orvane::Muxora::Tools
