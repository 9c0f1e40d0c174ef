// How the programs end: exit codes, and the errors that lead to them.
#pragma once

#include <stdexcept>

namespace Orvane::Muxora::Tools {

enum ExitCode { kDone = 0, kFailed = 1, kWrongUsage = 2 };

// Ends the program with kFailed. The text is one line that says what to do.
class Failure : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// Ends the program with kWrongUsage.
class WrongUsage : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

}  // namespace Orvane::Muxora::Tools
