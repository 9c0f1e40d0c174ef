#pragma once

#include "basalt/export.h"
#include "basalt/types.h"

namespace Basalt {

/**
 * The base of every factory, and the process-wide registry of factories by name.
 *
 *     auto* factory = dynamic_cast<Orvane::Muxora::IMuxora::IFactory*>(IFactoryUnknown::findFactory("Muxora"));
 *
 * The registry may be used on any thread at any time.
 */
class BASALT_API IFactoryUnknown {
  public:
    IFactoryUnknown();
    virtual ~IFactoryUnknown();
    IFactoryUnknown(const IFactoryUnknown&) = delete;
    IFactoryUnknown& operator=(const IFactoryUnknown&) = delete;
    /** The kind of the factory. */
    virtual flex_string getName() = 0;

    /** Enters a factory under a name. The registry does not own it: it must be taken out before it goes. When several
     *  stand under one name, the one that came first is found. */
    static void registerFactory(const flex_string& name, IFactoryUnknown* factory);
    /** Takes out what was entered with the same two arguments; nothing if there is no such entry. */
    static void unregisterFactory(const flex_string& name, IFactoryUnknown* factory);
    /** The factory of a name, or null. It stays the registry's user's: good until it is unregistered. */
    static IFactoryUnknown* findFactory(const flex_string& name);
};

}  // namespace Basalt
