#include "tools/scripting/ScriptSourceCache.h"

ScriptSourceCache &ScriptSourceCache::shared()
{
    static auto *cache = new ScriptSourceCache;
    return *cache;
}

ScriptSourceCache::~ScriptSourceCache()
{
    for (const Entry &entry : std::as_const(m_entries))
        JSStringRelease(entry.string);
}

ScriptValue::String ScriptSourceCache::source(const QString &path, const QString &text)
{
    {
        std::lock_guard lock(m_mutex);
        const auto found = m_entries.constFind(path);
        if (found != m_entries.cend() && found->text == text)
            return ScriptValue::String(JSStringRetain(found->string));
    }
    ScriptValue::String made(text);
    std::lock_guard lock(m_mutex);
    auto found = m_entries.find(path);
    if (found != m_entries.end()) {
        JSStringRelease(found->string);
        found->text = text;
        found->string = JSStringRetain(made.get());
        return made;
    }
    if (m_entries.size() >= maxEntries) {
        // Scripts come and go; forgetting an arbitrary one costs one copy at its next call.
        auto victim = m_entries.begin();
        JSStringRelease(victim->string);
        m_entries.erase(victim);
    }
    m_entries.insert(path, Entry{text, JSStringRetain(made.get())});
    return made;
}
