#include "tools/security/BookmarkController.h"

#include "base/SystemLog.h"
#include "base/UserDefaults.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStringDecoder>

#include <algorithm>
#include <mutex>
#include <unistd.h>

// Holds the controller's lock; the outermost holder sends the change signals collected
// meanwhile once the lock is released, so no receiver ever runs under it.
class BookmarkController::Locker {
public:
    explicit Locker(const BookmarkController *controller)
        : m_controller(const_cast<BookmarkController *>(controller))
    {
        m_controller->m_mutex.lock();
        ++m_controller->m_lockDepth;
    }
    ~Locker()
    {
        if (--m_controller->m_lockDepth > 0) {
            m_controller->m_mutex.unlock();
            return;
        }
        const Pending pending = std::exchange(m_controller->m_pending, Pending{});
        m_controller->m_mutex.unlock();
        m_controller->emitPending(pending);
    }
    Locker(const Locker &) = delete;
    Locker &operator=(const Locker &) = delete;

private:
    BookmarkController *m_controller;
};

namespace {

AppError bookmarkError(int code, const QString &description)
{
    return AppError{QStringLiteral("BookmarkController"), code, description};
}

bool pathExists(const QString &path, bool *isDirectory)
{
    const QFileInfo info(path);
    // A dangling link still is an item at the path.
    if (!info.exists() && !info.isSymLink())
        return false;
    if (isDirectory)
        *isDirectory = info.isDir();
    return true;
}

}  // namespace

BookmarkController *BookmarkController::shared()
{
    static BookmarkController *instance = nullptr;
    static std::once_flag once;
    std::call_once(once, [] {
        auto *controller = new BookmarkController;
        // Made wherever it was first asked for; its queued alert and the views live on
        // the main thread.
        if (auto *app = QCoreApplication::instance(); app && controller->thread() != app->thread())
            controller->moveToThread(app->thread());
        instance = controller;
    });
    return instance;
}

BookmarkController::BookmarkController(QObject *parent)
    : AbstractController(parent)
{
    loadBookmarks();
}

BookmarkController::~BookmarkController() = default;

QList<BookmarkInfo> BookmarkController::bookmarks() const
{
    Locker lock(this);
    return m_bookmarks;
}

int BookmarkController::activeAccessCount() const
{
    Locker lock(this);
    return int(m_activeSecurityScopes.size());
}

bool BookmarkController::hasUnsavedChanges() const
{
    Locker lock(this);
    return m_hasUnsavedChanges;
}

bool BookmarkController::isAccessActive(const QUrl &url) const
{
    Locker lock(this);
    return m_activeSecurityScopes.value(url, false);
}

QString BookmarkController::pathOf(const QUrl &url)
{
    return url.isLocalFile() ? url.toLocalFile() : url.path();
}

QString BookmarkController::lastPathComponent(const QUrl &url)
{
    QString path = pathOf(url);
    while (path.size() > 1 && path.endsWith(QLatin1Char('/')))
        path.chop(1);
    if (path == QLatin1String("/"))
        return path;
    return path.mid(path.lastIndexOf(QLatin1Char('/')) + 1);
}

std::optional<BookmarkInfo> BookmarkController::findBookmark(const QUrl &url) const
{
    const QString path = pathOf(url);
    Locker lock(this);
    for (const BookmarkInfo &info : m_bookmarks) {
        const QString stored = info.path();
        if (stored == path)
            return info;
        const QString prefix = stored.endsWith(QLatin1Char('/')) ? stored : stored + QLatin1Char('/');
        if (path.startsWith(prefix))
            return info;
    }
    return std::nullopt;
}

std::optional<QByteArray> BookmarkController::makeBookmarkData(const QUrl &url, AppError *error)
{
    const QString path = pathOf(url);
    if (!url.isLocalFile() || path.isEmpty() || !QDir::isAbsolutePath(path)) {
        if (error)
            *error = bookmarkError(1, QStringLiteral("'%1' is not the location of a local file.").arg(url.toString()));
        return std::nullopt;
    }
    if (!pathExists(path, nullptr)) {
        if (error)
            *error = bookmarkError(2, QStringLiteral("The file '%1' couldn't be opened because there is no such file.").arg(path));
        return std::nullopt;
    }
    return path.toUtf8();
}

std::optional<BookmarkController::Resolved> BookmarkController::resolveBookmarkData(const QByteArray &data, AppError *error)
{
    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    const QString path = decoder.decode(data);
    if (data.isEmpty() || decoder.hasError() || !QDir::isAbsolutePath(path) || path.contains(QChar(0))) {
        if (error)
            *error = bookmarkError(3, QStringLiteral("The bookmark data is corrupted."));
        return std::nullopt;
    }
    // A path does not go stale: it names the same location for as long as it is stored.
    return Resolved{QUrl::fromLocalFile(path), false};
}

bool BookmarkController::addBookmark(const QUrl &url, const QString &displayName, AppError *error)
{
    Locker lock(this);
    if (findBookmark(url))
        return true;  // a location under a stored folder gets no entry of its own
    const auto data = makeBookmarkData(url, error);
    if (!data)
        return false;
    const QString path = pathOf(url);

    // Read, set, write back: the stored dictionary is the reference, the copy in memory
    // serves the look-ups.
    m_bookmarkData.clear();
    const QVariantMap stored = UserDefaults::standard()->value(bookmarkDataKey).toMap();
    for (auto it = stored.cbegin(); it != stored.cend(); ++it)
        m_bookmarkData.insert(it.key(), it.value().toByteArray());
    m_bookmarkData.insert(path, *data);
    writeDataDictionaryLocked();

    const QString name = displayName.isEmpty() ? lastPathComponent(url) : displayName;
    const QDateTime now = QDateTime::currentDateTimeUtc();
    QList<BookmarkInfo> list = m_bookmarks;
    auto existing = std::find_if(list.begin(), list.end(), [&](const BookmarkInfo &info) { return info.path() == path; });
    if (existing != list.end()) {
        existing->lastAccessedDate = now;
    } else {
        BookmarkInfo info;
        info.id = QUuid::createUuid();
        info.url = url;
        info.displayName = name;
        info.createdDate = now;
        info.lastAccessedDate = now;
        info.isStale = false;
        info.accessCount = 0;
        list.append(info);
    }
    setBookmarksLocked(list);
    return saveBookmarks(error);
}

bool BookmarkController::saveBookmarks(AppError *error)
{
    Locker lock(this);
    auto defaults = UserDefaults::standard();
    defaults->setValue(bookmarkInfoKey, BookmarkInfo::encodeList(m_bookmarks));
    defaults->sync();
    if (defaults->status() != QSettings::NoError) {
        if (error)
            *error = bookmarkError(4, QStringLiteral("The list of granted locations couldn't be saved to '%1'.").arg(defaults->fileName()));
        return false;
    }
    setUnsavedLocked(false);
    return true;
}

void BookmarkController::loadBookmarks()
{
    Locker lock(this);
    m_observeBookmarks = false;
    auto defaults = UserDefaults::standard();

    const QVariant infoValue = defaults->value(bookmarkInfoKey);
    if (infoValue.isValid()) {
        // A list that cannot be decoded leaves `bookmarks` empty until the end of the load.
        setBookmarksLocked(BookmarkInfo::decodeList(infoValue.toByteArray()).value_or(QList<BookmarkInfo>{}));
    }

    m_bookmarkData.clear();
    const QVariantMap stored = defaults->value(bookmarkDataKey).toMap();
    for (auto it = stored.cbegin(); it != stored.cend(); ++it)
        m_bookmarkData.insert(it.key(), it.value().toByteArray());

    QList<BookmarkInfo> kept;
    for (auto it = stored.cbegin(); it != stored.cend(); ++it) {
        const QString path = it.key();
        const auto resolved = resolveBookmarkData(it.value().toByteArray());
        if (!resolved)
            continue;  // dropped from the list for this run
        if (resolved->isStale)
            addBookmark(resolved->url, QString());
        auto entry = std::find_if(m_bookmarks.cbegin(), m_bookmarks.cend(),
                                  [&](const BookmarkInfo &info) { return info.path() == path; });
        if (entry == m_bookmarks.cend())
            continue;
        BookmarkInfo info = *entry;
        info.isStale = resolved->isStale;
        kept.append(info);
        if (!resolved->isStale)
            startAccess(resolved->url);
    }
    std::stable_sort(kept.begin(), kept.end(),
                     [](const BookmarkInfo &a, const BookmarkInfo &b) { return a.displayName < b.displayName; });
    setBookmarksLocked(kept);
    setUnsavedLocked(false);
    m_observeBookmarks = true;
}

std::optional<QUrl> BookmarkController::bookmarkURL(const QUrl &url)
{
    const QString path = pathOf(url);
    Locker lock(this);
    const auto data = m_bookmarkData.constFind(path);
    if (data == m_bookmarkData.cend())
        return std::nullopt;
    AppError error;
    const auto resolved = resolveBookmarkData(*data, &error);
    if (!resolved) {
        SystemLog::write(QStringLiteral("Failed to get URL for ") + path + QStringLiteral(": ") + error.description);
        removeBookmark(url);
        return std::nullopt;
    }
    QList<BookmarkInfo> list = m_bookmarks;
    for (BookmarkInfo &info : list) {
        if (info.path() == path) {
            info.lastAccessedDate = QDateTime::currentDateTimeUtc();
            info.accessCount += 1;
            info.isStale = resolved->isStale;
            setBookmarksLocked(list);
            break;
        }
    }
    return resolved->url;
}

void BookmarkController::removeBookmark(const QUrl &url)
{
    const QString path = pathOf(url);
    Locker lock(this);
    m_bookmarkData.clear();
    const QVariantMap stored = UserDefaults::standard()->value(bookmarkDataKey).toMap();
    for (auto it = stored.cbegin(); it != stored.cend(); ++it)
        m_bookmarkData.insert(it.key(), it.value().toByteArray());
    m_bookmarkData.remove(path);
    writeDataDictionaryLocked();

    QList<BookmarkInfo> list = m_bookmarks;
    list.removeIf([&](const BookmarkInfo &info) { return info.path() == path; });
    if (list.size() != m_bookmarks.size())
        setBookmarksLocked(list);
    saveBookmarks();
}

bool BookmarkController::startAccess(const QUrl &url)
{
    Locker lock(this);
    if (m_activeSecurityScopes.value(url, false))
        return true;
    if (!platformStartAccess(url)) {
        showAlert(QStringLiteral("Error"), QStringLiteral("Failed to start accessing: ") + pathOf(url));
        return false;
    }
    m_activeSecurityScopes.insert(url, true);
    m_pending.activeCount = true;
    return true;
}

void BookmarkController::stopAccess(const QUrl &url)
{
    Locker lock(this);
    if (!m_activeSecurityScopes.value(url, false))
        return;
    m_activeSecurityScopes.remove(url);
    m_pending.activeCount = true;
    platformStopAccess(url);
}

bool BookmarkController::platformStartAccess(const QUrl &) { return true; }

void BookmarkController::platformStopAccess(const QUrl &) {}

QUrl BookmarkController::lookupLocation(const QUrl &url) const
{
    const QString path = pathOf(url);
    bool isDirectory = false;
    if (pathExists(path, &isDirectory) && !isDirectory)
        return QUrl::fromLocalFile(QFileInfo(path).absolutePath());
    return url;
}

bool BookmarkController::beginAccess(const QUrl &url)
{
    const QUrl location = lookupLocation(url);
    Locker lock(this);
    std::optional<QUrl> scoped = bookmarkURL(location);
    if (!scoped)
        scoped = bookmarkURL(url);
    if (!scoped)
        return true;  // nothing stored for it to open; FileAccessPolicy has said whether the work may run
    return startAccess(*scoped);
}

void BookmarkController::endAccess(const QUrl &url)
{
    const QUrl location = lookupLocation(url);
    Locker lock(this);
    std::optional<QUrl> scoped = bookmarkURL(location);
    if (!scoped)
        scoped = bookmarkURL(url);
    stopAccess(scoped.value_or(url));
}

std::optional<HomeFolderAccessNotice> BookmarkController::checkHomeFolderAccess(const QString &homePath)
{
    const QString home = homePath.isEmpty() ? QDir::homePath() : homePath;
    if (::access(QFile::encodeName(home).constData(), R_OK) == 0)
        return std::nullopt;

    // There is no system-wide privacy switch to send the user to on Linux: the folder's
    // permissions, or a Flatpak sandbox without the home folder, are what stand in the way.
    const bool flatpak = !qEnvironmentVariableIsEmpty("FLATPAK_ID") || QFileInfo::exists(QStringLiteral("/.flatpak-info"));
    HomeFolderAccessNotice notice;
    notice.title = QStringLiteral("Home Folder Access Required");
    notice.confirmButton = QStringLiteral("Copy Command");
    notice.cancelButton = QStringLiteral("Cancel");
    if (flatpak) {
        notice.command = QStringLiteral("flatpak override --user --filesystem=home org.tamsel.kelvara");
        notice.text = QStringLiteral("Kelvara needs access to your home folder to read and write files, but its "
                                     "Flatpak sandbox does not include it. Run this command in a terminal and "
                                     "restart Kelvara to grant access:\n\n")
                      + notice.command;
    } else {
        QString quoted = home;
        quoted.replace(QLatin1Char('\''), QStringLiteral("'\\''"));
        notice.command = QStringLiteral("chmod u+rwx '") + quoted + QLatin1Char('\'');
        notice.text = QStringLiteral("Kelvara needs to read your home folder (%1) to read and write files, but its "
                                     "permissions do not allow it. Run this command in a terminal to give your "
                                     "account access again:\n\n")
                          .arg(home)
                      + notice.command;
    }
    return notice;
}

void BookmarkController::setBookmarksLocked(QList<BookmarkInfo> list)
{
    m_bookmarks = std::move(list);
    m_pending.bookmarks = true;
    // The subscription on `bookmarks`: any change after the load counts as unsaved.
    if (m_observeBookmarks)
        setUnsavedLocked(true);
}

void BookmarkController::setUnsavedLocked(bool value)
{
    if (m_hasUnsavedChanges == value)
        return;
    m_hasUnsavedChanges = value;
    m_pending.unsaved = true;
}

void BookmarkController::writeDataDictionaryLocked()
{
    QVariantMap map;
    for (auto it = m_bookmarkData.cbegin(); it != m_bookmarkData.cend(); ++it)
        map.insert(it.key(), it.value());
    auto defaults = UserDefaults::standard();
    defaults->setValue(bookmarkDataKey, map);
    defaults->sync();
}

void BookmarkController::emitPending(const Pending &pending)
{
    if (pending.bookmarks)
        emit bookmarksChanged();
    if (pending.activeCount)
        emit activeAccessCountChanged();
    if (pending.unsaved)
        emit hasUnsavedChangesChanged();
    if (pending.bookmarks || pending.activeCount || pending.unsaved)
        emit changed();
}
