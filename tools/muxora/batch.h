// muxora pack --jobs: many files, each by a process of its own.
#pragma once

#include "muxora/pack_run.h"

namespace Orvane::Muxora::Tools {

// Throws Failure when one of the files failed; the others are done then.
void PackBatch(const PackArguments& arguments);

}  // namespace Orvane::Muxora::Tools
