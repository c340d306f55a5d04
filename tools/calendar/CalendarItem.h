#pragma once

#include <QDateTime>
#include <QString>

// An event (VEVENT) or a reminder (VTODO) as the calendar tools see it. Times are
// instants; an all-day event runs from the local midnight of its first day to that of the
// day after its last, and a reminder due on a day without a time is due at its midnight.
struct CalendarItem {
    QString identifier;  // the UID
    QString collection;  // the identifier of its collection
    QString filePath;    // empty until saved

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
};
