#pragma once

#include "base/AppError.h"
#include "base/AbstractController.h"
#include "tools/security/BookmarkInfo.h"
#include "tools/security/HomeFolderAccessNotice.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QMap>
#include <QRecursiveMutex>
#include <QString>
#include <QUrl>
#include <optional>

// Keeps the user's choices of files and folders outside the application's container as
// security-scoped bookmarks, opens and closes their scopes, and answers the question every
// file operation asks first: is there a stored choice for this path?
//
// On Linux the bookmark bytes are the absolute path in UTF-8, resolving is the identity
// and never stale, and starting access always succeeds; the list keeps its meaning as the
// user's list of granted locations.
//
// Any thread: look-ups come from engine workers while the views read on the main thread,
// so every member is guarded by one recursive lock, and the change signals are sent after
// it is released (queued to the main thread for receivers living there).
class BookmarkController : public AbstractController {
    Q_OBJECT
    Q_PROPERTY(QList<BookmarkInfo> bookmarks READ bookmarks NOTIFY bookmarksChanged)
    Q_PROPERTY(int activeAccessCount READ activeAccessCount NOTIFY activeAccessCountChanged)
    Q_PROPERTY(bool hasUnsavedChanges READ hasUnsavedChanges NOTIFY hasUnsavedChangesChanged)

public:
    static inline const QString bookmarkDataKey = QStringLiteral("SecurityScopedBookmarks");
    static inline const QString bookmarkInfoKey = QStringLiteral("SecurityScopedBookmarkInfo");

    // Process-wide controller, made on first use from any thread and then living on the
    // main thread. It loads the stored choices and opens their scopes.
    static BookmarkController *shared();

    // A controller over the stored choices; loadBookmarks() runs here.
    explicit BookmarkController(QObject *parent = nullptr);
    ~BookmarkController() override;

    QList<BookmarkInfo> bookmarks() const;
    int activeAccessCount() const;
    bool hasUnsavedChanges() const;
    // Whether a scope for exactly this URL is open now.
    bool isAccessActive(const QUrl &url) const;

    // The first entry that covers the URL: same path, or a path below the entry's.
    std::optional<BookmarkInfo> findBookmark(const QUrl &url) const;
    // Stores a choice. Nothing happens when a stored entry already covers the URL.
    bool addBookmark(const QUrl &url, const QString &displayName = QString(), AppError *error = nullptr);
    // Writes the list under "SecurityScopedBookmarkInfo".
    bool saveBookmarks(AppError *error = nullptr);
    // Reads both stores, drops entries without bytes, opens the scopes; sorted by name.
    void loadBookmarks();
    // Resolves the stored bytes of exactly this path and counts the look-up on its entry.
    std::optional<QUrl> bookmarkURL(const QUrl &url);
    // Forgets the location in both stores. An open scope stays open.
    void removeBookmark(const QUrl &url);

    bool startAccess(const QUrl &url);
    void stopAccess(const QUrl &url);
    // What file operations call before and after their work. beginAccess opens the scope
    // of the stored file or of the stored folder the file lies directly in; without one it
    // gives true and opens nothing. Whether the work may touch the path at all is decided
    // before, by FileAccessPolicy over this list.
    bool beginAccess(const QUrl &url);
    void endAccess(const QUrl &url);

    // The start-up check: whether the home folder can be read. When it cannot, what to
    // tell the user and the command that gives access back.
    static std::optional<HomeFolderAccessNotice> checkHomeFolderAccess(const QString &homePath = QString());

    // The platform's bookmark service: the bytes are the absolute path in UTF-8.
    static std::optional<QByteArray> makeBookmarkData(const QUrl &url, AppError *error = nullptr);
    struct Resolved {
        QUrl url;
        bool isStale = false;
    };
    static std::optional<Resolved> resolveBookmarkData(const QByteArray &data, AppError *error = nullptr);
    // The last path component of a location, also for a folder written with a final "/".
    static QString lastPathComponent(const QUrl &url);
    static QString pathOf(const QUrl &url);

signals:
    void bookmarksChanged();
    void activeAccessCountChanged();
    void hasUnsavedChangesChanged();

protected:
    // Opening and closing a scope at the platform; here opening always succeeds. A
    // subclass stands in for a platform that refuses.
    virtual bool platformStartAccess(const QUrl &url);
    virtual void platformStopAccess(const QUrl &url);

private:
    class Locker;
    struct Pending {
        bool bookmarks = false;
        bool activeCount = false;
        bool unsaved = false;
    };

    QUrl lookupLocation(const QUrl &url) const;
    void setBookmarksLocked(QList<BookmarkInfo> list);
    void setUnsavedLocked(bool value);
    void writeDataDictionaryLocked();
    void emitPending(const Pending &pending);

    mutable QRecursiveMutex m_mutex;
    int m_lockDepth = 0;
    Pending m_pending;
    bool m_observeBookmarks = false;  // the subscription: set once the load is done

    QList<BookmarkInfo> m_bookmarks;
    bool m_hasUnsavedChanges = false;
    QHash<QUrl, bool> m_activeSecurityScopes;
    // The dictionary under "SecurityScopedBookmarks", kept in memory so that look-ups from
    // workers do not go through the settings file; written through on every change.
    QMap<QString, QByteArray> m_bookmarkData;
};
