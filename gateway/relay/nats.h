// The client library of NATS, as objects: what it hands out is given back, and a connection is shared by all who use
// the same servers.
#pragma once

#include <nats/nats.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "relay/message.h"

namespace Orvane::Muxora::Gateway {

struct NatsFree {
    void operator()(natsConnection* one) const { natsConnection_Destroy(one); }
    void operator()(natsOptions* one) const { natsOptions_Destroy(one); }
    void operator()(natsSubscription* one) const { natsSubscription_Destroy(one); }
    void operator()(natsMsg* one) const { natsMsg_Destroy(one); }
    void operator()(jsCtx* one) const { jsCtx_Destroy(one); }
    void operator()(jsStreamInfo* one) const { jsStreamInfo_Destroy(one); }
    void operator()(jsStreamNamesList* one) const { jsStreamNamesList_Destroy(one); }
    void operator()(jsMsgMetaData* one) const { jsMsgMetaData_Destroy(one); }
};
template <typename One>
using NatsPtr = std::unique_ptr<One, NatsFree>;

// A connection to a cluster: made in the background, and made again for ever when it breaks. All of it on any thread.
class NatsLink {
  public:
    // The one that there is, or a new one. `credentials`: a file with the user's; may be empty. Throws
    // std::runtime_error when the words are no addresses, or the file is none; not when nobody answers.
    static std::shared_ptr<NatsLink> To(const std::vector<std::string>& servers, const std::string& credentials);

    NatsLink(const std::vector<std::string>& servers, const std::string& credentials);
    NatsLink(const NatsLink&) = delete;
    NatsLink& operator=(const NatsLink&) = delete;

    natsConnection* Connection() const { return connection_.get(); }
    jsCtx* JetStream() const { return jet_stream_.get(); }
    bool Connected() const;
    // How often it was made again.
    uint64_t Reconnects() const;
    // What fits into one message beside its headers.
    size_t LargestPayload() const;

  private:
    NatsPtr<natsConnection> connection_;
    NatsPtr<jsCtx> jet_stream_;
};

// "timeout (10)", for a message to the operator.
std::string NatsText(natsStatus status, jsErrCode code = jsErrCode{});
// The message's note; false when it is none of ours.
bool NoteOf(natsMsg* message, RelayNote& note);

}  // namespace Orvane::Muxora::Gateway
