#pragma once

#include "tools/scripting/ConfigurationLookup.h"

// Answers the scripts' look-ups of resources and prompts from the store's main-thread
// context, in the records' export form.
class StoredConfigurationLookup : public ConfigurationLookup {
public:
    Answer resourceConfig(const QString &name) override;
    Answer promptConfig(const QString &name) override;
};
