// The other side of the comparison: libavformat as a caller with frames in memory would use it, its output dropped.
#pragma once

#include <memory>
#include <vector>

#include "MuxoraAPI.h"
#include "format_rows.h"
#include "workload.h"

namespace bench {

class AvformatMuxer {
  public:
    AvformatMuxer(const GeneralPurpose& format, Codecs codecs);
    ~AvformatMuxer();
    AvformatMuxer(const AvformatMuxer&) = delete;
    AvformatMuxer& operator=(const AvformatMuxer&) = delete;

    bool Ok() const;
    void Write(const MXFrameInfo& frame);

  private:
    struct State;
    std::vector<std::unique_ptr<State>> contexts_;
};

}  // namespace bench
