#pragma once

#include "tools/results/JSONToolResult.h"

#include <QString>
#include <QStringList>
#include <QVariantMap>

class BookmarkController;

// The built-in file tools "listFiles", "readFile" and "writeFile". Each operation takes the
// tool call's effective parameters, acts only where FileAccessPolicy allows (inside what the
// user granted, never on Kelvara's own files), brackets its file work with
// beginAccess/endAccess of the security scopes, and gives a JSONToolResult: one text item,
// and structured content with `success` and the operation's fields. Failures are results,
// never exceptions.
//
// Any thread: the operations run on the engine worker that calls them and share nothing
// but the fixed reference to the scopes controller.
class FileAccessHandler {
public:
    static FileAccessHandler *shared();

    // Over the shared scopes controller unless one is given.
    explicit FileAccessHandler(BookmarkController *scManager = nullptr);

    // project_path (string, required), sort ("name", "size", "date"), recursive (bool,
    // default true), extensions (array of patterns such as "swift", ".TXT", "test_*", "*.md").
    JSONToolResult listFiles(const QVariantMap &params) const;
    // file_path (string, required).
    JSONToolResult readFile(const QVariantMap &params) const;
    // file_path and content (strings, required); an existing file is first copied to
    // file_path + ".backup". Only a regular file is replaced: anything else that stands at
    // the path (a FIFO, a device, a folder) is refused before the backup.
    JSONToolResult writeFile(const QVariantMap &params) const;

    // Normalised filter patterns: trimmed, lower-cased, empty ones and non-strings dropped.
    static QStringList normalisedPatterns(const QVariant &extensions);
    // Whether a file name passes the (normalised) patterns; an empty list passes all.
    static bool matchesPatterns(const QString &fileName, const QStringList &patterns);
    // Number of pieces when the text is split at every line-end character.
    static qsizetype lineCount(const QString &text);

private:
    BookmarkController *m_scManager;
};
