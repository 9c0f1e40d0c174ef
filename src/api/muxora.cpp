// The stream component.
#include <string_view>

#include "Muxora.h"
#include "api/component_support.h"
#include "api/format_table.h"
#include "core/rtp_params.h"

namespace Orvane::Muxora {

namespace {

constexpr const char* kFactoryName = "Muxora";
constexpr std::string_view kCustomData = "rtp_custom_data";
constexpr std::string_view kAudioCustomData = "rtp_audio_custom_data";
// An array and not a literal: its address tells it apart from every other spelling of the key.
constexpr char kExtensionData[] = "rtp_extension_data";

// The packager's output: the last block is the packet.
int32_t KeepBlock(const MXOutputBlock* block, void* user) {
    auto* const bytes = static_cast<unsigned char*>(const_cast<void*>(block->data));
    static_cast<CMuxora*>(user)->setPacket(bytes, static_cast<int>(block->length));
    return 0;
}

// Null for every format but RTP.
IRtpParams* RtpParams(CPackage& packager) {
    return packager.format() == MX_FORMAT_RTP ? dynamic_cast<IRtpParams*>(&packager) : nullptr;
}

}  // namespace

CMuxoraDataImpl::CMuxoraDataImpl() = default;
CMuxoraDataImpl::CMuxoraDataImpl(const CMuxoraDataImpl& other) = default;
CMuxoraDataImpl& CMuxoraDataImpl::operator=(const CMuxoraDataImpl& other) = default;
CMuxoraDataImpl::~CMuxoraDataImpl() = default;

const char* CMuxoraDataImpl::getBuffer() const {
    return static_cast<const char*>(buffer_);
}

unsigned CMuxoraDataImpl::getLen() const {
    return length_;
}

void CMuxoraDataImpl::setBuffer(void* data, unsigned length) {
    buffer_ = data;
    length_ = length;
}

void CMuxoraDataImpl::setPointer(void* data) {
    buffer_ = data;
}

void CMuxoraDataImpl::setLen(unsigned length) {
    length_ = length;
}

CMuxora::CFactory::CFactory() {
    registerFactory(kFactoryName, this);
}

CMuxora::CFactory::~CFactory() {
    unregisterFactory(kFactoryName, this);
}

Basalt::flex_string CMuxora::CFactory::getName() {
    return "Local";
}

IMuxora* CMuxora::CFactory::create(const Basalt::flex_string& key) {
    try {
        return std::make_unique<CMuxora>(key).release();
    } catch (const std::exception&) {
        return nullptr;
    }
}

CMuxora::CMuxora() : CMuxora("OVX") {
}

CMuxora::CMuxora(const Basalt::flex_string& key)
    : packager_(MakeStreamPackage(key)), attributes_(std::make_shared<CFrameAttributes>()) {
    if (packager_ == nullptr) return;
    packager_->setCallback(KeepBlock, this);
    packager_->init();
}

CMuxora::CMuxora(const CMuxora& other) = default;
CMuxora& CMuxora::operator=(const CMuxora& other) = default;

bool CMuxora::supports(const Basalt::flex_string& key) noexcept {
    return HasStreamPackage(key);
}

CMuxora::~CMuxora() {
    if (packager_ == nullptr) return;
    try {
        packager_->uninit();
    } catch (const std::exception&) {
        // Nothing is left to be told to anyone.
        return;
    }
}

const char* CMuxora::extensionDataKey() {
    return kExtensionData;
}

void CMuxora::destroy() {
    if (packager_ != nullptr && !PackageCall(*packager_)) return;
    IMuxora::destroy();
}

Basalt::CVersion CMuxora::getVersion() {
    return ComponentVersion();
}

bool CMuxora::inputFrame(const void* data, unsigned length, const AttributeMap& attributes) {
    if (packager_ == nullptr) return false;
    return Run(*packager_, [&] {
        MXFrameInfo frame = MakeFrame(*attributes_, data, length, attributes);
        // A copy of this object may have had the packager before.
        packager_->setCallback(KeepBlock, this);
        return packager_->inputFrame(&frame, 0);
    });
}

bool CMuxora::inputFrameEx(const void* data, unsigned length, const AttributeMap& attributes, Basalt::CPacket& packet) {
    if (packager_ == nullptr || !packet.valid()) return false;
    return Run(*packager_, [&] {
        MXFrameInfo frame = MakeFrame(*attributes_, data, length, attributes);
        packager_->setCallback(KeepBlock, this);
        return packager_->inputFrameEx(&frame, packet);
    });
}

bool CMuxora::getPacket(Basalt::TSharedPtr<IMuxoraData>& out) {
    if (packet_ready_ == 0) return Fail(MUXORA_NO_PACKET);
    try {
        out = std::make_shared<CMuxoraDataImpl>(packet_);
    } catch (const std::exception&) {
        return false;
    }
    packet_ready_ = 0;
    return true;
}

bool CMuxora::setPacket(unsigned char* data, int length) {
    packet_.setBuffer(data, static_cast<unsigned>(length));
    packet_ready_ = 1;
    return true;
}

bool CMuxora::setParam(const char* key, long long value) {
    if (packager_ == nullptr) return false;
    if (IRtpParams* const rtp = RtpParams(*packager_); rtp != nullptr && key != nullptr) rtp->SetRtpValue(key, value);
    return true;
}

bool CMuxora::getParam(const char* key, long long& value) {
    if (packager_ == nullptr) return false;
    if (const IRtpParams* const rtp = RtpParams(*packager_); rtp != nullptr && key != nullptr) {
        int64_t current = value;
        rtp->GetRtpValue(key, current);
        value = current;
    }
    return true;
}

bool CMuxora::setExtInfo(const char* key, const void* data, unsigned length) {
    if (packager_ == nullptr) return false;
    IRtpParams* const rtp = RtpParams(*packager_);
    if (rtp == nullptr || key == nullptr) return true;
    try {
        if (key == kCustomData) return rtp->SetCustomData(data, length);
        if (key == kAudioCustomData) return rtp->SetAudioCustomData(data, length);
        // Callers rely on this: the packager's result, 0 on success, is taken for the answer.
        if (std::string_view(key) == kExtensionData) return packager_->setExtData(data, length) != MX_OK;
    } catch (const std::exception&) {
        return false;
    }
    return true;
}

bool CMuxora::getExtInfo(const char* key, Basalt::TSharedPtr<IMuxoraData>& out) {
    if (packager_ == nullptr) return false;
    // Callers rely on this: the key is compared by its address.
    if (RtpParams(*packager_) == nullptr || key != kExtensionData) return true;
    const void* data = nullptr;
    uint32_t length = 0;
    packager_->getExtData(&data, &length);
    try {
        const auto extension = std::make_shared<CMuxoraDataImpl>();
        extension->setBuffer(const_cast<void*>(data), length);
        out = extension;
    } catch (const std::exception&) {
        return false;
    }
    return true;
}

bool CMuxora::getPacketCapacity(CapacityType type, const void** table, int* count) const {
    return TellCapacity(packager_.get(), type, table, count);
}

void initMuxoraComponentLibrary() {
    try {
        static CMuxora::CFactory stream_factory;
        static CFilePackage::CFactory file_factory;
    } catch (const std::exception&) {
        // Without memory a factory is missing, and the next call tries again.
        return;
    }
}

}  // namespace Orvane::Muxora
