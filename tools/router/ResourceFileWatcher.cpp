#include "tools/router/ResourceFileWatcher.h"

#include "engine/bridge/MCPServerBridge.h"

#include <QDir>
#include <QFileInfo>
#include <QMetaObject>
#include <QPointer>
#include <QUrl>

ResourceFileWatcher::ResourceFileWatcher(MCPServerBridge *bridge, QObject *parent)
    : QObject(parent), m_bridge(bridge)
{
    connect(&m_watcher, &QFileSystemWatcher::fileChanged, this, &ResourceFileWatcher::fileChanged);
    // Called under the engine's subscription lock: only queue the news.
    QPointer<ResourceFileWatcher> self(this);
    m_bridge->setResourceWatch([self](const QString &uri, const QString &type, bool on) {
        if (type != QLatin1String("file") && type != QLatin1String("template"))
            return;
        QMetaObject::invokeMethod(
            self, [self, uri, on] { on ? self->watch(uri) : self->unwatch(uri); }, Qt::QueuedConnection);
    });
}

ResourceFileWatcher::~ResourceFileWatcher()
{
    // Once this returns the engine calls the watch no more.
    m_bridge->setResourceWatch(nullptr);
}

QString ResourceFileWatcher::pathOf(const QString &uri)
{
    const QUrl url(uri);
    const QString path = url.isLocalFile() ? url.toLocalFile() : uri;
    return QDir::cleanPath(QFileInfo(path).absoluteFilePath());
}

QStringList ResourceFileWatcher::watchedPaths() const
{
    return m_watcher.files();
}

void ResourceFileWatcher::watch(const QString &uri)
{
    if (m_pathByUri.contains(uri))
        return;
    const QString path = pathOf(uri);
    m_pathByUri.insert(uri, path);
    QSet<QString> &uris = m_urisByPath[path];
    uris.insert(uri);
    if (uris.size() == 1 && QFileInfo::exists(path))
        m_watcher.addPath(path);
}

void ResourceFileWatcher::unwatch(const QString &uri)
{
    const auto found = m_pathByUri.constFind(uri);
    if (found == m_pathByUri.cend())
        return;
    const QString path = found.value();
    m_pathByUri.erase(found);
    auto uris = m_urisByPath.find(path);
    uris->remove(uri);
    if (uris->isEmpty()) {
        m_urisByPath.erase(uris);
        m_watcher.removePath(path);
    }
}

void ResourceFileWatcher::fileChanged(const QString &path)
{
    const auto uris = m_urisByPath.constFind(path);
    if (uris == m_urisByPath.cend())
        return;
    // A save by rename drops the watch of the old file: the new one is watched in its place.
    if (QFileInfo::exists(path) && !m_watcher.files().contains(path))
        m_watcher.addPath(path);
    for (const QString &uri : uris.value())
        m_bridge->resourceChanged(uri);
}
