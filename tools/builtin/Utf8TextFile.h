#pragma once

#include <QString>
#include <optional>

// Reads a whole file as strict UTF-8 text, the way every file-reading operation of the
// tools does: an open or read failure, or bytes that are not UTF-8, give no text and a
// description fit for "Failed to read file: " and its kin.
class Utf8TextFile {
public:
    static std::optional<QString> read(const QString &path, QString *errorDescription = nullptr);
};
