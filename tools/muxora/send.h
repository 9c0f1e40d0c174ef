// muxora send: media to a receiver on the network, at its own pace.
#pragma once

#include <string>

#include "common/output.h"
#include "muxora/options.h"

namespace Orvane::Muxora::Tools {

struct SendArguments {
    InputArguments input;
    RtpArguments rtp;
    std::string to;
    std::string sdp;
    double speed = 1;
    double wait = 0;
    bool quiet = false;
    bool json = false;
};

// As MPEG-2 transport stream over UDP or SRT. Throws Failure, WrongUsage, InputError.
void SendTs(const SendArguments& arguments, const OwnStdout& out);

}  // namespace Orvane::Muxora::Tools
