#include "relay/relay_source.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>
#include <utility>

#include "bounds.h"
#include "log.h"
#include "relay/inbox.h"
#include "relay/nats.h"
#include "relay/session_clock.h"
#include "relay/unit.h"

namespace Orvane::Muxora::Gateway {

namespace {

using Clock = std::chrono::steady_clock;

// How often an end of the gateway is looked for.
constexpr std::chrono::milliseconds kLookEvery{50};
// The servers say so often that they are there when nothing else is to be said.
constexpr std::chrono::milliseconds kHeartbeat{500};
// After a silence of so long they are asked whether they still know us.
constexpr std::chrono::milliseconds kQuiet{1500};
// Before the last key frame, so that messages which were stored out of order are seen.
constexpr uint64_t kMargin = 64;
// Behind more of them, a viewer begins with the next key frame.
constexpr uint64_t kFarthestKey = 4096;

class RelaySource final : public Source {
  public:
    RelaySource(StreamPtr stream, const std::string& name, std::shared_ptr<NatsLink> link)
        : stream_(std::move(stream)),
          subject_(RelaySubject(name)),
          store_(RelayStore(name)),
          link_(std::move(link)),
          inbox_([this](const RelayNote& note, std::vector<uint8_t>&& unit) { Give(note, unit); }),
          thread_([this] { Run(); }) {}

    ~RelaySource() override {
        stopped_ = true;
        thread_.join();
    }

  private:
    void Run() {
        auto pause = kFirstPause;
        while (!stopped_) {
            const uint64_t given = given_;
            std::string trouble;
            try {
                trouble = Follow();
            } catch (const std::exception& error) {
                trouble = error.what();
            }
            if (stopped_) return;
            if (given_ != given) pause = kFirstPause;
            // A server that is replaced by another is a matter of seconds, and nobody's business.
            if (Clock::now() - heard_ > kInputSilence) Lost(trouble);
            for (const auto until = Clock::now() + pause; !stopped_ && Clock::now() < until;)
                std::this_thread::sleep_for(kLookEvery);
            pause = std::min(pause * 2, kLongestRelayPause);
        }
    }

    void Lost(const std::string& trouble) {
        if (trouble == told_) return;
        told_ = trouble;
        live_ = false;
        stream_->Lost(trouble);
        LogWarning("input lost", {{"stream", stream_->Name()}, {"why", trouble}});
    }

    // Reads as long as that goes. Gives what ended it.
    std::string Follow() {
        if (!link_->Connected()) return "no server of the relay answers";
        const uint64_t start = Start();
        natsSubscription* made = nullptr;
        jsSubOptions options;
        jsSubOptions_Init(&options);
        options.Stream = store_.c_str();
        options.Config.DeliverPolicy = js_DeliverByStartSequence;
        options.Config.OptStartSeq = start;
        options.Config.AckPolicy = js_AckNone;
        options.Config.Heartbeat = std::chrono::nanoseconds(kHeartbeat).count();
        auto code = jsErrCode{};
        const natsStatus status =
            js_SubscribeSync(&made, link_->JetStream(), subject_.c_str(), nullptr, &options, &code);
        if (status != NATS_OK) return "cannot be followed: " + NatsText(status, code);
        const NatsPtr<natsSubscription> subscription(made);
        natsSubscription_SetPendingLimits(made, -1, -1);
        return Read(made);
    }

    // The message to begin with.
    uint64_t Start() {
        natsMsg* made = nullptr;
        auto code = jsErrCode{};
        const natsStatus status =
            js_GetLastMsg(&made, link_->JetStream(), store_.c_str(), subject_.c_str(), nullptr, &code);
        const NatsPtr<natsMsg> last(made);
        if (status != NATS_OK) {
            const bool nothing = code == JSStreamNotFoundErr || code == JSNoMessageFoundErr || status == NATS_NOT_FOUND;
            throw std::runtime_error(nothing ? "nobody publishes it"
                                             : "the relay does not answer: " + NatsText(status, code));
        }
        const uint64_t sequence = natsMsg_GetSequence(made);
        // Servers that all began anew begin at 1 again.
        if (last_ != 0 && sequence >= last_) return last_ + 1;
        last_ = 0;
        RelayNote note;
        if (!NoteOf(made, note) || note.since_key > kFarthestKey) return sequence + 1;
        inbox_.BeginAt(note.origin, note.number - note.since_key, natsMsg_GetTime(made) / 1000);
        // Twice as far: another origin's messages may lie between.
        const uint64_t back = 2 * note.since_key + kMargin;
        return sequence > back ? sequence - back : 1;
    }

    std::string Read(natsSubscription* subscription) {
        uint64_t expected = 1;
        auto came = Clock::now();
        auto asked = came;
        for (;;) {
            natsMsg* made = nullptr;
            const natsStatus status = natsSubscription_NextMsg(&made, subscription, kLookEvery.count());
            const NatsPtr<natsMsg> message(made);
            if (stopped_) return "stopped";
            const auto now = Clock::now();
            if (status == NATS_TIMEOUT) {
                if (now - came > kInputSilence)
                    return "nothing came for " + std::to_string(kInputSilence.count()) + " s";
                if (now - std::max(came, asked) < kQuiet) continue;
                jsConsumerInfo* info = nullptr;
                auto code = jsErrCode{};
                const natsStatus known = natsSubscription_GetConsumerInfo(&info, subscription, nullptr, &code);
                jsConsumerInfo_Destroy(info);
                if (known != NATS_OK) return "the relay forgot us: " + NatsText(known, code);
                asked = Clock::now();
                continue;
            }
            if (status != NATS_OK) return "the relay broke off: " + NatsText(status);
            jsMsgMetaData* about = nullptr;
            // Without it, it is a word of the server's and no message.
            if (natsMsg_GetMetaData(&about, made) != NATS_OK) continue;
            const NatsPtr<jsMsgMetaData> owner(about);
            // What is missing between is asked for again.
            if (about->Sequence.Consumer != expected++) return "messages were lost on the way";
            came = heard_ = now;
            Take(*made, *about);
        }
    }

    void Take(natsMsg& message, const jsMsgMetaData& about) {
        if (last_ != 0 && about.Sequence.Stream > last_ + 1) inbox_.Gap();
        last_ = about.Sequence.Stream;
        RelayMessage taken;
        if (!NoteOf(&message, taken.note)) return;
        const auto* bytes = reinterpret_cast<const uint8_t*>(natsMsg_GetData(&message));
        taken.bytes.assign(bytes, bytes + natsMsg_GetDataLength(&message));
        inbox_.Take(std::move(taken), about.Timestamp / 1000);
        stream_->SetDamaged(inbox_.Missing() + bad_);
    }

    void Give(const RelayNote& note, const std::vector<uint8_t>& unit) {
        if (origin_ != note.origin) {
            origin_ = note.origin;
            reader_ = {};
            LogInfo("origin followed", {{"stream", stream_->Name()}, {"origin", origin_}});
        }
        auto frame = reader_.Read(unit, note);
        if (!frame) {
            ++bad_;
            return;
        }
        clock_.Take(*frame, note.origin);
        if (!std::exchange(live_, true)) {
            told_.clear();
            stream_->Opened();
        }
        // What was kept for us can wait.
        while (stream_->UnderWay() >= kMaxFramesUnderWay && !stopped_)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        stream_->Push(std::move(*frame));
        ++given_;
    }

    const StreamPtr stream_;
    const std::string subject_;
    const std::string store_;
    const std::shared_ptr<NatsLink> link_;
    std::atomic<bool> stopped_{false};

    // The thread's own.
    RelayInbox inbox_;
    UnitReader reader_;
    SessionClock clock_;
    std::string origin_;
    std::string told_;
    bool live_ = false;
    uint64_t last_ = 0;  // the servers' number of the message that came last
    uint64_t given_ = 0;
    uint64_t bad_ = 0;
    Clock::time_point heard_{};
    std::thread thread_;
};

}  // namespace

std::unique_ptr<Source> OpenRelaySource(const StreamPtr& stream, const std::string& input,
                                        const std::string& credentials) {
    const RelayAddress address = ParseRelayAddress(input);
    const std::string& name = address.name.empty() ? stream->Name() : address.name;
    return std::make_unique<RelaySource>(stream, name, NatsLink::To(address.servers, credentials));
}

}  // namespace Orvane::Muxora::Gateway
