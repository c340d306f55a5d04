#include "tools/scripting/ScriptSourceCache.h"

#include "tools/builtin/Utf8TextFile.h"

#include <QFile>

#include <cerrno>
#include <sys/stat.h>

ScriptSourceCache &ScriptSourceCache::shared()
{
    static auto *cache = new ScriptSourceCache;
    return *cache;
}

ScriptSourceCache::~ScriptSourceCache()
{
    clear();
}

void ScriptSourceCache::clear()
{
    std::lock_guard lock(m_mutex);
    for (const Entry &entry : std::as_const(m_entries))
        JSStringRelease(entry.string);
    m_entries.clear();
}

qsizetype ScriptSourceCache::size() const
{
    std::lock_guard lock(m_mutex);
    return m_entries.size();
}

std::optional<ScriptValue::String> ScriptSourceCache::load(const QString &path, Failure *failure, QString *description)
{
    auto failWith = [&](Failure why) -> std::optional<ScriptValue::String> {
        if (failure)
            *failure = why;
        return std::nullopt;
    };
    struct stat info {};
    if (::stat(QFile::encodeName(path).constData(), &info) != 0) {
        if (errno == ENOENT || errno == ENOTDIR)
            return failWith(Failure::Missing);
        // Anything else (a loop of links, no permission) is for the reader to describe.
    }
    const Stamp stamp{info.st_dev, info.st_ino, info.st_size, info.st_mtim.tv_sec, info.st_mtim.tv_nsec,
                      info.st_ctim.tv_sec, info.st_ctim.tv_nsec};
    if (S_ISREG(info.st_mode)) {
        std::lock_guard lock(m_mutex);
        const auto found = m_entries.constFind(path);
        if (found != m_entries.cend() && found->stamp == stamp)
            return ScriptValue::String(JSStringRetain(found->string));
    }

    // Read after the look: a change while reading gives a newer text under an older stamp,
    // which the next look replaces.
    const std::optional<QString> text = Utf8TextFile::read(path, description);
    if (!text)
        return failWith(Failure::Unreadable);
    ScriptValue::String made(*text);
    if (!S_ISREG(info.st_mode))
        return made;
    std::lock_guard lock(m_mutex);
    auto found = m_entries.find(path);
    if (found != m_entries.end()) {
        JSStringRelease(found->string);
        found->stamp = stamp;
        found->string = JSStringRetain(made.get());
        return made;
    }
    if (m_entries.size() >= maxEntries) {
        // Scripts come and go; forgetting an arbitrary one costs one read at its next call.
        auto victim = m_entries.begin();
        JSStringRelease(victim->string);
        m_entries.erase(victim);
    }
    m_entries.insert(path, Entry{stamp, JSStringRetain(made.get())});
    return made;
}
