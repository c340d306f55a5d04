#include "tools/builtin/Utf8TextFile.h"

#include <QFile>
#include <QFileInfo>
#include <QStringDecoder>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

QString systemDescription(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

}  // namespace

std::optional<QString> Utf8TextFile::read(const QString &path, QString *errorDescription)
{
    // Plain system calls: every script call reads two files, and this is on its path.
    auto fail = [&](const char *what, int error) -> std::optional<QString> {
        if (errorDescription) {
            *errorDescription = QStringLiteral("The file '%1' couldn't be %2: %3")
                                    .arg(QFileInfo(path).fileName(), QLatin1String(what), systemDescription(error));
        }
        return std::nullopt;
    };

    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return fail("opened", errno);
    struct stat st {};
    if (::fstat(fd, &st) != 0) {
        const int error = errno;
        ::close(fd);
        return fail("read", error);
    }
    if (S_ISDIR(st.st_mode)) {
        ::close(fd);
        return fail("read", EISDIR);
    }
    QByteArray data;
    data.reserve(st.st_size > 0 ? qsizetype(st.st_size) : 4096);
    char buffer[16384];
    for (;;) {
        const ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got == 0)
            break;
        if (got < 0) {
            if (errno == EINTR)
                continue;
            const int error = errno;
            ::close(fd);
            return fail("read", error);
        }
        data.append(buffer, qsizetype(got));
    }
    ::close(fd);

    QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = decoder.decode(data);
    if (decoder.hasError()) {
        if (errorDescription)
            *errorDescription = QStringLiteral("The file '%1' couldn't be opened using text encoding Unicode (UTF-8).")
                                    .arg(QFileInfo(path).fileName());
        return std::nullopt;
    }
    return text;
}
