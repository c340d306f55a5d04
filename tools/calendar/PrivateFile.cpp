#include "tools/calendar/PrivateFile.h"

#include "base/AtomicFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryFile>

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

std::optional<QString> PrivateFile::write(const QString &path, const QByteArray &bytes)
{
    const QFileInfo info(path);
    if (info.exists() || info.isSymLink())
        return AtomicFile::write(path, bytes);
    if (!makeFolder(info.absolutePath()))
        return QStringLiteral("The folder '%1' could not be created.").arg(info.absolutePath());
    // QTemporaryFile makes its file 0600, whatever the umask.
    QTemporaryFile temporary(info.absoluteFilePath() + QStringLiteral(".XXXXXX"));
    if (!temporary.open())
        return temporary.errorString();
    if (temporary.write(bytes) != bytes.size() || !temporary.flush() || ::fsync(temporary.handle()) != 0)
        return temporary.errorString();
    const QByteArray from = QFile::encodeName(temporary.fileName());
    const QByteArray to = QFile::encodeName(info.absoluteFilePath());
    // link() never replaces: a file another program made meanwhile is replaced the careful way.
    if (::link(from.constData(), to.constData()) == 0)
        return std::nullopt;  // the temporary name goes with `temporary`
    if (errno == EEXIST)
        return AtomicFile::write(path, bytes);
    // A file system without hard links: renamed, never over a file that is there.
    if (temporary.rename(info.absoluteFilePath())) {
        temporary.setAutoRemove(false);
        return std::nullopt;
    }
    if (QFileInfo::exists(info.absoluteFilePath()))
        return AtomicFile::write(path, bytes);
    return temporary.errorString();
}

bool PrivateFile::makeFolder(const QString &path)
{
    const QString absolute = QDir::cleanPath(QFileInfo(path).absoluteFilePath());
    if (QFileInfo(absolute).isDir())
        return true;
    const QString parent = QFileInfo(absolute).absolutePath();
    if (parent != absolute && !makeFolder(parent))
        return false;
    if (::mkdir(QFile::encodeName(absolute).constData(), 0700) == 0)
        return true;
    return errno == EEXIST && QFileInfo(absolute).isDir();
}
