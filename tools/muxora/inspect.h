// muxora inspect: what is in an OVX file, unit by unit, and what is wrong with it.
#pragma once

#include <string>

namespace Orvane::Muxora::Tools {

struct InspectArguments {
    std::string path;
    bool summary = false;  // no line for an intact unit
    bool json = false;
};

// Throws Failure, also when the file is damaged; that is after everything has been told.
void Inspect(const InspectArguments& arguments);

}  // namespace Orvane::Muxora::Tools
