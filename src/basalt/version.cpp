#include "basalt/version.h"

namespace Basalt {

CVersion::CVersion() = default;

CVersion::CVersion(const flex_string& name, uint32_t major_number, uint32_t minor_number, uint32_t revision,
                   const flex_string& revision_control, const flex_string& build_date)
    : name_(name),
      major_(major_number),
      minor_(minor_number),
      revision_(revision),
      revision_control_(revision_control),
      build_date_(build_date) {
}

CVersion::CVersion(const CVersion& other) = default;
CVersion& CVersion::operator=(const CVersion& other) = default;
CVersion::~CVersion() = default;

const flex_string& CVersion::getName() const {
    return name_;
}

uint32_t CVersion::getMajor() const {
    return major_;
}

uint32_t CVersion::getMinor() const {
    return minor_;
}

uint32_t CVersion::getRevision() const {
    return revision_;
}

const flex_string& CVersion::getRevisionControl() const {
    return revision_control_;
}

const flex_string& CVersion::getBuildDate() const {
    return build_date_;
}

}  // namespace Basalt
