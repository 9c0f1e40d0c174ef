#pragma once

#include <atomic>
#include <cstdint>

#include "basalt/export.h"
#include "basalt/version.h"

namespace Basalt {

/**
 * The base of every component: a version and a reference count.
 *
 * A component is made by its factory, with a count of 1, and goes either by destroy(), whatever the count is, or by the
 * release() that takes the count to 0. One that was made in another way (on the stack, in a smart pointer) belongs to
 * that and must see neither. addRef() and release() may be called on any thread.
 */
class BASALT_API IUnknown {
  public:
    virtual ~IUnknown();
    /** Deletes the component. */
    virtual void destroy();
    /** The component's version; the default is an empty one. */
    virtual CVersion getVersion();
    /** Adds a reference. @return The new count. */
    virtual uint32_t addRef();
    /** Takes a reference away and deletes the component with the last one. @return The new count. */
    virtual uint32_t release();

  protected:
    IUnknown();
    /** A copy is a component of its own, with a count of 1. */
    IUnknown(const IUnknown& other);
    IUnknown& operator=(const IUnknown& other); /**< Leaves both counts. */

  private:
    std::atomic<uint32_t> references_{1};
};

}  // namespace Basalt
