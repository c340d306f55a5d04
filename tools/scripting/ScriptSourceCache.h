#pragma once

#include "tools/scripting/ScriptValue.h"

#include <QHash>
#include <QString>
#include <mutex>
#include <optional>
#include <sys/types.h>

// The sources of script calls, kept by path as engine strings until their files change on
// disk. A call looks at the file (one stat) and reads it again only when its device, inode,
// size, modification or status-change time differ from the last read, so an edit is seen by
// the next call while an unchanged file is neither read nor decoded nor copied. Engine
// strings are immutable and may be used by any thread. Any thread.
class ScriptSourceCache {
public:
    static ScriptSourceCache &shared();

    static constexpr qsizetype maxEntries = 64;

    enum class Failure { None, Missing, Unreadable };
    // The file's text as an engine string, or nothing: then `failure` says whether the file
    // is missing or could not be read, and `description` why it could not (Utf8TextFile's
    // words).
    std::optional<ScriptValue::String> load(const QString &path, Failure *failure = nullptr,
                                            QString *description = nullptr);
    // Forgets every kept source.
    void clear();
    qsizetype size() const;

    ~ScriptSourceCache();

private:
    struct Stamp {
        dev_t device = 0;
        ino_t inode = 0;
        off_t size = 0;
        long long modifiedSeconds = 0;
        long modifiedNanoseconds = 0;
        long long changedSeconds = 0;
        long changedNanoseconds = 0;
        bool operator==(const Stamp &) const = default;
    };
    struct Entry {
        Stamp stamp;
        JSStringRef string = nullptr;
    };

    mutable std::mutex m_mutex;
    QHash<QString, Entry> m_entries;
};
