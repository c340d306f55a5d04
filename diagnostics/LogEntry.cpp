#include "diagnostics/LogEntry.h"

#include <atomic>
#include <limits>

#include <QTextBoundaryFinder>

namespace {

// Strict UTF-8 check; a cut through a multi-byte sequence, at either end, fails it.
bool isValidUtf8(const char *data, qsizetype size)
{
    const auto *p = reinterpret_cast<const unsigned char *>(data);
    qsizetype i = 0;
    while (i < size) {
        const unsigned char c = p[i];
        int extra;
        unsigned int minValue;
        if (c < 0x80) {
            ++i;
            continue;
        } else if ((c & 0xE0) == 0xC0) {
            extra = 1;
            minValue = 0x80;
        } else if ((c & 0xF0) == 0xE0) {
            extra = 2;
            minValue = 0x800;
        } else if ((c & 0xF8) == 0xF0) {
            extra = 3;
            minValue = 0x10000;
        } else {
            return false;
        }
        if (i + extra >= size)  // sequence runs past the end
            return false;
        unsigned int value = c & (0x3F >> extra);
        for (int k = 1; k <= extra; ++k) {
            const unsigned char cc = p[i + k];
            if ((cc & 0xC0) != 0x80)
                return false;
            value = (value << 6) | (cc & 0x3F);
        }
        if (value < minValue || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF))
            return false;
        i += extra + 1;
    }
    return true;
}

// Position after the first `count` user-perceived characters (grapheme clusters) of text,
// or text.size() when it has fewer. Looks at a window first, since messages can be large.
qsizetype headCharactersEnd(const QString &text, qsizetype count)
{
    auto scan = [count](const QString &window, bool whole) -> qsizetype {
        QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, window);
        qsizetype found = 0;
        qsizetype pos = 0;
        while (found < count) {
            pos = finder.toNextBoundary();
            if (pos < 0)
                return whole ? window.size() : -1;
            if (!whole && pos >= window.size())
                return -1;  // the window's end is no real boundary
            ++found;
        }
        return pos;
    };
    const qsizetype window = count * 8;
    if (text.size() > window) {
        const qsizetype pos = scan(text.left(window), false);
        if (pos >= 0)
            return pos;
    }
    return scan(text, true);
}

// Position where the last `count` grapheme clusters of text begin (0 when it has fewer).
qsizetype tailCharactersStart(const QString &text, qsizetype count)
{
    auto scan = [count](const QString &window, bool whole) -> qsizetype {
        QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, window);
        finder.toEnd();
        qsizetype found = 0;
        qsizetype pos = window.size();
        while (found < count) {
            pos = finder.toPreviousBoundary();
            if (pos < 0)
                return whole ? 0 : -1;
            if (!whole && pos <= 0)
                return -1;
            ++found;
        }
        return pos;
    };
    const qsizetype window = count * 8;
    if (text.size() > window) {
        const qsizetype pos = scan(text.right(window), false);
        if (pos >= 0)
            return text.size() - window + pos;
    }
    return scan(text, true);
}

// The local time now. Asking the C library for the local time re-reads the zone file on
// every call, which a busy server's log does dozens of times a request; the offset is
// looked up once a second instead.
QDateTime localNow()
{
    static std::atomic<qint64> offsetValidUntil{std::numeric_limits<qint64>::min()};
    static std::atomic<int> offsetSeconds{0};
    const QDateTime utc = QDateTime::currentDateTimeUtc();
    const qint64 second = utc.toSecsSinceEpoch();
    if (second >= offsetValidUntil.load(std::memory_order_acquire)) {
        offsetSeconds.store(utc.toLocalTime().offsetFromUtc(), std::memory_order_relaxed);
        offsetValidUntil.store(second + 1, std::memory_order_release);
    }
    return utc.toOffsetFromUtc(offsetSeconds.load(std::memory_order_relaxed));
}

}  // namespace

LogEntry LogEntry::make(const QString &message, int code, MCPLogMessageType type)
{
    return make(message, code, type, localNow());
}

LogEntry LogEntry::make(const QString &message, int code, MCPLogMessageType type, const QDateTime &now)
{
    LogEntry entry;
    entry.id = QUuid::createUuid();
    entry.timestamp = now;
    // A time that carries its own offset already reads as the local clock.
    const QDateTime local = now.timeSpec() == Qt::OffsetFromUTC ? now : now.toLocalTime();
    entry.formattedTimestamp = local.toString(QStringLiteral("HH:mm:ss.zzz"));
    entry.type = type;
    entry.code = code;
    entry.message = message;
    entry.truncatedMessage = shorten(message);
    entry.wasTruncated = !entry.truncatedMessage.isEmpty();
    return entry;
}

LogEntry LogEntry::shortenedCopy(const LogEntry &entry, const QString &message)
{
    LogEntry copy = entry;
    copy.message = message;
    copy.truncatedMessage = shorten(message);
    copy.wasTruncated = !copy.truncatedMessage.isEmpty();
    return copy;
}

QString LogEntry::shorten(const QString &message)
{
    // Fast exit: even at 3 bytes per UTF-16 unit the text fits.
    if (message.size() * 3 <= maxDisplayBytes)
        return QString();
    const QByteArray utf8 = message.toUtf8();
    if (utf8.size() <= maxDisplayBytes)
        return QString();

    QString head;
    if (isValidUtf8(utf8.constData(), maxDisplayBytes))
        head = QString::fromUtf8(utf8.constData(), maxDisplayBytes);
    else
        head = message.left(headCharactersEnd(message, headFallbackCharacters));

    QString tail;
    const char *tailStart = utf8.constData() + utf8.size() - tailBytes;
    if (isValidUtf8(tailStart, tailBytes))
        tail = QString::fromUtf8(tailStart, tailBytes);
    else
        tail = message.mid(tailCharactersStart(message, tailFallbackCharacters));

    return head + truncationMarker + tail;
}

QString LogEntry::exportLine() const
{
    QString line = formattedTimestamp + QLatin1Char(' ') + label();
    if (code >= 1)
        line += QStringLiteral(" [") + QString::number(code) + QLatin1Char(']');
    return line + QLatin1Char(' ') + message;
}
