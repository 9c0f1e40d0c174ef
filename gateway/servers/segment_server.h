// Answers what HLS and DASH players ask of a stream: playlists, manifest, segments and parts.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "packaging/segments.h"
#include "protocols/request.h"

namespace Orvane::Muxora::Gateway {

class SegmentServer {
  public:
    explicit SegmentServer(const SegmentSettings& settings) : settings_(settings) {}

    // The stream is cut from now on. Any thread.
    void Add(const StreamPtr& stream);
    void Drop(const Stream& stream);

    // `file` is what stands behind "/NAME/". Any thread.
    void Answer(const StreamPtr& stream, const std::string& file, const Request& request, Responder respond);

  private:
    std::shared_ptr<Segments> Find(const Stream& stream) const;

    SegmentSettings settings_;
    mutable std::mutex mutex_;
    std::map<const Stream*, std::shared_ptr<Segments>> segments_;
};

}  // namespace Orvane::Muxora::Gateway
