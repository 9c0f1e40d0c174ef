// The other side of the comparison: libavformat as a caller with frames in memory would use it, its output dropped.
#pragma once

#include <memory>
#include <string>

#include "MuxoraAPI.h"
#include "workload.h"

namespace bench {

class AvformatMuxer {
  public:
    AvformatMuxer(const char* format, Codecs codecs);
    ~AvformatMuxer();
    AvformatMuxer(const AvformatMuxer&) = delete;
    AvformatMuxer& operator=(const AvformatMuxer&) = delete;

    bool Ok() const;
    const std::string& Error() const;
    void Write(const MXFrameInfo& frame);

  private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace bench
