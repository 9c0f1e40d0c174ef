// The JSON interface: what streams there are, and adding and removing them.
#pragma once

#include <functional>
#include <string>

#include "hub/hub.h"
#include "packaging/shelf.h"
#include "protocols/access.h"
#include "protocols/request.h"

namespace Orvane::Muxora::Gateway {

// Adds and removes streams with their sources, on any thread.
class StreamKeeper {
  public:
    virtual ~StreamKeeper() = default;
    // Empty, or why not.
    virtual std::string AddStream(const std::string& name, const std::string& input, bool trusted) = 0;
    // False when there is none.
    virtual bool RemoveStream(const std::string& name) = 0;
};

class Api {
  public:
    Api(Hub& hub, Shelf& shelf, const Access& access, StreamKeeper& keeper)
        : hub_(hub), shelf_(shelf), access_(access), keeper_(keeper) {}

    //     GET    /api/streams          the list
    //     GET    /api/streams/NAME     one
    //     POST   /api/streams          {"name": ..., "input": ...}
    //     DELETE /api/streams/NAME
    Reply Answer(const Request& request);

  private:
    Reply List() const;
    Reply Add(const Request& request);

    Hub& hub_;
    Shelf& shelf_;
    const Access& access_;
    StreamKeeper& keeper_;
};

}  // namespace Orvane::Muxora::Gateway
