#pragma once

#include "diagnostics/MCPLogMessageType.h"

#include <QDateTime>
#include <QMetaType>
#include <QString>
#include <QUuid>

// One line of the application's log. Long messages carry a shortened form for display
// (head, marker, tail), so the log view stays cheap however large a logged JSON body is.
struct LogEntry {
    QUuid id;
    QDateTime timestamp;
    MCPLogMessageType type = MCPLogMessageType::Info;
    int code = 0;              // 0 and below: no code
    QString message;           // the whole text
    QString truncatedMessage;  // the shortened text, or "" when not shortened
    bool wasTruncated = false;
    QString formattedTimestamp;  // "HH:mm:ss.zzz", local time, fixed at birth

    // A new entry stamped now, shortened where needed.
    static LogEntry make(const QString &message, int code, MCPLogMessageType type);
    static LogEntry make(const QString &message, int code, MCPLogMessageType type, const QDateTime &now);

    // Messages over this many UTF-8 bytes are shortened.
    static constexpr qsizetype maxDisplayBytes = 1024;
    static constexpr qsizetype tailBytes = 128;
    static constexpr qsizetype headFallbackCharacters = 512;
    static constexpr qsizetype tailFallbackCharacters = 64;
    static inline const QString truncationMarker = QStringLiteral(" ...[truncated]... ");

    // The shortened form of message: "" when it fits in maxDisplayBytes.
    static QString shorten(const QString &message);
    // The same entry (id, time, level, code) with another message, shortened
    // for display as a new one would be.
    static LogEntry shortenedCopy(const LogEntry &entry, const QString &message);

    QString label() const { return mcpLogLabel(type); }
    // What the list shows and what the filter searches.
    const QString &displayText() const { return wasTruncated ? truncatedMessage : message; }
    // One line of the plain-text export: time, label, " [code]" for a code of 1 or more,
    // then the whole message.
    QString exportLine() const;
};

Q_DECLARE_METATYPE(LogEntry)
