#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

// Reads a whole file as strict UTF-8 text, the way every file-reading operation of the
// tools does: an open or read failure, bytes that are not UTF-8, or a NUL byte (the file is
// not text) give no text and a description fit for "Failed to read file: " and its kin.
// Only regular files are read, and only up to a size: a FIFO, a device or a socket, or a
// file over the limit, is refused at once without reading it.
class Utf8TextFile {
public:
    // The user default of the limit in bytes; 16 MiB when unset or not positive.
    static inline const QString maxReadBytesKey = QStringLiteral("mcp.files.maxReadBytes");
    static constexpr qint64 defaultMaxReadBytes = qint64(16) << 20;
    static qint64 maxReadBytes();

    // How a failure caused by the process's own limits (open files, memory) is worded, and
    // whether a description says so.
    static inline const QString noFilesLeftText = QStringLiteral("the process has no open files left");
    static inline const QString outOfMemoryText = QStringLiteral("the process is out of memory");
    static bool describesProcessLimit(const QString &description);

    // limit: the largest file read; 0 for the configured one. bytesRead: the file's size in
    // bytes, which is the text's size in UTF-8.
    static std::optional<QString> read(const QString &path, QString *errorDescription = nullptr, qint64 limit = 0,
                                       qint64 *bytesRead = nullptr);
    // The file's bytes as they are (an image, say), with the same checks and limit.
    static std::optional<QByteArray> readBytes(const QString &path, QString *errorDescription = nullptr, qint64 limit = 0);
    // "image/png", "image/jpeg", "image/gif" or "image/webp" when the file's first bytes or,
    // failing that, its extension say it is such an image; else empty. Reads at most 12 bytes,
    // and only from a regular file.
    static QString imageMimeType(const QString &path);
};
