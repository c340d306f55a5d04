#pragma once

#include <QFileSystemWatcher>
#include <QHash>
#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>

class MCPServerBridge;

// Watches the files of the resources clients subscribe to and tells the bridge when one
// changes, so that each subscribed session hears notifications/resources/updated. A file
// resource and a URI read through a template are watched at the path they are read from; a
// resource of another kind is not watched here (its provider says "changed" through
// MCPServerBridge::resourceChanged). Watches start with a URI's first subscriber and end
// with its last one, its session's end or the server's stop. A file replaced by another
// (an editor's save by rename) stays watched; a file missing at subscription is not.
//
// Lives on the thread that makes it, whose event loop runs the watching; the bridge's news
// come from engine workers and are queued to it.
class ResourceFileWatcher : public QObject {
    Q_OBJECT
public:
    explicit ResourceFileWatcher(MCPServerBridge *bridge, QObject *parent = nullptr);
    ~ResourceFileWatcher() override;

    // The absolute path a file resource's URI is read from: a file: URI's path, else the URI
    // taken as a path, against the working folder.
    static QString pathOf(const QString &uri);
    // The paths watched now.
    QStringList watchedPaths() const;

private:
    void watch(const QString &uri);
    void unwatch(const QString &uri);
    void fileChanged(const QString &path);

    MCPServerBridge *m_bridge;
    QFileSystemWatcher m_watcher;
    QHash<QString, QString> m_pathByUri;
    QHash<QString, QSet<QString>> m_urisByPath;
};
