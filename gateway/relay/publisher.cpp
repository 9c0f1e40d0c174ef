#include "relay/publisher.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <exception>
#include <nlohmann/json.hpp>
#include <optional>
#include <random>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "log.h"
#include "relay/nats.h"
#include "relay/unit.h"

namespace Orvane::Muxora::Gateway {

namespace {

using Clock = RelayOutbox::Clock;

// How often confirmations are looked for while some are due.
constexpr std::chrono::milliseconds kLookEvery{10};
constexpr std::chrono::milliseconds kStoreAgain{500};
// A cluster that has just begun may not know all its servers yet: so long three are insisted on.
constexpr std::chrono::seconds kClusterForms{5};
constexpr std::chrono::seconds kLastConfirmations{3};
constexpr int64_t kReplicas = 3;

constexpr int64_t Nanoseconds(std::chrono::nanoseconds span) {
    return span.count();
}

}  // namespace

// One origin's way to the servers; lives on the publisher's thread.
class RelayPublisher::Line {
  public:
    Line(const std::string& stream, NatsLink& link)
        : subject_(RelaySubject(stream)),
          store_(RelayStore(stream)),
          link_(link),
          origin_(OriginName(WallClockUs(), std::random_device()())),
          began_(Clock::now()) {
        natsInbox* inbox = nullptr;
        if (natsInbox_Create(&inbox) != NATS_OK) throw std::runtime_error("out of memory");
        answers_ = inbox;
        natsInbox_Destroy(inbox);
    }

    bool HasRoom() const { return outbox_.HasRoom(); }
    bool Empty() const { return outbox_.Empty(); }

    void Put(const Frame& frame) {
        const auto unit = writer_.Write(frame);
        if (unit.empty()) return;
        has_video_ = has_video_ || frame.IsVideo();
        if (has_video_ ? frame.IsVideo() && frame.IsKey() : true) key_ = number_;
        const size_t largest = link_.LargestPayload();
        const size_t pieces = (unit.size() + largest - 1) / largest;
        if (pieces > kMaxRelayPieces) return;
        RelayMessage message;
        RelayNote& note = message.note;
        note.origin = origin_;
        note.pieces = static_cast<uint32_t>(pieces);
        note.time_scale = frame.time_scale;
        note.dts = frame.dts;
        note.pts = frame.pts;
        note.duration = frame.duration;
        note.arrival_us = frame.arrival_us;
        if (!frame.IsVideo()) note.samples_per_sec = frame.media.samples_per_sec;
        for (note.piece = 0; note.piece < pieces; ++note.piece, ++number_) {
            note.number = number_;
            note.since_key = number_ - key_;
            const auto part = unit.subspan(note.piece * largest);
            message.bytes.assign(part.begin(), part.begin() + static_cast<ptrdiff_t>(std::min(part.size(), largest)));
            outbox_.Put(message);
        }
    }

    // Sends what is to go, and hears what came of what went.
    void Work(Clock::time_point now) {
        if (!Ready(now)) return;
        outbox_.Send(now, [this](const RelayMessage& message) { return Send(message); });
        Hear();
    }

    // Frames that the servers have.
    uint64_t Published() const { return published_; }
    // Why nothing goes on, or nothing.
    const std::string& Trouble() const { return trouble_; }

  private:
    bool Ready(Clock::time_point now) {
        if (!link_.Connected()) {
            trouble_ = "no server answers";
            return false;
        }
        if (hears_ == nullptr) {
            natsSubscription* hears = nullptr;
            if (natsConnection_SubscribeSync(&hears, link_.Connection(), (answers_ + ".*").c_str()) != NATS_OK)
                return false;
            hears_.reset(hears);
            // One for each message, of a hundred bytes or two.
            natsSubscription_SetPendingLimits(hears, -1, -1);
        }
        const uint64_t reconnects = link_.Reconnects();
        if (std::exchange(reconnects_, reconnects) != reconnects) outbox_.Reconnected();
        if (stored_ || now < store_again_) return stored_;
        store_again_ = now + kStoreAgain;
        return stored_ = Store(now);
    }

    // What keeps the messages: made by the first who publishes, on three servers where there are three.
    bool Store(Clock::time_point now) {
        const char* subject = subject_.c_str();
        jsStreamConfig config;
        jsStreamConfig_Init(&config);
        config.Name = store_.c_str();
        config.Description = "frames of muxora serve";
        config.Subjects = &subject;
        config.SubjectsLen = 1;
        config.Storage = js_MemoryStorage;
        config.Discard = js_DiscardOld;
        config.MaxAge = Nanoseconds(kRelayKeeps);
        config.Duplicates = Nanoseconds(kRelayKeeps);
        config.MaxBytes = static_cast<int64_t>(kRelayKeepsBytes);
        config.Replicas = alone_ ? 1 : kReplicas;
        jsStreamInfo* made = nullptr;
        auto code = jsErrCode{};
        const natsStatus status = js_AddStream(&made, link_.JetStream(), &config, nullptr, &code);
        const NatsPtr<jsStreamInfo> info(made);
        if (status == NATS_OK) {
            if (alone_ && now - began_ > kClusterForms) {
                LogWarning("the relay keeps one copy: fewer than three servers", {{"stream", StreamOfStore(store_)}});
            }
            return true;
        }
        if (code == JSStreamNameExistErr) return true;  // with other limits, which the operator may have set
        const bool too_few = code == JSClusterNoPeersErr || code == JSInsufficientResourcesErr;
        if (!alone_ && (code == JSStreamReplicasNotSupportedErr || (too_few && now - began_ > kClusterForms))) {
            alone_ = true;
            return Store(now);
        }
        trouble_ = "cannot be stored: " + NatsText(status, code);
        return false;
    }

    bool Send(const RelayMessage& message) {
        natsMsg* made = nullptr;
        const std::string reply = answers_ + "." + std::to_string(message.note.number);
        const auto* bytes = reinterpret_cast<const char*>(message.bytes.data());
        natsStatus status =
            natsMsg_Create(&made, subject_.c_str(), reply.c_str(), bytes, static_cast<int>(message.bytes.size()));
        const NatsPtr<natsMsg> owner(made);
        for (const auto& [name, value] : PrintNote(message.note)) {
            if (status == NATS_OK) status = natsMsgHeader_Set(made, name.c_str(), value.c_str());
        }
        if (status == NATS_OK) status = natsConnection_PublishMsg(link_.Connection(), made);
        return status == NATS_OK;
    }

    void Hear() {
        for (;;) {
            natsMsg* got = nullptr;
            const natsStatus status = natsSubscription_NextMsg(&got, hears_.get(), 0);
            const NatsPtr<natsMsg> owner(got);
            if (status == NATS_OK) {
                Hear(got);
            } else if (status == NATS_NO_RESPONDERS) {
                // No leader, or the store is gone.
                stored_ = false;
                outbox_.Refused();
            } else {
                return;
            }
        }
    }

    void Hear(natsMsg* answer) {
        const std::string_view subject = natsMsg_GetSubject(answer);
        uint64_t number = 0;
        const size_t dot = subject.rfind('.');
        const char* end = subject.data() + subject.size();
        if (dot == std::string_view::npos || std::from_chars(subject.data() + dot + 1, end, number).ptr != end) return;
        const char* text = natsMsg_GetData(answer);
        const auto json = nlohmann::json::parse(text, text + natsMsg_GetDataLength(answer), nullptr, false);
        if (json.is_object() && json.contains("seq") && !json.contains("error")) {
            if (outbox_.Confirmed(number)) ++published_;
            trouble_.clear();
            return;
        }
        trouble_ = "not taken: " + (json.is_object() ? json.value("error", nlohmann::json()).dump()
                                                     : std::string("no answer of JetStream"));
        outbox_.Refused();
    }

    const std::string subject_;
    const std::string store_;
    NatsLink& link_;
    const std::string origin_;
    const Clock::time_point began_;
    std::string answers_;  // the subject under which confirmations come
    NatsPtr<natsSubscription> hears_;
    UnitWriter writer_;
    RelayOutbox outbox_;
    uint64_t number_ = 0;
    uint64_t key_ = 0;
    bool has_video_ = false;
    bool stored_ = false;
    bool alone_ = false;  // fewer than three servers
    Clock::time_point store_again_;
    uint64_t reconnects_ = 0;
    uint64_t published_ = 0;
    std::string trouble_;
};

RelayPublisher::RelayPublisher(StreamPtr stream, std::shared_ptr<NatsLink> link)
    : stream_(std::move(stream)), link_(std::move(link)), thread_([this] { Run(); }) {
}

RelayPublisher::~RelayPublisher() {
    OnEnd();
    Wait();
}

void RelayPublisher::Wait() {
    if (thread_.joinable()) thread_.join();
}

void RelayPublisher::OnFrame(const FramePtr& frame) {
    auto taken = FrameQueue::Taken::kLost;
    {
        const std::lock_guard lock(mutex_);
        taken = frames_.Put(frame);
        if (taken == FrameQueue::Taken::kLost) ++lost_;
    }
    if (taken == FrameQueue::Taken::kWaitsBehind) {
        LogWarning("frames not published: the relay's servers take too few", {{"stream", stream_->Name()}});
    }
    changed_.notify_one();
}

void RelayPublisher::OnEnd() {
    {
        const std::lock_guard lock(mutex_);
        ended_ = true;
    }
    changed_.notify_one();
}

// Waits for a frame, as far as `line` has time for that.
RelayPublisher::Turn RelayPublisher::Next(const Line& line) {
    std::unique_lock lock(mutex_);
    const auto any = [this] { return !frames_.Empty(); };
    if (line.Empty()) {
        changed_.wait(lock, [&] { return ended_ || any(); });
    } else {
        changed_.wait_for(lock, kLookEvery, [&] { return line.HasRoom() && any(); });
    }
    Turn turn;
    turn.lost = lost_;
    if (line.HasRoom() && any()) {
        turn.frame = frames_.Take();
        frames_.Done(turn.frame);
    }
    turn.last = ended_ && frames_.Empty();
    return turn;
}

void RelayPublisher::Run() {
    try {
        Line line(stream_->Name(), *link_);
        std::string told;
        std::optional<Clock::time_point> patience;
        for (;;) {
            const Turn turn = Next(line);
            if (turn.frame != nullptr) line.Put(*turn.frame);
            const auto now = Clock::now();
            line.Work(now);
            stream_->SetRelayed(line.Published(), turn.lost);
            if (line.Trouble() != told) {
                told = line.Trouble();
                if (told.empty()) {
                    LogInfo("published", {{"stream", stream_->Name()}});
                } else {
                    LogWarning("not published", {{"stream", stream_->Name()}, {"why", told}});
                }
            }
            if (!turn.last) continue;
            if (!patience) patience = now + kLastConfirmations;
            if (line.Empty() || now > *patience) return;
        }
    } catch (const std::exception& error) {
        LogWarning("not published", {{"stream", stream_->Name()}, {"why", error.what()}});
    }
}

}  // namespace Orvane::Muxora::Gateway
