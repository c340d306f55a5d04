#include "base/AtomicFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <sys/stat.h>
#include <unistd.h>

QString AtomicFile::resolvedTarget(const QString &path)
{
    QString current = path;
    // A loop of links ends here rather than running for ever; the write then fails on it.
    for (int hops = 0; hops < 40; ++hops) {
        const QFileInfo info(current);
        if (!info.isSymLink())
            return current;
        const QString target = QFile::symLinkTarget(current);
        if (target.isEmpty())
            return current;
        current = QDir::isAbsolutePath(target) ? target : QDir(info.absolutePath()).filePath(target);
    }
    return current;
}

std::optional<QString> AtomicFile::write(const QString &path, const QByteArray &bytes)
{
    const QString target = resolvedTarget(path);
    struct stat before {};
    const bool existed = ::stat(QFile::encodeName(target).constData(), &before) == 0;
    // A FIFO, a device, a socket or a folder is never replaced by a file of the same name.
    if (existed && !S_ISREG(before.st_mode))
        return QStringLiteral("'%1' is not a regular file").arg(path);

    QSaveFile file(target);
    if (!file.open(QIODevice::WriteOnly))
        return file.errorString();
    if (existed) {
        // On the temporary file, before it takes the old one's place: no moment in which
        // the content is readable with wider permissions than before.
        ::fchmod(file.handle(), before.st_mode & 07777);
        if (::fchown(file.handle(), before.st_uid, before.st_gid) != 0) {
            // Not permitted (another owner): the file stays the writer's, mode as before.
        }
    }
    if (file.write(bytes) != bytes.size()) {
        const QString reason = file.errorString();
        file.cancelWriting();
        return reason;
    }
    if (!file.commit())
        return file.errorString();
    return std::nullopt;
}
