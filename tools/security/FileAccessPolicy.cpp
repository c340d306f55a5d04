#include "tools/security/FileAccessPolicy.h"

#include "base/AppPaths.h"
#include "base/UserDefaults.h"
#include "tools/security/BookmarkController.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QRegularExpression>

#include <algorithm>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// What the system follows before it gives up with ELOOP.
constexpr int kMaxLinks = 40;

QMutex &scriptSourcesMutex()
{
    static QMutex mutex;
    return mutex;
}

QStringList &scriptSources()
{
    static QStringList folders;
    return folders;
}

QStringList &protectedCode()
{
    static QStringList paths;
    return paths;
}

QString absolutePath(const QString &path)
{
    return QDir::isAbsolutePath(path) ? path : QDir::currentPath() + QLatin1Char('/') + path;
}

QString parentOf(const QString &path)
{
    const qsizetype slash = path.lastIndexOf(QLatin1Char('/'));
    return slash <= 0 ? QStringLiteral("/") : path.left(slash);
}

std::optional<QString> linkTarget(const QByteArray &path)
{
    QByteArray buffer(256, '\0');
    for (;;) {
        const ssize_t length = ::readlink(path.constData(), buffer.data(), size_t(buffer.size()));
        if (length < 0)
            return std::nullopt;
        if (length < buffer.size()) {
            buffer.truncate(length);
            return QFile::decodeName(buffer);
        }
        buffer.resize(buffer.size() * 2);
    }
}

bool isDirectory(const QString &path)
{
    struct stat st {};
    return ::stat(QFile::encodeName(path).constData(), &st) == 0 && S_ISDIR(st.st_mode);
}

// The folder a user would grant to reach the location: the location itself when it is a
// folder, else the nearest existing folder above it.
QString folderToGrant(const QString &resolved)
{
    QString folder = resolved;
    while (folder != QLatin1String("/") && !isDirectory(folder))
        folder = parentOf(folder);
    return folder;
}

// What `require` loads: scripts and JSON data.
bool isModuleName(const QString &path)
{
    return path.endsWith(QLatin1String(".js"), Qt::CaseInsensitive)
           || path.endsWith(QLatin1String(".json"), Qt::CaseInsensitive);
}

}  // namespace

QString FileAccessPolicy::resolvedPath(const QString &path, bool followLast)
{
    if (path.isEmpty())
        return QString();
    // "link/" names the folder the link leads to, whatever is asked.
    if (path.endsWith(QLatin1Char('/')))
        followLast = true;
    QStringList pending = absolutePath(path).split(QLatin1Char('/'), Qt::SkipEmptyParts);
    QStringList done;
    // How many leading components of `done` are known to exist; below a missing one the rest
    // is taken as written, until ".." climbs back to where things exist.
    qsizetype verified = 0;
    int links = 0;
    while (!pending.isEmpty()) {
        const QString part = pending.takeFirst();
        if (part == QLatin1String("."))
            continue;
        if (part == QLatin1String("..")) {
            if (!done.isEmpty())
                done.removeLast();
            verified = std::min(verified, done.size());
            continue;
        }
        done.append(part);
        if (verified != done.size() - 1 || (pending.isEmpty() && !followLast))
            continue;
        const QByteArray here = QFile::encodeName(QLatin1Char('/') + done.join(QLatin1Char('/')));
        struct stat st {};
        if (::lstat(here.constData(), &st) != 0)
            continue;  // missing (or not searchable): the system stops here too
        if (!S_ISLNK(st.st_mode)) {
            verified = done.size();
            continue;
        }
        const std::optional<QString> target = ++links <= kMaxLinks ? linkTarget(here) : std::nullopt;
        if (!target)
            continue;  // a loop: the system refuses to go further as well
        done.removeLast();
        if (target->startsWith(QLatin1Char('/'))) {
            done.clear();
            verified = 0;
        }
        pending = target->split(QLatin1Char('/'), Qt::SkipEmptyParts) + pending;
    }
    return QLatin1Char('/') + done.join(QLatin1Char('/'));
}

bool FileAccessPolicy::isWithin(const QString &path, const QString &folder)
{
    if (folder == QLatin1String("/"))
        return path.startsWith(QLatin1Char('/'));
    return path == folder || (path.startsWith(folder) && path.at(folder.size()) == QLatin1Char('/'));
}

QString FileAccessPolicy::grantCommand(const QString &folder)
{
    static const QRegularExpression plain(QStringLiteral("^[A-Za-z0-9_./@%+=:,-]+$"));
    QString argument = folder;
    if (!plain.match(folder).hasMatch()) {
        argument.replace(QLatin1Char('\''), QStringLiteral("'\\''"));
        argument = QLatin1Char('\'') + argument + QLatin1Char('\'');
    }
    return QStringLiteral("kelvara access grant folder ") + argument;
}

void FileAccessPolicy::addScriptSource(const QString &scriptPath)
{
    if (scriptPath.isEmpty())
        return;
    // The folder of the name and, for a link, of the file it leads to.
    const QStringList folders{parentOf(resolvedPath(scriptPath, false)), parentOf(resolvedPath(scriptPath, true))};
    QMutexLocker lock(&scriptSourcesMutex());
    for (const QString &folder : folders) {
        if (!scriptSources().contains(folder))
            scriptSources().append(folder);
    }
}

void FileAccessPolicy::addProtectedCode(const QString &path)
{
    if (path.isEmpty())
        return;
    const QStringList paths{resolvedPath(path, false), resolvedPath(path, true)};
    QMutexLocker lock(&scriptSourcesMutex());
    for (const QString &code : paths) {
        if (!protectedCode().contains(code))
            protectedCode().append(code);
    }
}

QStringList FileAccessPolicy::scriptSourceFolders()
{
    QMutexLocker lock(&scriptSourcesMutex());
    return scriptSources();
}

QList<FileAccessPolicy::ProtectedLocation> FileAccessPolicy::protectedLocations()
{
    return {
        {resolvedPath(AppPaths::configDir()), QStringLiteral("Kelvara's configuration"), true},
        {resolvedPath(UserDefaults::groupSuitePath()), QStringLiteral("Kelvara's shared configuration"), true},
        {resolvedPath(AppPaths::dataDir()), QStringLiteral("Kelvara's store and exported configuration"), false},
        {resolvedPath(AppPaths::resourcesDir()), QStringLiteral("Kelvara's resources"), false},
    };
}

FileAccessPolicy::Decision FileAccessPolicy::check(const BookmarkController *grants, const QString &path, Intent intent,
                                                   Caller caller)
{
    Decision decision;
    if (path.isEmpty() || path.contains(QChar(0))) {
        decision.denial = QStringLiteral("'%1' is not a valid path.").arg(path);
        return decision;
    }
    const QString followed = resolvedPath(path, true);
    const QString itself = intent == Intent::read ? followed : resolvedPath(path, false);
    decision.resolvedPath = intent == Intent::remove ? itself : followed;
    // Where the operation lands. A write acts on the name given (a temporary file beside
    // it, a rename) and, through a link, on what it leads to: both must be allowed.
    QStringList reached;
    if (intent != Intent::remove)
        reached.append(followed);
    if (intent != Intent::read && !reached.contains(itself))
        reached.append(itself);

    // The path as the caller wrote it, and where it leads when that is not plain to see.
    auto named = [&](const QString &where) {
        return where == path ? QStringLiteral("'%1'").arg(path) : QStringLiteral("'%1' (which leads to '%2')").arg(path, where);
    };
    auto deny = [&](const QString &text) {
        decision.denial = text;
        return decision;
    };

    for (const ProtectedLocation &location : protectedLocations()) {
        for (const QString &where : std::as_const(reached)) {
            if (isWithin(where, location.path)) {
                if (intent != Intent::read)
                    return deny(QStringLiteral("%1 lies in %2 ('%3'), which the tools never change, whatever is granted.")
                                    .arg(named(where), location.what, location.path));
                if (location.unreadable)
                    return deny(QStringLiteral("%1 lies in %2 ('%3'), which the tools never read or change.")
                                    .arg(named(where), location.what, location.path));
            } else if (intent == Intent::remove && isWithin(location.path, where)) {
                return deny(QStringLiteral("%1 holds %2 ('%3'), which the tools never change, whatever is granted.")
                                .arg(named(where), location.what, location.path));
            }
        }
    }
    if (intent != Intent::read) {
        QStringList code;
        {
            QMutexLocker lock(&scriptSourcesMutex());
            code = protectedCode();
        }
        for (const QString &library : std::as_const(code)) {
            for (const QString &where : std::as_const(reached)) {
                if (isWithin(where, library) || (intent == Intent::remove && isWithin(library, where)))
                    return deny(QStringLiteral("%1 is code of a registered plug-in ('%2'); the tools never change it, "
                                               "whatever is granted.")
                                    .arg(named(where), library));
            }
        }
    }
    const QStringList sourceFolders = scriptSourceFolders();
    if (intent != Intent::read) {
        for (const QString &folder : sourceFolders) {
            for (const QString &where : std::as_const(reached)) {
                // What a script may load (its own source, the modules beside and below it),
                // and any folder that holds such a source.
                const bool module = isWithin(where, folder) && isModuleName(where);
                const bool holdsSource = intent == Intent::remove && isWithin(folder, where);
                if (module || holdsSource)
                    return deny(QStringLiteral("%1 may hold code of Kelvara's script tools (their sources lie in '%2'); "
                                               "the tools never change it, whatever is granted.")
                                    .arg(named(where), folder));
            }
        }
    }

    QStringList allowed;
    if (grants) {
        for (const BookmarkInfo &info : grants->bookmarks())
            allowed.append(resolvedPath(info.path()));
    }
    for (const QString &where : std::as_const(reached)) {
        bool covered = std::any_of(allowed.cbegin(), allowed.cend(),
                                   [&](const QString &folder) { return isWithin(where, folder); });
        // Scripts load their modules and the SDK's helpers without a grant.
        if (!covered && caller == Caller::scriptHost && intent == Intent::read) {
            covered = isWithin(where, resolvedPath(AppPaths::resourcesDir()))
                      || (isModuleName(where) && std::any_of(sourceFolders.cbegin(), sourceFolders.cend(),
                                                            [&](const QString &folder) { return isWithin(where, folder); }));
        }
        if (!covered)
            return deny(QStringLiteral("Access to %1 is not granted. Grant its folder in Settings ▸ Security Scopes, or run: ")
                            .arg(named(where))
                        + grantCommand(folderToGrant(where)));
    }
    return decision;
}
