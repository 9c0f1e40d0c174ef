// muxora pack -o DIR/index.m3u8 or DIR/manifest.mpd: HLS (RFC 8216) and DASH (ISO/IEC 23009-1) on demand.
#pragma once

#include "common/output.h"
#include "muxora/pack_run.h"

namespace Orvane::Muxora::Tools {

// Is the output a playlist or a manifest?
bool IsPresentation(const PackArguments& arguments);

// Each input with pictures becomes a rendition; the sound of the first of them is one, and each input of sound alone.
// Throws Failure, WrongUsage, InputError.
void PackPresentation(const PackArguments& arguments, const OwnStdout& out);

}  // namespace Orvane::Muxora::Tools
