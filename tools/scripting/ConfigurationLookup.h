#pragma once

#include "base/Result.h"

#include <QString>

#include <optional>

// What a script may read of the stored configuration (Kelvara.resourceConfig and
// Kelvara.promptConfig). The store lives above the tools and implements this; it installs
// itself when it opens. Called on script worker threads: the implementation hops to the
// thread that owns the store itself.
class ConfigurationLookup {
public:
    // The record's export form, pretty-printed; nothing when no record matches; the error
    // when the store could not be read.
    using Answer = Result<std::optional<QString>>;

    virtual ~ConfigurationLookup() = default;

    // The first resource, in name order, whose name contains `name` (an empty text matches none).
    virtual Answer resourceConfig(const QString &name) = 0;
    // The prompt whose name is exactly `name`.
    virtual Answer promptConfig(const QString &name) = 0;

    // The installed lookup, or nullptr when no store has been opened.
    static ConfigurationLookup *shared();
    static void setShared(ConfigurationLookup *lookup);
};
