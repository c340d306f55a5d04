#include "tools/scripting/ConfigurationLookup.h"

#include <atomic>

namespace {
std::atomic<ConfigurationLookup *> g_lookup{nullptr};
}

ConfigurationLookup *ConfigurationLookup::shared() { return g_lookup.load(); }

void ConfigurationLookup::setShared(ConfigurationLookup *lookup) { g_lookup.store(lookup); }
