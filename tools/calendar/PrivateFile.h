#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

// Files of personal data (calendars, contacts): readable by their owner only when Kelvara
// makes them, as calendar and address-book programs do. A new file is written whole under
// a temporary name with mode 0600 and then linked into place, so no one ever sees it half
// written or with wider permissions; an existing file is replaced atomically and keeps its
// mode and owner. Folders made here are 0700; existing ones are left as they are.
class PrivateFile {
public:
    // Nothing on success, else the reason.
    static std::optional<QString> write(const QString &path, const QByteArray &bytes);
    // Makes the folder and its missing parents; false when one can't be made.
    static bool makeFolder(const QString &path);
};
