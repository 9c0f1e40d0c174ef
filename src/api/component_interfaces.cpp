// The interface classes of the components. Each operation has a body that fails, so that a component may leave out what
// it does not have, and the order of the operations can grow without moving.
#include "Muxora.h"

namespace Orvane::Muxora {

namespace {

bool NotImplemented() {
    Basalt::setLastError(MUXORA_NOT_IMPLEMENTED);
    return false;
}

}  // namespace

IMuxoraData::~IMuxoraData() = default;

IMuxora::IFactory::~IFactory() = default;

IMuxora* IMuxora::IFactory::create(const Basalt::flex_string& /*key*/) {
    NotImplemented();
    return nullptr;
}

IMuxora::~IMuxora() = default;

bool IMuxora::inputFrame(const void* /*data*/, unsigned /*length*/, const AttributeMap& /*attributes*/) {
    return NotImplemented();
}
bool IMuxora::getPacket(Basalt::TSharedPtr<IMuxoraData>& /*out*/) {
    return NotImplemented();
}
bool IMuxora::inputFrameEx(const void* /*data*/, unsigned /*length*/, const AttributeMap& /*attributes*/,
                           Basalt::CPacket& /*packet*/) {
    return NotImplemented();
}
bool IMuxora::setParam(const char* /*key*/, long long /*value*/) {
    return NotImplemented();
}
bool IMuxora::getParam(const char* /*key*/, long long& /*value*/) {
    return NotImplemented();
}
bool IMuxora::setExtInfo(const char* /*key*/, const void* /*data*/, unsigned /*length*/) {
    return NotImplemented();
}
bool IMuxora::getExtInfo(const char* /*key*/, Basalt::TSharedPtr<IMuxoraData>& /*out*/) {
    return NotImplemented();
}
bool IMuxora::getPacketCapacity(CapacityType /*type*/, const void** /*table*/, int* /*count*/) const {
    return NotImplemented();
}
bool IMuxora::rev_func24() {
    return NotImplemented();
}
bool IMuxora::rev_func23() {
    return NotImplemented();
}
bool IMuxora::rev_func22() {
    return NotImplemented();
}
bool IMuxora::rev_func21() {
    return NotImplemented();
}
bool IMuxora::rev_func20() {
    return NotImplemented();
}
bool IMuxora::rev_func19() {
    return NotImplemented();
}
bool IMuxora::rev_func18() {
    return NotImplemented();
}
bool IMuxora::rev_func17() {
    return NotImplemented();
}
bool IMuxora::rev_func16() {
    return NotImplemented();
}
bool IMuxora::rev_func15() {
    return NotImplemented();
}
bool IMuxora::rev_func14() {
    return NotImplemented();
}
bool IMuxora::rev_func13() {
    return NotImplemented();
}
bool IMuxora::rev_func12() {
    return NotImplemented();
}
bool IMuxora::rev_func11() {
    return NotImplemented();
}
bool IMuxora::rev_func10() {
    return NotImplemented();
}
bool IMuxora::rev_func9() {
    return NotImplemented();
}
bool IMuxora::rev_func8() {
    return NotImplemented();
}
bool IMuxora::rev_func7() {
    return NotImplemented();
}
bool IMuxora::rev_func6() {
    return NotImplemented();
}
bool IMuxora::rev_func5() {
    return NotImplemented();
}
bool IMuxora::rev_func4() {
    return NotImplemented();
}
bool IMuxora::rev_func3() {
    return NotImplemented();
}
bool IMuxora::rev_func2() {
    return NotImplemented();
}
bool IMuxora::rev_func1() {
    return NotImplemented();
}

IFilePackage::IFactory::~IFactory() = default;

IFilePackage* IFilePackage::IFactory::create(const Basalt::flex_string& /*key*/) {
    NotImplemented();
    return nullptr;
}

IFilePackage::~IFilePackage() = default;

bool IFilePackage::open(WriteFunction /*write_fn*/) {  // NOLINT(performance-unnecessary-value-param)
    return NotImplemented();
}
bool IFilePackage::open(const char* /*path*/) {
    return NotImplemented();
}
bool IFilePackage::inputFrame(const void* /*data*/, unsigned /*length*/, const AttributeMap& /*attributes*/) {
    return NotImplemented();
}
bool IFilePackage::close() {
    return NotImplemented();
}
bool IFilePackage::getbackup(Basalt::TSharedPtr<IMuxoraData>& /*out*/, const AttributeMap& /*info*/) {
    return NotImplemented();
}
bool IFilePackage::getPacketCapacity(CapacityType /*type*/, const void** /*table*/, int* /*count*/) const {
    return NotImplemented();
}
bool IFilePackage::rev_func26() {
    return NotImplemented();
}
bool IFilePackage::rev_func25() {
    return NotImplemented();
}
bool IFilePackage::rev_func24() {
    return NotImplemented();
}
bool IFilePackage::rev_func23() {
    return NotImplemented();
}
bool IFilePackage::rev_func22() {
    return NotImplemented();
}
bool IFilePackage::rev_func21() {
    return NotImplemented();
}
bool IFilePackage::rev_func20() {
    return NotImplemented();
}
bool IFilePackage::rev_func19() {
    return NotImplemented();
}
bool IFilePackage::rev_func18() {
    return NotImplemented();
}
bool IFilePackage::rev_func17() {
    return NotImplemented();
}
bool IFilePackage::rev_func16() {
    return NotImplemented();
}
bool IFilePackage::rev_func15() {
    return NotImplemented();
}
bool IFilePackage::rev_func14() {
    return NotImplemented();
}
bool IFilePackage::rev_func13() {
    return NotImplemented();
}
bool IFilePackage::rev_func12() {
    return NotImplemented();
}
bool IFilePackage::rev_func11() {
    return NotImplemented();
}
bool IFilePackage::rev_func10() {
    return NotImplemented();
}
bool IFilePackage::rev_func9() {
    return NotImplemented();
}
bool IFilePackage::rev_func8() {
    return NotImplemented();
}
bool IFilePackage::rev_func7() {
    return NotImplemented();
}
bool IFilePackage::rev_func6() {
    return NotImplemented();
}
bool IFilePackage::rev_func5() {
    return NotImplemented();
}
bool IFilePackage::rev_func4() {
    return NotImplemented();
}
bool IFilePackage::rev_func3() {
    return NotImplemented();
}
bool IFilePackage::rev_func2() {
    return NotImplemented();
}
bool IFilePackage::rev_func1() {
    return NotImplemented();
}

}  // namespace Orvane::Muxora
