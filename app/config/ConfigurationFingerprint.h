#pragma once

#include <QByteArray>

class StoreContext;

// What a server started from the store would serve, as bytes that compare equal exactly
// when the served tools, resources, prompts and the server's own row are the same: the
// running server keeps the one of its start and compares it with the one after a save.
//
// Read from the context as it stands, so it stands for the saved configuration only while
// the context holds no pending changes. Main thread only.
class ConfigurationFingerprint {
public:
    static QByteArray ofStore(StoreContext *context);
};
