#include "base/UserDefaults.h"

#include "base/AppPaths.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <QStandardPaths>

#include <fcntl.h>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>

namespace UserDefaults {

namespace {

// The standard file holds the server's token and the chat's provider keys, so no other
// local user may read it: the file is 0600 in a 0700 folder. QSettings replaces the file
// through QSaveFile, which keeps the permissions of the file it replaces, so making it
// (or tightening it) once before the first use is enough. Done once per path and process.
void keepPrivate(const QString &file, bool tightenFolder)
{
    static std::mutex mutex;
    static QSet<QString> done;
    std::lock_guard lock(mutex);
    if (done.contains(file))
        return;
    done.insert(file);
    const QString folder = QFileInfo(file).absolutePath();
    QDir().mkpath(folder);
    const QByteArray folderPath = QFile::encodeName(folder);
    struct stat info = {};
    if (tightenFolder && ::stat(folderPath.constData(), &info) == 0 && info.st_uid == ::geteuid() &&
        (info.st_mode & 077) != 0)
        ::chmod(folderPath.constData(), info.st_mode & 0700);
    const QByteArray filePath = QFile::encodeName(file);
    const int fd = ::open(filePath.constData(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0600);
    if (fd < 0)
        return;
    if (::fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_uid == ::geteuid() && (info.st_mode & 077) != 0)
        ::fchmod(fd, info.st_mode & 0600);
    ::close(fd);
}

}  // namespace

std::unique_ptr<QSettings> standard()
{
    const QString file = AppPaths::configDir() + QStringLiteral("/Kelvara.conf");
    keepPrivate(file, true);
    return std::make_unique<QSettings>(file, QSettings::IniFormat);
}

QString groupSuitePath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/group.org.tamsel.apps.conf");
}

std::unique_ptr<QSettings> groupSuite()
{
    // The shared folder is the user's configuration home itself; only the file is ours.
    const QString file = groupSuitePath();
    keepPrivate(file, false);
    return std::make_unique<QSettings>(file, QSettings::IniFormat);
}

}  // namespace UserDefaults
