#include "relay/nats.h"

#include <algorithm>
#include <chrono>
#include <climits>
#include <map>
#include <mutex>
#include <stdexcept>

namespace Orvane::Muxora::Gateway {

namespace {

constexpr int64_t kConnectTakesMs = 2000;
constexpr int64_t kReconnectAfterMs = 200;
// A server that is silent is left after two of these.
constexpr int64_t kPingEveryMs = 2000;
constexpr int kUnansweredPings = 2;
// For an answer of JetStream's interface.
constexpr int64_t kAnswerTakesMs = 2000;
// Our messages' headers, with room.
constexpr size_t kHeaderRoom = 2048;
// What waits for an edge: never so much that the library throws some away before we have read on.
constexpr int kPendingMessages = 1 << 20;
static_assert(kPendingMessages > 0);

void Check(natsStatus status, const char* what) {
    if (status != NATS_OK) throw std::runtime_error(std::string(what) + ": " + NatsText(status));
}

}  // namespace

std::string NatsText(natsStatus status, jsErrCode code) {
    std::string text = natsStatus_GetText(status);
    if (code != jsErrCode{}) text += " (JetStream " + std::to_string(static_cast<int>(code)) + ")";
    return text;
}

std::shared_ptr<NatsLink> NatsLink::To(const std::vector<std::string>& servers, const std::string& credentials) {
    static std::mutex mutex;
    static std::map<std::string, std::weak_ptr<NatsLink>> links;
    std::string key = credentials;
    for (const std::string& server : servers)
        key += "\n" + server;
    const std::lock_guard lock(mutex);
    std::erase_if(links, [](const auto& link) { return link.second.expired(); });
    std::shared_ptr<NatsLink> link = links[key].lock();
    if (link == nullptr) links[key] = link = std::make_shared<NatsLink>(servers, credentials);
    return link;
}

NatsLink::NatsLink(const std::vector<std::string>& servers, const std::string& credentials) {
    natsOptions* made = nullptr;
    Check(natsOptions_Create(&made), "NATS");
    const NatsPtr<natsOptions> options(made);
    std::vector<const char*> addresses;
    addresses.reserve(servers.size());
    for (const std::string& server : servers)
        addresses.push_back(server.c_str());
    Check(natsOptions_SetServers(made, addresses.data(), static_cast<int>(addresses.size())), "the relay's address");
    if (std::any_of(servers.begin(), servers.end(), [](const auto& one) { return one.compare(0, 4, "tls:") == 0; })) {
        Check(natsOptions_SetSecure(made, true), "TLS for the relay");
    }
    if (!credentials.empty()) {
        Check(natsOptions_SetUserCredentialsFromFiles(made, credentials.c_str(), nullptr), "the relay's credentials");
    }
    natsOptions_SetName(made, "muxora serve");
    natsOptions_SetTimeout(made, kConnectTakesMs);
    natsOptions_SetMaxReconnect(made, INT_MAX);
    natsOptions_SetReconnectWait(made, kReconnectAfterMs);
    natsOptions_SetPingInterval(made, kPingEveryMs);
    natsOptions_SetMaxPingsOut(made, kUnansweredPings);
    natsOptions_SetMaxPendingMsgs(made, kPendingMessages);
    // What is not confirmed is sent again anyway: nothing needs to be kept for a connection that is not there.
    natsOptions_SetReconnectBufSize(made, 1);
    natsOptions_SetErrorHandler(
        made, [](natsConnection*, natsSubscription*, natsStatus, void*) {}, nullptr);
    natsOptions_SetRetryOnFailedConnect(
        made, true, [](natsConnection*, void*) {}, nullptr);

    natsConnection* connection = nullptr;
    const natsStatus status = natsConnection_Connect(&connection, made);
    connection_.reset(connection);
    if (status != NATS_OK && status != NATS_NOT_YET_CONNECTED) Check(status, "the relay");
    jsOptions settings;
    jsOptions_Init(&settings);
    settings.Wait = kAnswerTakesMs;
    jsCtx* jet_stream = nullptr;
    Check(natsConnection_JetStream(&jet_stream, connection, &settings), "JetStream");
    jet_stream_.reset(jet_stream);
}

bool NatsLink::Connected() const {
    return natsConnection_Status(connection_.get()) == NATS_CONN_STATUS_CONNECTED;
}

uint64_t NatsLink::Reconnects() const {
    natsStatistics* made = nullptr;
    if (natsStatistics_Create(&made) != NATS_OK) return 0;
    uint64_t reconnects = 0;
    if (natsConnection_GetStats(connection_.get(), made) == NATS_OK) {
        natsStatistics_GetCounts(made, nullptr, nullptr, nullptr, nullptr, &reconnects);
    }
    natsStatistics_Destroy(made);
    return reconnects;
}

size_t NatsLink::LargestPayload() const {
    const int64_t most = natsConnection_GetMaxPayload(connection_.get());
    return static_cast<size_t>(std::max<int64_t>(most, 2 * kHeaderRoom)) - kHeaderRoom;
}

bool NoteOf(natsMsg* message, RelayNote& note) {
    return ParseNote(
        [message](const char* name) {
            const char* value = nullptr;
            return natsMsgHeader_Get(message, name, &value) == NATS_OK ? value : nullptr;
        },
        note);
}

}  // namespace Orvane::Muxora::Gateway
