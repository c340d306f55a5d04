#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>

#include <libical/ical.h>

// The occurrences of a repeating event (a VEVENT or VTODO with RRULE or RDATE) and the
// dates of iCalendar properties as instants. A series repeats in its own time zone: the
// zone named by its DTSTART's TZID (a VTIMEZONE of the file, else the system's zone
// database), so a weekly 09:30 in Berlin stays 09:30 there across a change of summer time.
//
// An occurrence is named by its key, its original start (the value its RECURRENCE-ID has
// or would have): yyyyMMddTHHmmssZ in UTC, or yyyyMMdd for a series of whole days. An
// override (a component of the same UID with RECURRENCE-ID) takes the place of the
// occurrence it names, wherever it was moved to.
class CalendarRecurrence {
public:
    struct Occurrence {
        QString key;
        QDateTime start;
        QDateTime end;
        icalcomponent *source = nullptr;  // the master, or the override that replaces it
    };

    // How a series writes its dates: whole days, UTC, a named zone, or floating.
    struct TimeForm {
        bool date = false;
        bool utc = false;
        icaltimezone *zone = nullptr;
        QByteArray tzid;  // as the file spells it
    };

    static bool isRecurring(icalcomponent *component);
    // The property's date with its zone resolved; null when it has none.
    static icaltimetype timeOf(icalproperty *property, icalcomponent *owner);
    // Whole days at local midnight; floating times in the local zone.
    static QDateTime instant(const icaltimetype &time);
    static QString keyOf(const icaltimetype &time);
    // The instant a key names; invalid for no key. A day is its local midnight.
    static QDateTime keyInstant(const QString &key);

    static TimeForm formOf(icalcomponent *component, icalproperty_kind kind = ICAL_DTSTART_PROPERTY);
    // The instant (or, for whole days, its local date) in the form.
    static icaltimetype inForm(const QDateTime &instant, const TimeForm &form);
    // A new property of the kind holding the time in the form, with its TZID.
    static icalproperty *newProperty(icalproperty_kind kind, const QDateTime &instant, const TimeForm &form);

    // Occurrences that overlap [from, to], by key. At most limit of them; truncated is set
    // when the series had more (or more than can be looked at in one go).
    static QList<Occurrence> expand(icalcomponent *master, const QList<icalcomponent *> &overrides,
                                    const QDateTime &from, const QDateTime &to, int limit, bool *truncated);
    // The start and end of one component as read: an end of a day when a whole day has none.
    static void span(icalcomponent *component, QDateTime *start, QDateTime *end);
};
