#include "tools/calendar/CalendarRecurrence.h"

#include <QHash>
#include <QMap>
#include <QSet>
#include <QTimeZone>

#include <algorithm>

namespace {

const QString kUtcKeyFormat = QStringLiteral("yyyyMMdd'T'HHmmss'Z'");
const QString kDayKeyFormat = QStringLiteral("yyyyMMdd");

// Steps of one rule looked at in one call, whatever falls in the range: a rule that repeats
// every second from years back ends here instead of holding the call.
constexpr int kMaxSteps = 200000;

QDate dateOf(const icaltimetype &time)
{
    return QDate(time.year, time.month, time.day);
}

bool overlaps(const QDateTime &start, const QDateTime &end, const QDateTime &from, const QDateTime &to)
{
    // An occurrence of no length counts when it stands inside the range.
    return start == end ? start >= from && start <= to : start < to && end > from;
}

icaltimezone *zoneNamed(const char *tzid, icalcomponent *owner)
{
    if (!tzid || !*tzid)
        return nullptr;
    for (icalcomponent *c = owner; c; c = icalcomponent_get_parent(c)) {
        if (icalcomponent_isa(c) == ICAL_VCALENDAR_COMPONENT) {
            if (icaltimezone *zone = icalcomponent_get_timezone(c, tzid))
                return zone;
            break;
        }
    }
    if (icaltimezone *zone = icaltimezone_get_builtin_timezone(tzid))
        return zone;
    return icaltimezone_get_builtin_timezone_from_tzid(tzid);
}

}  // namespace

bool CalendarRecurrence::isRecurring(icalcomponent *component)
{
    // A rule counts from DTSTART; without one there is nothing to repeat.
    return component && !icalcomponent_get_first_property(component, ICAL_RECURRENCEID_PROPERTY) &&
           icalcomponent_get_first_property(component, ICAL_DTSTART_PROPERTY) &&
           (icalcomponent_get_first_property(component, ICAL_RRULE_PROPERTY) ||
            icalcomponent_get_first_property(component, ICAL_RDATE_PROPERTY));
}

icaltimetype CalendarRecurrence::timeOf(icalproperty *property, icalcomponent *owner)
{
    if (!property)
        return icaltime_null_time();
    icaltimetype time;
    if (icalproperty_isa(property) == ICAL_RDATE_PROPERTY) {
        const icaldatetimeperiodtype value = icalproperty_get_rdate(property);
        time = icaltime_is_null_time(value.time) ? value.period.start : value.time;
    } else {
        const icalvalue *value = icalproperty_get_value(property);
        if (!value)
            return icaltime_null_time();
        time = icalvalue_get_datetime(value);
    }
    if (icaltime_is_null_time(time) || time.is_date || icaltime_is_utc(time))
        return time;
    icalparameter *tzid = icalproperty_get_first_parameter(property, ICAL_TZID_PARAMETER);
    if (tzid) {
        if (icaltimezone *zone = zoneNamed(icalparameter_get_tzid(tzid), owner))
            icaltime_set_timezone(&time, zone);
    }
    return time;
}

QDateTime CalendarRecurrence::instant(const icaltimetype &time)
{
    if (icaltime_is_null_time(time) || !icaltime_is_valid_time(time))
        return {};
    const QDate date = dateOf(time);
    if (time.is_date)
        return QDateTime(date, QTime(0, 0), Qt::LocalTime);
    const QTime clock(time.hour, time.minute, std::min(time.second, 59));
    if (icaltime_is_utc(time))
        return QDateTime(date, clock, Qt::UTC);
    if (const icaltimezone *zone = icaltime_get_timezone(time))
        return QDateTime::fromSecsSinceEpoch(qint64(icaltime_as_timet_with_zone(time, zone)), Qt::UTC);
    return QDateTime(date, clock, Qt::LocalTime);  // floating: the user's own time
}

QString CalendarRecurrence::keyOf(const icaltimetype &time)
{
    if (icaltime_is_null_time(time))
        return {};
    if (time.is_date)
        return dateOf(time).toString(kDayKeyFormat);
    return instant(time).toUTC().toString(kUtcKeyFormat);
}

QDateTime CalendarRecurrence::keyInstant(const QString &key)
{
    if (key.size() == 8) {
        const QDate day = QDate::fromString(key, kDayKeyFormat);
        return day.isValid() ? QDateTime(day, QTime(0, 0), Qt::LocalTime) : QDateTime();
    }
    if (key.size() != 16)
        return {};
    QDateTime time = QDateTime::fromString(key, kUtcKeyFormat);
    time.setTimeSpec(Qt::UTC);
    return time;
}

CalendarRecurrence::TimeForm CalendarRecurrence::formOf(icalcomponent *component, icalproperty_kind kind)
{
    TimeForm form;
    icalproperty *property = component ? icalcomponent_get_first_property(component, kind) : nullptr;
    if (!property) {
        form.utc = true;
        return form;
    }
    const icaltimetype time = timeOf(property, component);
    form.date = time.is_date;
    form.utc = icaltime_is_utc(time);
    if (!form.date && !form.utc) {
        form.zone = const_cast<icaltimezone *>(icaltime_get_timezone(time));
        if (icalparameter *tzid = icalproperty_get_first_parameter(property, ICAL_TZID_PARAMETER))
            form.tzid = icalparameter_get_tzid(tzid);
        if (!form.zone)
            form.tzid.clear();  // a zone no one knows: written floating rather than wrong
    }
    return form;
}

icaltimetype CalendarRecurrence::inForm(const QDateTime &instant, const TimeForm &form)
{
    if (form.date) {
        const QDate day = instant.toLocalTime().date();
        icaltimetype time = icaltime_null_time();
        time.year = day.year();
        time.month = day.month();
        time.day = day.day();
        time.is_date = 1;
        return time;
    }
    if (form.utc)
        return icaltime_from_timet_with_zone(time_t(instant.toSecsSinceEpoch()), 0, icaltimezone_get_utc_timezone());
    if (form.zone)
        return icaltime_from_timet_with_zone(time_t(instant.toSecsSinceEpoch()), 0, form.zone);
    const QDateTime local = instant.toLocalTime();
    icaltimetype time = icaltime_null_time();
    time.year = local.date().year();
    time.month = local.date().month();
    time.day = local.date().day();
    time.hour = local.time().hour();
    time.minute = local.time().minute();
    time.second = local.time().second();
    return time;
}

icalproperty *CalendarRecurrence::newProperty(icalproperty_kind kind, const QDateTime &instant, const TimeForm &form)
{
    icaltimetype time = inForm(instant, form);
    // The zone goes into the TZID parameter; a value that still pointed at one could be
    // written as UTC.
    if (!form.utc)
        time.zone = nullptr;
    icalproperty *property = icalproperty_new(kind);
    icalproperty_set_value(property, time.is_date ? icalvalue_new_date(time) : icalvalue_new_datetime(time));
    if (!form.date && !form.utc && form.zone && !form.tzid.isEmpty())
        icalproperty_add_parameter(property, icalparameter_new_tzid(form.tzid.constData()));
    return property;
}

void CalendarRecurrence::span(icalcomponent *component, QDateTime *start, QDateTime *end)
{
    const icaltimetype first = timeOf(icalcomponent_get_first_property(component, ICAL_DTSTART_PROPERTY), component);
    *start = instant(first);
    const bool todo = icalcomponent_isa(component) == ICAL_VTODO_COMPONENT;
    *end = instant(timeOf(icalcomponent_get_first_property(component, todo ? ICAL_DUE_PROPERTY : ICAL_DTEND_PROPERTY),
                          component));
    if (end->isValid() || !start->isValid())
        return;
    if (icalproperty *duration = icalcomponent_get_first_property(component, ICAL_DURATION_PROPERTY)) {
        *end = start->addSecs(icaldurationtype_as_int(icalproperty_get_duration(duration)));
        return;
    }
    *end = first.is_date ? start->addDays(1) : *start;
}

QList<CalendarRecurrence::Occurrence> CalendarRecurrence::expand(icalcomponent *master,
                                                                 const QList<icalcomponent *> &overrides,
                                                                 const QDateTime &from, const QDateTime &to, int limit,
                                                                 bool *truncated)
{
    QList<Occurrence> result;
    icalproperty *startProperty = icalcomponent_get_first_property(master, ICAL_DTSTART_PROPERTY);
    const icaltimetype dtstart = timeOf(startProperty, master);
    if (icaltime_is_null_time(dtstart))
        return result;
    QDateTime masterStart, masterEnd;
    span(master, &masterStart, &masterEnd);
    // Days stay days and times keep their exact length, across a change of summer time too.
    const qint64 lengthDays = masterStart.date().daysTo(masterEnd.date());
    const qint64 lengthSeconds = masterStart.secsTo(masterEnd);
    const TimeForm form = formOf(master);
    limit = std::max(limit, 0);

    QHash<QString, icalcomponent *> moved;
    for (icalcomponent *override : overrides) {
        const QString key = keyOf(timeOf(icalcomponent_get_first_property(override, ICAL_RECURRENCEID_PROPERTY), override));
        if (!key.isEmpty())
            moved.insert(key, override);
    }
    QSet<QString> excluded;
    QSet<QDate> excludedDays;  // a whole-day EXDATE of a series with times
    for (icalproperty *p = icalcomponent_get_first_property(master, ICAL_EXDATE_PROPERTY); p;
         p = icalcomponent_get_next_property(master, ICAL_EXDATE_PROPERTY)) {
        const icaltimetype time = timeOf(p, master);
        if (time.is_date && !dtstart.is_date)
            excludedDays.insert(dateOf(time));
        else
            excluded.insert(keyOf(time));
    }

    QMap<QString, Occurrence> found;
    bool cut = false;
    const auto consider = [&](icaltimetype time) {
        const QString key = keyOf(time);
        if (key.isEmpty() || excluded.contains(key) || excludedDays.contains(dateOf(time)) || moved.contains(key))
            return;
        const QDateTime start = instant(time);
        const QDateTime end = dtstart.is_date ? start.addDays(lengthDays) : start.addSecs(lengthSeconds);
        if (overlaps(start, end, from, to))
            found.insert(key, Occurrence{key, start, end, master});
    };
    consider(dtstart);  // the first occurrence, whether the rule yields it or not

    for (icalproperty *p = icalcomponent_get_first_property(master, ICAL_RRULE_PROPERTY); p && !cut;
         p = icalcomponent_get_next_property(master, ICAL_RRULE_PROPERTY)) {
        const icalrecurrencetype rule = icalproperty_get_rrule(p);
        icalrecur_iterator *iterator = icalrecur_iterator_new(rule, dtstart);
        if (!iterator)
            continue;
        // Straight to the range, unless the rule counts its occurrences from the first.
        const QDateTime skipTo = dtstart.is_date ? from.addDays(-lengthDays - 1) : from.addSecs(-lengthSeconds - 86400);
        if (rule.count == 0 && skipTo > masterStart)
            icalrecur_iterator_set_start(iterator, inForm(skipTo, form));
        for (int step = 0;; ++step) {
            icaltimetype time = icalrecur_iterator_next(iterator);
            if (icaltime_is_null_time(time))
                break;
            if (step >= kMaxSteps || found.size() > limit) {
                cut = true;
                break;
            }
            if (!time.is_date && dtstart.zone)
                icaltime_set_timezone(&time, dtstart.zone);
            if (instant(time) > to)
                break;
            consider(time);
        }
        icalrecur_iterator_free(iterator);
    }
    for (icalproperty *p = icalcomponent_get_first_property(master, ICAL_RDATE_PROPERTY); p;
         p = icalcomponent_get_next_property(master, ICAL_RDATE_PROPERTY))
        consider(timeOf(p, master));

    for (auto it = moved.begin(); it != moved.end(); ++it) {
        if (excluded.contains(it.key()))
            continue;
        QDateTime start, end;
        span(it.value(), &start, &end);
        if (start.isValid() && overlaps(start, end, from, to))
            found.insert(it.key(), Occurrence{it.key(), start, end, it.value()});
    }
    if (found.size() > limit) {
        cut = true;
        while (found.size() > limit)
            found.erase(std::prev(found.end()));
    }
    if (cut && truncated)
        *truncated = true;
    result.reserve(found.size());
    for (const Occurrence &occurrence : std::as_const(found))
        result.append(occurrence);
    return result;
}
