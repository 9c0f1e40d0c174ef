// The file component.
#include <utility>

#include "Muxora.h"
#include "api/component_support.h"
#include "api/format_table.h"

namespace Orvane::Muxora {

namespace {

constexpr const char* kFactoryName = "FilePackage";
constexpr uint32_t kNewBinaryFile = Basalt::LFS_CREATE | Basalt::LFS_WRITE | Basalt::LFS_BINARY;
static_assert(kNewBinaryFile == 4225);

}  // namespace

CFilePackage::CFactory::CFactory() {
    registerFactory(kFactoryName, this);
}

CFilePackage::CFactory::~CFactory() {
    unregisterFactory(kFactoryName, this);
}

Basalt::flex_string CFilePackage::CFactory::getName() {
    return "Local";
}

IFilePackage* CFilePackage::CFactory::create(const Basalt::flex_string& key) {
    try {
        return std::make_unique<CFilePackage>(key).release();
    } catch (const std::exception&) {
        return nullptr;
    }
}

CFilePackage::CFilePackage() : CFilePackage("OVX") {
}

CFilePackage::CFilePackage(const Basalt::flex_string& key)
    : packager_(MakeFilePackage(key)), attributes_(std::make_unique<CFrameAttributes>()) {
}

CFilePackage::~CFilePackage() = default;

bool CFilePackage::supports(const Basalt::flex_string& key) noexcept {
    return HasFilePackage(key);
}

void CFilePackage::destroy() {
    if (packager_ != nullptr && !PackageCall(*packager_)) return;
    IFilePackage::destroy();
}

Basalt::CVersion CFilePackage::getVersion() {
    return ComponentVersion();
}

bool CFilePackage::open(WriteFunction write_fn) {
    if (!write_fn) return false;
    if (packager_ == nullptr) return Fail(MUXORA_NO_PACKAGER);
    const PackageCall inside(*packager_);
    if (!inside) return Fail(MUXORA_REFUSED);
    write_fn_ = std::move(write_fn);
    Start();
    return true;
}

bool CFilePackage::open(const char* path) {
    if (packager_ == nullptr) return Fail(MUXORA_NO_PACKAGER);
    if (path == nullptr) return Fail(MUXORA_CANNOT_OPEN);
    const PackageCall inside(*packager_);
    if (!inside) return Fail(MUXORA_REFUSED);
    if (!file_.open(path, kNewBinaryFile)) return Fail(MUXORA_CANNOT_OPEN);
    Start();
    return true;
}

// The results are not looked at: what failed here shows in the frames.
void CFilePackage::Start() {
    try {
        packager_->setCallback(OnBlock, this);
        packager_->init();
        packager_->createHeader(nullptr, 0);
    } catch (const std::exception&) {
        return;
    }
}

bool CFilePackage::inputFrame(const void* data, unsigned length, const AttributeMap& attributes) {
    if (packager_ == nullptr) return Fail(MUXORA_NO_PACKAGER);
    return Run(*packager_, [&] {
        MXFrameInfo frame = MakeFrame(*attributes_, data, length, attributes);
        return packager_->inputFrame(&frame, 0);
    });
}

bool CFilePackage::close() {
    if (packager_ == nullptr) return Fail(MUXORA_NO_PACKAGER);
    const PackageCall inside(*packager_);
    if (!inside) return Fail(MUXORA_REFUSED);
    try {
        packager_->createTailer(nullptr, 0);
        packager_->uninit();
    } catch (const std::exception&) {
        // As with a result that is not looked at: the file is closed as it stands.
    }
    if (file_.isOpen()) file_.close();
    return true;
}

bool CFilePackage::getbackup(Basalt::TSharedPtr<IMuxoraData>& out, const AttributeMap& info) {
    if (packager_ == nullptr) return false;
    try {
        MXOutputBlock block{};
        const auto count = static_cast<int32_t>(packager_->getBackup(&block));
        if (count <= 0 || block.data == nullptr || static_cast<int32_t>(block.length) <= 0) return false;
        backup_.setBuffer(const_cast<void*>(block.data), block.length);
        out = std::make_shared<CMuxoraDataImpl>(backup_);
        // Callers rely on this: the map is changed although it is declared constant.
        auto& place = const_cast<AttributeMap&>(info);
        place["seekpos"] = block.offset32;
        place["seektype"] = static_cast<int32_t>(block.seek_type);
    } catch (const std::exception&) {
        return false;
    }
    return true;
}

bool CFilePackage::getPacketCapacity(CapacityType type, const void** table, int* count) const {
    return TellCapacity(packager_.get(), type, table, count);
}

// A block that can't be written is lost, and the packager counts it as written.
int32_t CFilePackage::OnBlock(const MXOutputBlock* block, void* user) {
    auto& self = *static_cast<CFilePackage*>(user);
    if (self.file_.isOpen()) {
        self.file_.seek(block->offset, block->seek_type);
        self.file_.write(block->data, block->length);
        return 0;
    }
    if (!self.write_fn_) return 0;
    try {
        AttributeMap place;
        place["fileoffset"] = block->offset;
        place["offsettype"] = static_cast<int32_t>(block->seek_type);
        CMuxoraDataImpl data;
        data.setBuffer(const_cast<void*>(block->data), block->length);
        self.write_fn_(place, data);
    } catch (...) {
        // The caller's own exception must not pass through a packager that is half done with its frame.
        return 0;
    }
    return 0;
}

}  // namespace Orvane::Muxora
