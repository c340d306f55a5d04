#include "tools/builtin/Utf8TextFile.h"

#include "base/UserDefaults.h"

#include <QFile>
#include <QFileInfo>
#include <QStringDecoder>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Whether the bytes end before a multi-byte sequence does.
bool endsInsideASequence(const char *tail, size_t size)
{
    for (size_t back = 1; back <= size && back <= 4; ++back) {
        const auto byte = static_cast<unsigned char>(tail[size - back]);
        if ((byte & 0xC0) == 0x80)
            continue;  // a continuation byte: its lead is further back
        const size_t length = byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : byte >= 0xC0 ? 2 : 1;
        return length > back;
    }
    return false;
}

QString systemDescription(int error)
{
    // The process's own limits are named as such: the file itself is fine.
    if (error == EMFILE || error == ENFILE)
        return Utf8TextFile::noFilesLeftText + QStringLiteral(" (%1); the file itself may be fine")
                                                   .arg(QString::fromLocal8Bit(std::strerror(error)));
    if (error == ENOMEM)
        return Utf8TextFile::outOfMemoryText;
    return QString::fromLocal8Bit(std::strerror(error));
}

// Reads to the end in 64 KiB chunks, going on after an interrupted read; each chunk goes to
// `take`, which stops the read by returning false. The errno of a failed read, else 0.
template <typename Take>
int readChunks(int fd, Take &&take)
{
    char buffer[65536];
    for (;;) {
        const ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got == 0)
            return 0;
        if (got < 0) {
            if (errno == EINTR)
                continue;
            return errno;
        }
        if (!take(buffer, size_t(got)))
            return 0;
    }
}

}  // namespace

bool Utf8TextFile::describesProcessLimit(const QString &description)
{
    return description.contains(noFilesLeftText) || description.contains(outOfMemoryText);
}

qint64 Utf8TextFile::maxReadBytes()
{
    bool ok = false;
    const qint64 stored = UserDefaults::standard()->value(maxReadBytesKey).toLongLong(&ok);
    return ok && stored > 0 ? stored : defaultMaxReadBytes;
}

std::optional<QString> Utf8TextFile::read(const QString &path, QString *errorDescription, qint64 limit, qint64 *bytesRead)
{
    if (limit <= 0)
        limit = maxReadBytes();
    // Plain system calls: every script call reads two files, and this is on its path.
    auto fail = [&](const char *what, int error) -> std::optional<QString> {
        if (errorDescription) {
            *errorDescription = QStringLiteral("The file '%1' couldn't be %2: %3")
                                    .arg(QFileInfo(path).fileName(), QLatin1String(what), systemDescription(error));
        }
        return std::nullopt;
    };

    // Non-blocking, so that opening a FIFO without a writer does not wait; the type is
    // looked at before anything is read.
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        return fail("opened", errno);
    auto refuse = [&](const QString &why) -> std::optional<QString> {
        ::close(fd);
        if (errorDescription)
            *errorDescription = QStringLiteral("The file '%1' couldn't be read: %2").arg(QFileInfo(path).fileName(), why);
        return std::nullopt;
    };
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
    if (!S_ISREG(st.st_mode))
        return refuse(QStringLiteral("it is not a regular file (a FIFO, a device or a socket)"));
    const QString tooLarge = QStringLiteral("it is larger than %1 bytes, the limit of %2").arg(limit).arg(maxReadBytesKey);
    if (st.st_size > limit)
        return refuse(tooLarge);
    // Decoded as it arrives, so that the bytes and the text are never both held whole: the
    // text (two bytes a character for most) is the largest thing a read keeps.
    QStringDecoder decoder(QStringDecoder::Utf8);
    QString text;
    text.reserve(st.st_size > 0 ? qsizetype(st.st_size) : 4096);
    bool hasNul = false;
    qint64 total = 0;
    char tail[4];
    size_t tailSize = 0;
    bool grew = false;
    const int readError = readChunks(fd, [&](const char *chunk, size_t got) {
        total += qint64(got);
        if (total > limit) {
            grew = true;
            return false;
        }
        // A NUL byte is valid UTF-8 but no text: the engine would cut the text there.
        hasNul = hasNul || std::memchr(chunk, 0, got) != nullptr;
        text.append(decoder(QByteArrayView(chunk, qsizetype(got))));
        // The last bytes, to see whether the file ends inside a sequence the decoder holds.
        tailSize = std::min(got, sizeof tail);
        std::memcpy(tail, chunk + got - tailSize, tailSize);
        return true;
    });
    if (readError) {
        ::close(fd);
        return fail("read", readError);
    }
    if (grew)
        return refuse(tooLarge);  // it grew while being read
    ::close(fd);
    if (decoder.hasError() || hasNul || endsInsideASequence(tail, tailSize)) {
        if (errorDescription)
            *errorDescription = QStringLiteral("The file '%1' couldn't be opened using text encoding Unicode (UTF-8).")
                                    .arg(QFileInfo(path).fileName());
        return std::nullopt;
    }
    text.squeeze();
    if (bytesRead)
        *bytesRead = total;
    return text;
}

std::optional<QByteArray> Utf8TextFile::readBytes(const QString &path, QString *errorDescription, qint64 limit)
{
    if (limit <= 0)
        limit = maxReadBytes();
    const QString name = QFileInfo(path).fileName();
    auto fail = [&](const QString &why) -> std::optional<QByteArray> {
        if (errorDescription)
            *errorDescription = QStringLiteral("The file '%1' couldn't be read: %2").arg(name, why);
        return std::nullopt;
    };
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
        return fail(systemDescription(errno));
    struct stat st {};
    const bool stated = ::fstat(fd, &st) == 0;
    const int statError = errno;
    if (!stated || !S_ISREG(st.st_mode) || st.st_size > limit) {
        ::close(fd);
        if (!stated)
            return fail(systemDescription(statError));
        if (S_ISDIR(st.st_mode))
            return fail(systemDescription(EISDIR));
        if (!S_ISREG(st.st_mode))
            return fail(QStringLiteral("it is not a regular file (a FIFO, a device or a socket)"));
        return fail(QStringLiteral("it is larger than %1 bytes, the limit of %2").arg(limit).arg(maxReadBytesKey));
    }
    QByteArray bytes;
    bytes.reserve(qsizetype(st.st_size));
    bool grew = false;
    const int readError = readChunks(fd, [&](const char *chunk, size_t got) {
        grew = bytes.size() + qint64(got) > limit;
        if (!grew)
            bytes.append(chunk, qsizetype(got));
        return !grew;
    });
    ::close(fd);
    if (readError)
        return fail(systemDescription(readError));
    if (grew)
        return fail(QStringLiteral("it is larger than %1 bytes, the limit of %2").arg(limit).arg(maxReadBytesKey));
    return bytes;
}

QString Utf8TextFile::imageMimeType(const QString &path)
{
    char head[12] = {};
    ssize_t got = 0;
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd >= 0) {
        struct stat st {};
        if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode))
            got = ::read(fd, head, sizeof head);
        ::close(fd);
    }
    const QByteArrayView bytes(head, got > 0 ? qsizetype(got) : 0);
    if (bytes.startsWith("\x89PNG\r\n\x1a\n"))
        return QStringLiteral("image/png");
    if (bytes.startsWith("\xff\xd8\xff"))
        return QStringLiteral("image/jpeg");
    if (bytes.startsWith("GIF87a") || bytes.startsWith("GIF89a"))
        return QStringLiteral("image/gif");
    if (bytes.size() >= 12 && bytes.startsWith("RIFF") && bytes.sliced(8, 4) == QByteArrayView("WEBP"))
        return QStringLiteral("image/webp");
    if (fd < 0)
        return QString();
    const QString suffix = QFileInfo(path).suffix().toLower();
    if (suffix == QLatin1String("png"))
        return QStringLiteral("image/png");
    if (suffix == QLatin1String("jpg") || suffix == QLatin1String("jpeg"))
        return QStringLiteral("image/jpeg");
    if (suffix == QLatin1String("gif"))
        return QStringLiteral("image/gif");
    if (suffix == QLatin1String("webp"))
        return QStringLiteral("image/webp");
    return QString();
}
