#pragma once

#include "tools/scripting/ScriptValue.h"

#include <QHash>
#include <QString>
#include <mutex>

// Engine strings of the sources read for script calls, by path. Every call still reads its
// files; when the text is what it was last time, the engine string made then is used again
// instead of copying the text into a new one. Engine strings are immutable and may be used
// by any thread. Any thread.
class ScriptSourceCache {
public:
    static ScriptSourceCache &shared();

    static constexpr qsizetype maxEntries = 64;

    // An engine string holding `text`, read from `path`.
    ScriptValue::String source(const QString &path, const QString &text);

    ~ScriptSourceCache();

private:
    struct Entry {
        QString text;
        JSStringRef string = nullptr;
    };

    std::mutex m_mutex;
    QHash<QString, Entry> m_entries;
};
