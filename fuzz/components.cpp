// Both components: frames with any attributes, packets of any size, and every other operation in any order. Where the
// C interface makes the same format, the two must give the same bytes.
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "Muxora.h"
#include "MuxoraExt.h"
#include "api/attribute_map.h"
#include "core/clock.h"
#include "harness/component_frames.h"
#include "harness/file.h"
#include "harness/input.h"
#include "harness/pool.h"

namespace {

using namespace Orvane::Muxora;
using fuzz::Attributes;
using fuzz::FrameBytes;
using fuzz::Input;
using fuzz::Key;
using fuzz::kFileKeys;
using fuzz::kNoFormat;
using fuzz::Require;

constexpr Key kStreams[] = {{"ovx", MX_FORMAT_OVX},    {"asf", MX_FORMAT_ASF_STREAM}, {"flv", MX_FORMAT_FLV_STREAM},
                            {"rtp", MX_FORMAT_RTP},    {"ts", MX_FORMAT_TS},          {"ps", MX_FORMAT_PS},
                            {"ovps", MX_FORMAT_PS_OV}, {"gaysps", MX_FORMAT_PS_GAYS}, {"gdps", MX_FORMAT_PS_GD},
                            {"fmp4", MX_FORMAT_FMP4},  {"xts", MX_FORMAT_XTS},        {"xmkv", MX_FORMAT_XMKV},
                            {"XFLV", MX_FORMAT_XFLV},  {"nothing", kNoFormat}};

// All that the C interface makes of the same frames: the blocks of each.
class CSide {
  public:
    explicit CSide(uint32_t format) {
        MXCreateParam param{};
        param.user = this;
        param.output = [](const MXOutputBlock* block, void* user) {
            auto& self = *static_cast<CSide*>(user);
            const auto* const data = static_cast<const uint8_t*>(block->data);
            self.last.assign(data, data + block->length);
            self.any = true;
            return fuzz::File::Take(block, &self.file);
        };
        fuzz::Pool::Use(param);
        handle_ = MX_CreateHandle(format, &param);
        Require(handle_ != nullptr);
        MX_CreateHeader(handle_, nullptr);
    }
    ~CSide() { MX_DestroyHandle(handle_); }
    CSide(const CSide&) = delete;
    CSide& operator=(const CSide&) = delete;

    bool Give(const AttributeMap& attributes, const FrameBytes& bytes) {
        std::vector<uint8_t> copy = bytes.Copy();
        MXFrameInfo frame{};
        converter_.Fill(attributes, frame);
        frame.size = sizeof frame;
        frame.frame_pointer = copy.data();
        frame.frame_size = bytes.size;
        any = false;
        return MX_InputFrame(handle_, &frame) == MX_OK;
    }
    void End() { MX_CreateTailer(handle_, nullptr); }

    fuzz::File file;
    std::vector<uint8_t> last;
    bool any = false;

  private:
    MXHandle handle_;
    CFrameAttributes converter_;
};

// The component for streams asks its format for no header: where a header has bytes, or opens what frames go into, the
// two differ, and so do OVX and RTP, which keep their own numbers.
bool SameOverBothInterfaces(uint32_t format) {
    switch (format) {
        case kNoFormat:
        case MX_FORMAT_OVX:
        case MX_FORMAT_RTP:
        case MX_FORMAT_XFLV:
        case MX_FORMAT_XMKV:
            return false;
        default:
            return true;
    }
}

void CompareStreams(const Key& key, Input& in) {
    if (!SameOverBothInterfaces(key.format)) return;
    CSide other(key.format);
    CMuxora component(key.key);
    while (!in.Empty()) {
        const AttributeMap attributes = Attributes(in);
        FrameBytes bytes(in);
        const bool took = other.Give(attributes, bytes);
        Require(component.inputFrame(bytes.data, bytes.size, attributes) == took);
        Basalt::TSharedPtr<IMuxoraData> packet;
        const bool got = component.getPacket(packet);
        Require(got == other.any);
        if (!got) continue;
        Require(packet->getLen() == other.last.size());
        Require(packet->getLen() == 0 || std::memcmp(packet->getBuffer(), other.last.data(), packet->getLen()) == 0);
    }
}

void CompareFiles(const Key& key, Input& in) {
    if (key.format == kNoFormat) return;
    CSide other(key.format);
    fuzz::File file;
    CFilePackage component(key.key);
    Require(component.open(fuzz::WriteInto(file)));
    while (!in.Empty()) {
        const AttributeMap attributes = Attributes(in);
        FrameBytes bytes(in);
        const bool took = other.Give(attributes, bytes);
        Require(component.inputFrame(bytes.data, bytes.size, attributes) == took);
    }
    other.End();
    Require(component.close());
    Require(file.bytes == other.file.bytes);
}

void UseFile(const Key& key, Input& in) {
    CFilePackage component(key.key);
    const void* table = nullptr;
    int count = 0;
    uint64_t sum = 0;
    const auto write = [&](AttributeMap& place, IMuxoraData& data) {
        sum += static_cast<uint64_t>(place["fileoffset"]);
        for (unsigned i = 0; i < data.getLen(); i += 61)
            sum += static_cast<uint8_t>(data.getBuffer()[i]);
        // A call inside a call is refused; the first one goes on.
        if (sum % 7 == 0) {
            Require(!component.inputFrame("", 1, {}) && !component.close() && !component.open("/proc/self/nowhere"));
            Require(!component.open([](AttributeMap&, IMuxoraData&) { return true; }));
            Require(!component.getPacketCapacity(CapacityType{}, &table, &count));
        }
        if (sum % 11 == 0) throw std::string("no");
        return sum % 3 == 0;
    };
    while (!in.Empty()) {
        const uint8_t call = in.U8();
        if (call < 160) {
            const AttributeMap attributes = Attributes(in);
            FrameBytes bytes(in);
            component.inputFrame(in.U8() == 255 ? nullptr : bytes.data, bytes.size, attributes);
        } else if (call < 190) {
            component.open(write);
        } else if (call < 192) {
            component.open(IFilePackage::WriteFunction());
        } else if (call < 220) {
            Basalt::TSharedPtr<IMuxoraData> snapshot;
            AttributeMap place;
            if (component.getbackup(snapshot, place)) Require(snapshot->getLen() != 0 && place.count("seekpos") == 1);
        } else if (call < 228) {
            component.getPacketCapacity(static_cast<CapacityType>(in.U8() % 3), &table, &count);
        } else if (call < 230) {
            Require(!component.getPacketCapacity(CapacityType{}, nullptr, &count));
            Require(!component.getPacketCapacity(CapacityType{}, &table, nullptr));
        } else if (call < 232) {
            Require(!component.open("/proc/self/nowhere"));
        } else if (call < 234) {
            Require(!component.open(static_cast<const char*>(nullptr)));
        } else if (call < 238) {
            component.close();
        } else {
            component.getVersion();
        }
    }
}

void UseStream(const Key& key, Input& in) {
    CMuxora component(key.key);
    Basalt::CPacket packet;
    static constexpr const char* kParams[] = {"max_rtp_packet_length",
                                              "rtp_sequence_number",
                                              "rtp_timestamp",
                                              "rtp_ssrc",
                                              "rtp_audio_sample",
                                              "rtp_payload_type",
                                              "rtp_audio_payload_type",
                                              "rtp_packet_output_all_flag",
                                              "other"};
    static constexpr const char* kData[] = {"rtp_custom_data", "rtp_audio_custom_data", "rtp_extension_data", "other"};
    while (!in.Empty()) {
        const uint8_t call = in.U8();
        Basalt::TSharedPtr<IMuxoraData> data;
        if (call < 90) {
            const AttributeMap attributes = Attributes(in);
            FrameBytes bytes(in);
            component.inputFrame(in.U8() == 255 ? nullptr : bytes.data, bytes.size, attributes);
        } else if (call < 190) {
            const uint8_t kind = in.U8();
            if (kind < 100) packet = Basalt::CPacket(in.Number() % 100000);
            if (kind > 60 && kind < 120) packet.resize(in.U16());
            const AttributeMap attributes = Attributes(in);
            FrameBytes bytes(in);
            component.inputFrameEx(bytes.data, bytes.size, attributes, packet);
            Require(packet.size() <= packet.capacity());
        } else if (call < 210) {
            if (component.getPacket(data) && data->getLen() != 0) Require(data->getBuffer() != nullptr);
        } else if (call < 225) {
            const char* const name = kParams[in.U8() % std::size(kParams)];
            component.setParam(name, static_cast<long long>(in.Number()));
            long long value = 0;
            component.getParam(name, value);
        } else if (call < 240) {
            const std::vector<uint8_t> bytes = in.Bytes(in.U8());
            component.setExtInfo(kData[in.U8() % std::size(kData)], bytes.data(), static_cast<unsigned>(bytes.size()));
            component.getExtInfo(in.U8() % 2 != 0 ? CMuxora::extensionDataKey() : kData[2], data);
        } else if (call < 250) {
            const void* table = nullptr;
            int count = 0;
            component.getPacketCapacity(static_cast<CapacityType>(in.U8() % 3), &table, &count);
        } else if (call < 254) {
            component.getVersion();
        } else {
            component.setParam(nullptr, 1);
            long long value = 0;
            component.getParam(nullptr, value);
            component.setExtInfo(nullptr, "x", 1);
            component.getExtInfo(nullptr, data);
        }
    }
}

// What the factories make belongs to whoever holds references to it.
template <typename Component>
void UseFactory(const char* name, Input& in) {
    initMuxoraComponentLibrary();
    auto* const factory = dynamic_cast<typename Component::IFactory*>(Basalt::IFactoryUnknown::findFactory(name));
    Require(factory != nullptr && !factory->getName().empty());
    const std::vector<uint8_t> key = in.Bytes(in.U8() % 12);
    Component* const component =
        factory->create(in.U8() % 2 == 0 ? fuzz::kFileKeys[in.U8() % std::size(fuzz::kFileKeys)].key
                                         : Basalt::flex_string(key.begin(), key.end()));
    Require(component != nullptr);
    uint32_t references = 1;
    while (!in.Empty()) {
        const uint8_t call = in.U8();
        if (call < 100) {
            const AttributeMap attributes = Attributes(in);
            const FrameBytes bytes(in);
            component->inputFrame(bytes.data, bytes.size, attributes);
        } else if (call < 180) {
            Require(component->addRef() == ++references);
        } else if (call < 250) {
            Require(component->release() == --references);
            if (references == 0) return;
        } else {
            break;
        }
    }
    component->destroy();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    const Orvane::Muxora::ScopedClock clock(1700000000);
    std::srand(1);
    Input in(data + 2, size - 2);
    switch (data[0] % 32) {
        case 30:
            UseFactory<IMuxora>("Muxora", in);
            return 0;
        case 31:
            UseFactory<IFilePackage>("FilePackage", in);
            return 0;
        default:
            break;
    }
    switch (data[0] % 4) {
        case 0:
            UseStream(kStreams[data[1] % std::size(kStreams)], in);
            break;
        case 1:
            UseFile(kFileKeys[data[1] % std::size(kFileKeys)], in);
            break;
        case 2:
            CompareStreams(kStreams[data[1] % std::size(kStreams)], in);
            break;
        default:
            CompareFiles(kFileKeys[data[1] % std::size(kFileKeys)], in);
    }
    return 0;
}
