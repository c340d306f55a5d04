#pragma once

#include "base/Result.h"
#include "tools/calendar/CalendarCollection.h"
#include "tools/calendar/CalendarItem.h"

#include <libical/ical.h>

#include <QDateTime>
#include <QHash>
#include <memory>
#include <QList>
#include <QString>
#include <QStringList>
#include <mutex>
#include <optional>

// Calendars and reminder lists kept as a vdir tree of iCalendar files:
// <root>/<collection>/<uid>.ics, each collection a folder with an optional `displayname`
// file, holding events (VEVENT) or to-dos (VTODO). Other programs may write the same tree
// (a CalDAV sync tool, a calendar application): every query looks at the files again and
// parses only those whose size or modification time changed since it last read them.
// Writes go to a temporary file that then takes the file's place, and an update keeps
// the properties of the item it does not know.
//
// Which kind a collection holds: the word in its `kelvara-kind` file when there is one
// (collections made here have it), else what its files hold (to-dos make a reminder list);
// an empty collection without the file is a calendar, and one holding both serves as a
// calendar and as a reminder list.
//
// A repeating event is listed as its occurrences in the range, each under the id
// "<uid>@<key>" (see CalendarRecurrence); an update of an occurrence writes an override
// (RECURRENCE-ID) into the series' file, a delete adds an EXDATE, and the UID alone stands
// for the whole series. New files are 0600 and new folders 0700 (PrivateFile).
//
// Any thread: the operations take turns on one lock.
class CalendarStore {
public:
    using Kind = CalendarCollection::Kind;

    explicit CalendarStore(QString root);
    // Over the root of the setting "mcp.calendars.root", by default
    // $XDG_DATA_HOME/Kelvara/Calendars; the root is read again on every call.
    static CalendarStore *shared();
    static QString defaultRoot();
    static QString rootSettingKey() { return QStringLiteral("mcp.calendars.root"); }

    QString root() const;
    void setRoot(const QString &root);

    // In the order of their identifiers.
    QList<CalendarCollection> collections(Kind kind);
    // The collection new items go to: the first one of the kind, or a new one named
    // "Calendar" or "Reminders" when there is none.
    Result<CalendarCollection> defaultCollection(Kind kind);

    // Events that overlap [start, end] in the given collections (all when nullopt), by
    // start time, a repeating one as its occurrences; calendars, when given, receives every
    // calendar of the same look. A series yields at most maxOccurrences; truncated, when
    // given, is set when one had more.
    QList<CalendarItem> events(const QDateTime &start, const QDateTime &end,
                               const std::optional<QStringList> &collections,
                               QList<CalendarCollection> *calendars = nullptr, int maxOccurrences = 10000,
                               bool *truncated = nullptr);
    // Reminders of the given lists (all when nullopt), by title. A repeating to-do shows
    // its occurrences due in the last 30 days and the next one.
    QList<CalendarItem> reminders(const std::optional<QStringList> &collections);
    // The item of that id and kind (a UID, or the id of an occurrence); nullopt when there
    // is none.
    std::optional<CalendarItem> item(const QString &identifier, Kind kind);

    // Failures carry this domain; the description is the reason a tool shows.
    static QString errorDomain() { return QStringLiteral("CalendarStore"); }
    enum ErrorCode {
        Failed = 1,
        Stale = 2,  // the file changed since the item was read: nothing was written, read it again
    };

    // Writes the item into its collection (a new file for a new item, whose identifier is
    // made here when empty); an item whose collection changed moves there.
    Result<void> save(CalendarItem &item, Kind kind);
    Result<void> remove(const CalendarItem &item);

private:
    // A repeating event of a cached file: its components stay in the file's parsed tree.
    struct Series {
        icalcomponent *master = nullptr;
        QList<icalcomponent *> overrides;
        CalendarItem item;
    };
    struct CachedFile {
        qint64 size = -1;
        qint64 modified = 0;
        QList<CalendarItem> events;  // a series here as its first occurrence, `recurring` set
        QList<CalendarItem> reminders;
        QList<Series> series;
        std::shared_ptr<icalcomponent> tree;  // kept only for the series
    };
    struct Folder {
        CalendarCollection collection;
        QStringList files;
        bool hasEvents = false;
        bool hasReminders = false;
    };

    QList<Folder> scan();
    static bool serves(const Folder &folder, Kind kind) { return folder.collection.kind == kind || folder.collection.mixed; }
    const CachedFile &cached(const QString &path, const QString &collection, qint64 size, qint64 modified);
    std::optional<CalendarItem> occurrence(const QString &identifier, Kind kind);
    QList<CalendarItem> currentOccurrences(const Series &series, const QDateTime &now);
    Result<void> saveOccurrence(CalendarItem &item);
    Result<void> removeOccurrence(const CalendarItem &item);
    Result<CalendarCollection> createCollection(const QString &name, Kind kind);

    mutable std::mutex m_mutex;
    QString m_root;
    QHash<QString, CachedFile> m_files;
};
