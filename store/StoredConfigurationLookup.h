#pragma once

#include "tools/scripting/ConfigurationLookup.h"

class StoreContext;

// Answers the scripts' look-ups of resources and prompts from the store's main-thread
// context, in the records' export form. The context outlives the lookup.
class StoredConfigurationLookup : public ConfigurationLookup {
public:
    explicit StoredConfigurationLookup(StoreContext *context) : m_context(context) {}

    Answer resourceConfig(const QString &name) override;
    Answer promptConfig(const QString &name) override;

private:
    StoreContext *m_context;
};
