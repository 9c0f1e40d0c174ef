#pragma once

#include <cstdint>

#include "basalt/export.h"
#include "basalt/types.h"

namespace Basalt {

/** The version of a component. A value: copies are independent. */
class BASALT_API CVersion {
  public:
    /** An empty name, 0.0.0 and empty stamps. */
    CVersion();
    /** With the texts and numbers that the operations below give back. */
    CVersion(const flex_string& name, uint32_t major_number, uint32_t minor_number, uint32_t revision,
             const flex_string& revision_control, const flex_string& build_date);
    CVersion(const CVersion& other);            /**< A copy. */
    CVersion& operator=(const CVersion& other); /**< Takes all of the other. */
    ~CVersion();

    const flex_string& getName() const; /**< The component's name. */
    uint32_t getMajor() const;          /**< The first number of the version. */
    uint32_t getMinor() const;          /**< The second. */
    uint32_t getRevision() const;       /**< The third. */
    /** The state of the sources that the component was built from, in the words of their revision control. */
    const flex_string& getRevisionControl() const;
    /** Year-month-day. */
    const flex_string& getBuildDate() const;

  private:
    flex_string name_;
    uint32_t major_ = 0;
    uint32_t minor_ = 0;
    uint32_t revision_ = 0;
    flex_string revision_control_;
    flex_string build_date_;
};

}  // namespace Basalt
