#pragma once

#include <QDateTime>
#include <QString>

// An event (VEVENT) or a reminder (VTODO) as the calendar tools see it. Times are
// instants; an all-day event runs from the local midnight of its first day to that of the
// day after its last, and a reminder due on a day without a time is due at its midnight.
struct CalendarItem {
    QString identifier;  // the UID
    // One occurrence of a repeating item: its key (see CalendarRecurrence); empty for a
    // single item or a whole series.
    QString occurrence;
    bool recurring = false;  // a series: RRULE or RDATE
    QString collection;  // the identifier of its collection
    QString filePath;    // empty until saved
    // The file as it was when the item was read: a save refuses to write over a newer one.
    qint64 fileSize = -1;
    qint64 fileModified = 0;  // nanoseconds

    QString title;       // SUMMARY
    bool hasTitle = false;
    QString notes;       // DESCRIPTION
    QString location;    // events
    QString url;         // events

    QDateTime start;     // events
    QDateTime end;       // events
    bool allDay = false; // events

    bool completed = false;  // reminders
    QDateTime due;           // reminders; invalid when there is none

    // The id the tools show: the UID, and for an occurrence "@" and its key.
    QString recordId() const { return occurrence.isEmpty() ? identifier : identifier + u'@' + occurrence; }
};
