// muxora unpack: the elementary streams of an OVX file, bit for bit.
#pragma once

#include <cstdint>
#include <string>

#include "muxora/options.h"

namespace Orvane::Muxora::Tools {

struct UnpackArguments {
    std::string path;
    std::string prefix;
    KeyArguments key;        // hex
    uint32_t encrypted = 0;  // length of the encrypted stretch where it passes 65535 bytes; 0: as recorded
    bool quiet = false;
};

// Throws Failure, also when the file is damaged; that is after all that is good has been written.
void Unpack(const UnpackArguments& arguments);

}  // namespace Orvane::Muxora::Tools
