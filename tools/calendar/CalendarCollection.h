#pragma once

#include <QString>

// One collection of a calendar folder tree: a folder of iCalendar files holding either
// events (a calendar) or to-dos (a reminder list).
struct CalendarCollection {
    enum class Kind { Events, Reminders };

    QString identifier;  // the folder's name, stable across runs
    QString title;       // its `displayname` file, or the folder's name without one
    QString path;
    Kind kind = Kind::Events;
    // A folder of both events and to-dos (a synced CalDAV calendar) is listed as a calendar
    // and as a reminder list.
    bool mixed = false;

    // The title of the tree the collection belongs to, shown as its source.
    static QString sourceTitle() { return QStringLiteral("Local"); }
    // The collection's type as the tools show it.
    QString typeName() const { return mixed ? QStringLiteral("local, events and reminders") : QStringLiteral("local"); }
};
