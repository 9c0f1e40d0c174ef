#include "basalt/factory.h"

#include <algorithm>
#include <mutex>
#include <utility>
#include <vector>

namespace Basalt {

namespace {

struct Registry {
    std::mutex mutex;
    std::vector<std::pair<flex_string, IFactoryUnknown*>> entries;
};

// Made by the first factory, so that it outlives every factory that is static itself.
Registry& TheRegistry() {
    static Registry registry;
    return registry;
}

}  // namespace

IFactoryUnknown::IFactoryUnknown() {
    TheRegistry();
}

IFactoryUnknown::~IFactoryUnknown() = default;

void IFactoryUnknown::registerFactory(const flex_string& name, IFactoryUnknown* factory) {
    Registry& registry = TheRegistry();
    const std::lock_guard lock(registry.mutex);
    registry.entries.emplace_back(name, factory);
}

void IFactoryUnknown::unregisterFactory(const flex_string& name, IFactoryUnknown* factory) {
    Registry& registry = TheRegistry();
    const std::lock_guard lock(registry.mutex);
    const auto entry = std::find_if(registry.entries.begin(), registry.entries.end(), [&](const auto& candidate) {
        return candidate.second == factory && candidate.first == name;
    });
    if (entry != registry.entries.end()) registry.entries.erase(entry);
}

IFactoryUnknown* IFactoryUnknown::findFactory(const flex_string& name) {
    Registry& registry = TheRegistry();
    const std::lock_guard lock(registry.mutex);
    for (const auto& [known, factory] : registry.entries) {
        if (known == name) return factory;
    }
    return nullptr;
}

}  // namespace Basalt
