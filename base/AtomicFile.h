#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

// Replaces a file's content in one step: the bytes go to a temporary file beside it, which
// then takes its place, so a failure leaves the old file as it was. What it replaces keeps
// what it was: a symbolic link is written through to its target (the link stays a link),
// and an existing file keeps its permission bits and, where the process may set them, its
// owner and group. A new file gets the permissions the umask gives. Only a regular file is
// replaced: a FIFO, a device, a socket or a folder at the path (or at the end of its link)
// is refused and stays what it is.
class AtomicFile {
public:
    // Nothing on success, else the reason.
    static std::optional<QString> write(const QString &path, const QByteArray &bytes);
    // The file a path finally names: the target of a chain of links (which may not exist
    // yet), or the path itself.
    static QString resolvedTarget(const QString &path);
};
