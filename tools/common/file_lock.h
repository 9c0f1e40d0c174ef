// Advisory locks on files that grow, so that nobody cuts, completes or replaces a recording under its writer's hands.
#pragma once

#include <optional>
#include <string>

namespace Orvane::Muxora::Tools {

// Locks the open file for this process until it is closed (flock: it reaches across NFS where the mount has locks).
// False: somebody else holds it. A file system that knows no locks counts as free.
bool TryLock(int descriptor);

// "process 1234 (muxora)", or "another process".
std::string HolderOf(int descriptor);

// Who holds the file of this name; nothing if nobody does or if there is no such file.
std::optional<std::string> HolderOf(const std::string& path);

}  // namespace Orvane::Muxora::Tools
