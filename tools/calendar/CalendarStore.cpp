#include "tools/calendar/CalendarStore.h"

#include "base/AppPaths.h"
#include "base/AtomicFile.h"
#include "base/UserDefaults.h"
#include "tools/calendar/CalendarFileText.h"
#include "tools/calendar/CalendarRecurrence.h"
#include "tools/calendar/PrivateFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTimeZone>
#include <QUuid>

#include <algorithm>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <libical/ical.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString kKindFile = QStringLiteral("kelvara-kind");
const QString kDisplayNameFile = QStringLiteral("displayname");

// Owns one parsed component tree.
struct Component {
    icalcomponent *root = nullptr;
    explicit Component(icalcomponent *c = nullptr) : root(c) {}
    ~Component()
    {
        if (root)
            icalcomponent_free(root);
    }
    Component(const Component &) = delete;
    Component &operator=(const Component &) = delete;
};

QString text(const char *value)
{
    return value ? QString::fromUtf8(value) : QString();
}

icaltimetype utcTime(const QDateTime &instant)
{
    return icaltime_from_timet_with_zone(time_t(instant.toSecsSinceEpoch()), 0, icaltimezone_get_utc_timezone());
}

icaltimetype dateOnly(const QDate &date)
{
    icaltimetype time = icaltime_null_time();
    time.year = date.year();
    time.month = date.month();
    time.day = date.day();
    time.is_date = 1;
    return time;
}

QString urlOf(icalcomponent *component)
{
    icalproperty *property = icalcomponent_get_first_property(component, ICAL_URL_PROPERTY);
    return property ? text(icalproperty_get_url(property)) : QString();
}

CalendarItem readItem(icalcomponent *component, const QString &collection, const QString &path)
{
    CalendarItem item;
    item.identifier = text(icalcomponent_get_uid(component));
    item.collection = collection;
    item.filePath = path;
    const char *summary = icalcomponent_get_summary(component);
    item.hasTitle = summary != nullptr;
    item.title = text(summary);
    item.notes = text(icalcomponent_get_description(component));
    if (icalcomponent_isa(component) == ICAL_VEVENT_COMPONENT) {
        item.location = text(icalcomponent_get_location(component));
        item.url = urlOf(component);
        icalproperty *start = icalcomponent_get_first_property(component, ICAL_DTSTART_PROPERTY);
        item.allDay = CalendarRecurrence::timeOf(start, component).is_date;
        CalendarRecurrence::span(component, &item.start, &item.end);
    } else {
        item.completed = icalcomponent_get_status(component) == ICAL_STATUS_COMPLETED ||
                         icalcomponent_get_first_property(component, ICAL_COMPLETED_PROPERTY) != nullptr;
        item.due = CalendarRecurrence::instant(
            CalendarRecurrence::timeOf(icalcomponent_get_first_property(component, ICAL_DUE_PROPERTY), component));
    }
    return item;
}

// The master item of each UID: overrides of single occurrences (RECURRENCE-ID) are skipped.
// A file of several calendars parses into an XROOT that holds them.
template <typename Fn>
void forEachItem(icalcomponent *root, icalcomponent_kind kind, Fn &&fn)
{
    if (!root)
        return;
    const icalcomponent_kind rootKind = icalcomponent_isa(root);
    if (rootKind == kind) {
        fn(root);
        return;
    }
    if (rootKind == ICAL_XROOT_COMPONENT) {
        for (icalcomponent *inner = icalcomponent_get_first_component(root, ICAL_VCALENDAR_COMPONENT); inner;
             inner = icalcomponent_get_next_component(root, ICAL_VCALENDAR_COMPONENT))
            forEachItem(inner, kind, fn);
        return;
    }
    for (icalcomponent *c = icalcomponent_get_first_component(root, kind); c;
         c = icalcomponent_get_next_component(root, kind)) {
        if (!icalcomponent_get_first_property(c, ICAL_RECURRENCEID_PROPERTY))
            fn(c);
    }
}

// Every component of the kind, overrides too.
template <typename Fn>
void forEachComponent(icalcomponent *root, icalcomponent_kind kind, Fn &&fn)
{
    if (!root)
        return;
    if (icalcomponent_isa(root) == kind) {
        fn(root);
        return;
    }
    const icalcomponent_kind inner = icalcomponent_isa(root) == ICAL_XROOT_COMPONENT ? ICAL_VCALENDAR_COMPONENT : kind;
    for (icalcomponent *c = icalcomponent_get_first_component(root, inner); c;
         c = icalcomponent_get_next_component(root, inner))
        forEachComponent(c, kind, fn);
}

// An override as an item of its series' file.
CalendarItem overrideItem(icalcomponent *override, const CalendarItem &series)
{
    CalendarItem item = readItem(override, series.collection, series.filePath);
    item.fileSize = series.fileSize;
    item.fileModified = series.fileModified;
    return item;
}

void removeAll(icalcomponent *component, icalproperty_kind kind)
{
    while (icalproperty *property = icalcomponent_get_first_property(component, kind)) {
        icalcomponent_remove_property(component, property);
        icalproperty_free(property);
    }
}

// The property with the value; one that already says it stays as it is, with its
// parameters (LANGUAGE, ALTREP) and its place.
void setText(icalcomponent *component, icalproperty_kind kind, const QString &value,
             icalproperty *(*make)(const char *))
{
    icalproperty *present = icalcomponent_get_first_property(component, kind);
    if (present && !icalcomponent_get_next_property(component, kind) && !value.isEmpty()) {
        icalproperty *fresh = make(value.toUtf8().constData());
        const char *now = icalproperty_get_value_as_string(present);
        const char *then = icalproperty_get_value_as_string(fresh);
        if (!now || !then || std::strcmp(now, then) != 0)
            icalproperty_set_value(present, icalvalue_new_clone(icalproperty_get_value(fresh)));
        icalproperty_free(fresh);
        return;
    }
    removeAll(component, kind);
    if (!value.isEmpty())
        icalcomponent_add_property(component, make(value.toUtf8().constData()));
}

// Writes the item's fields into its component; what the item does not know stays. The
// dates are written only when they changed from before (always without it), in the form
// the component had: its zone, UTC or floating.
void writeItem(icalcomponent *component, const CalendarItem &item, const CalendarItem *before,
               CalendarRecurrence::TimeForm form)
{
    removeAll(component, ICAL_DTSTAMP_PROPERTY);
    icalcomponent_add_property(component, icalproperty_new_dtstamp(utcTime(QDateTime::currentDateTimeUtc())));
    if (item.hasTitle && !item.title.isEmpty()) {
        setText(component, ICAL_SUMMARY_PROPERTY, item.title, icalproperty_new_summary);
    } else {
        removeAll(component, ICAL_SUMMARY_PROPERTY);
        if (item.hasTitle)
            icalcomponent_add_property(component, icalproperty_new_summary(""));
    }
    setText(component, ICAL_DESCRIPTION_PROPERTY, item.notes, icalproperty_new_description);
    if (icalcomponent_isa(component) == ICAL_VEVENT_COMPONENT) {
        setText(component, ICAL_LOCATION_PROPERTY, item.location, icalproperty_new_location);
        setText(component, ICAL_URL_PROPERTY, item.url, icalproperty_new_url);
        if (before && before->start == item.start && before->end == item.end && before->allDay == item.allDay)
            return;
        removeAll(component, ICAL_DTSTART_PROPERTY);
        removeAll(component, ICAL_DTEND_PROPERTY);
        removeAll(component, ICAL_DURATION_PROPERTY);
        if (item.allDay) {
            // Whole days: the first day and the day after the last, both local dates.
            const QDate first = item.start.toLocalTime().date();
            const QDateTime localEnd = item.end.toLocalTime();
            QDate after = localEnd.date();
            if (localEnd.time() != QTime(0, 0) || after <= first)
                after = std::max(after, first).addDays(1);
            icalcomponent_add_property(component, icalproperty_new_dtstart(dateOnly(first)));
            icalcomponent_add_property(component, icalproperty_new_dtend(dateOnly(after)));
        } else {
            if (form.date)
                form = CalendarRecurrence::TimeForm{false, true, nullptr, {}};
            icalcomponent_add_property(component, CalendarRecurrence::newProperty(ICAL_DTSTART_PROPERTY, item.start, form));
            icalcomponent_add_property(component, CalendarRecurrence::newProperty(ICAL_DTEND_PROPERTY, item.end, form));
        }
        return;
    }
    // Only what changed: a title edit leaves the status and the due date as they were written.
    if (!before || before->completed != item.completed) {
        removeAll(component, ICAL_STATUS_PROPERTY);
        removeAll(component, ICAL_COMPLETED_PROPERTY);
        removeAll(component, ICAL_PERCENTCOMPLETE_PROPERTY);
        if (item.completed) {
            icalcomponent_add_property(component, icalproperty_new_status(ICAL_STATUS_COMPLETED));
            icalcomponent_add_property(component, icalproperty_new_completed(utcTime(QDateTime::currentDateTimeUtc())));
            icalcomponent_add_property(component, icalproperty_new_percentcomplete(100));
        } else {
            icalcomponent_add_property(component, icalproperty_new_status(ICAL_STATUS_NEEDSACTION));
        }
    }
    if (!before || before->due != item.due) {
        // A due date keeps the form it had: its zone, or a day when it still falls on a midnight.
        CalendarRecurrence::TimeForm dueForm = CalendarRecurrence::formOf(component, ICAL_DUE_PROPERTY);
        if (dueForm.date && item.due.isValid() && item.due.toLocalTime().time() != QTime(0, 0))
            dueForm = CalendarRecurrence::TimeForm{false, true, nullptr, {}};
        removeAll(component, ICAL_DUE_PROPERTY);
        if (item.due.isValid())
            icalcomponent_add_property(component, CalendarRecurrence::newProperty(ICAL_DUE_PROPERTY, item.due, dueForm));
    }
}

QByteArray readBytes(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    // Calendar files are small; a runaway one is not read whole.
    return file.read(16 << 20);
}

// The file as the store reads it: an item without UID has its id as one (written with the
// first change of the file).
QByteArray readNamed(const QString &path)
{
    return CalendarFileText::withUids(readBytes(path), QFileInfo(path).completeBaseName());
}

icalcomponent *parse(const QByteArray &bytes)
{
    if (bytes.isEmpty())
        return nullptr;
    return icalparser_parse_string(bytes.constData());
}

// The files of a folder whose names end in the suffix, by name, with their size and
// modification time: one readdir pass and one fstatat each, cheaper than QFileInfo when a
// calendar holds thousands of files and every call looks at all of them.
struct FileStatus {
    QString path;
    qint64 size = 0;
    qint64 modified = 0;  // nanoseconds
};

QList<FileStatus> listFiles(const QString &folder, const char *suffix)
{
    QList<FileStatus> files;
    const QByteArray encoded = QFile::encodeName(folder);
    const int dirFd = ::open(encoded.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dirFd < 0)
        return files;
    DIR *dir = ::fdopendir(dirFd);
    if (!dir) {
        ::close(dirFd);
        return files;
    }
    const size_t suffixLength = std::strlen(suffix);
    std::vector<std::pair<std::string, FileStatus>> found;
    while (const dirent *entry = ::readdir(dir)) {
        const size_t length = std::strlen(entry->d_name);
        if (length <= suffixLength || std::strcmp(entry->d_name + length - suffixLength, suffix) != 0)
            continue;
        struct stat status {};
        if (::fstatat(dirFd, entry->d_name, &status, 0) != 0 || !S_ISREG(status.st_mode))
            continue;
        FileStatus file;
        file.size = status.st_size;
        file.modified = qint64(status.st_mtim.tv_sec) * 1000000000 + status.st_mtim.tv_nsec;
        found.emplace_back(entry->d_name, file);
    }
    ::closedir(dir);
    std::sort(found.begin(), found.end(), [](const auto &a, const auto &b) { return a.first < b.first; });
    files.reserve(qsizetype(found.size()));
    const QString prefix = folder + u'/';
    for (auto &[name, file] : found) {
        file.path = prefix + QFile::decodeName(QByteArray::fromStdString(name));
        files.append(std::move(file));
    }
    return files;
}

// The size and modification time of a file as the folder look reads them; nullopt when it
// is gone.
std::optional<std::pair<qint64, qint64>> statusOf(const QString &path)
{
    struct stat status {};
    if (::stat(QFile::encodeName(path).constData(), &status) != 0)
        return std::nullopt;
    return std::pair{qint64(status.st_size), qint64(status.st_mtim.tv_sec) * 1000000000 + status.st_mtim.tv_nsec};
}

// A series moved as a whole takes its exceptions along: the overrides' RECURRENCE-IDs and
// the EXDATEs name the occurrences by their start, which moved by the same time.
void shiftOccurrenceNames(icalcomponent *root, icalcomponent *master, const QDateTime &from, const QDateTime &to,
                          const CalendarRecurrence::TimeForm &oldForm)
{
    const CalendarRecurrence::TimeForm form = CalendarRecurrence::formOf(master);
    if (form.date != oldForm.date)
        return;  // days became times or the other way round: no occurrence keeps its name
    const qint64 days = from.date().daysTo(to.date());
    const qint64 seconds = from.secsTo(to);
    const auto shifted = [&](icalproperty *property, icalcomponent *owner, icalproperty_kind kind) {
        const QDateTime original = CalendarRecurrence::instant(CalendarRecurrence::timeOf(property, owner));
        return CalendarRecurrence::newProperty(kind, form.date ? original.addDays(days) : original.addSecs(seconds), form);
    };
    const QString uid = text(icalcomponent_get_uid(master));
    QList<std::pair<icalcomponent *, icalproperty *>> names;
    forEachComponent(root, icalcomponent_isa(master), [&](icalcomponent *c) {
        if (c == master || text(icalcomponent_get_uid(c)) != uid)
            return;
        if (icalproperty *recurrence = icalcomponent_get_first_property(c, ICAL_RECURRENCEID_PROPERTY))
            names.append({c, recurrence});
    });
    // A whole-day EXDATE of a series with times leaves out a day, wherever the time moved.
    for (icalproperty *p = icalcomponent_get_first_property(master, ICAL_EXDATE_PROPERTY); p;
         p = icalcomponent_get_next_property(master, ICAL_EXDATE_PROPERTY)) {
        if (bool(CalendarRecurrence::timeOf(p, master).is_date) == form.date)
            names.append({master, p});
    }
    for (const auto &[owner, property] : names) {
        icalproperty *replacement = shifted(property, owner, icalproperty_isa(property));
        icalcomponent_remove_property(owner, property);
        icalproperty_free(property);
        icalcomponent_add_property(owner, replacement);
    }
}

// The form of a new item's times: the system's zone with its VTIMEZONE added to the
// calendar, as calendar programs write them, so that they show the local time it was made
// for; UTC when the system's zone is UTC or one libical does not know.
CalendarRecurrence::TimeForm systemForm(icalcomponent *calendar)
{
    const CalendarRecurrence::TimeForm utc{false, true, nullptr, {}};
    const QByteArray id = QTimeZone::systemTimeZoneId();
    if (id.isEmpty() || id == "UTC" || id == "Etc/UTC" || id == "Etc/GMT" || id == "GMT")
        return utc;
    icaltimezone *zone = icaltimezone_get_builtin_timezone(id.constData());
    icalcomponent *definition = zone ? icaltimezone_get_component(zone) : nullptr;
    if (!definition)
        return utc;
    // Named as the system names it, without the library's prefix.
    icalcomponent *copy = icalcomponent_new_clone(definition);
    if (icalproperty *tzid = icalcomponent_get_first_property(copy, ICAL_TZID_PROPERTY))
        icalproperty_set_tzid(tzid, id.constData());
    icalcomponent_add_component(calendar, copy);
    return {false, false, zone, id};
}

QString sanitisedFileName(const QString &uid)
{
    QString name;
    for (QChar c : uid)
        name += (c.isLetterOrNumber() || c == u'-' || c == u'_' || c == u'.' || c == u'@') ? c : QChar(u'_');
    return name + QStringLiteral(".ics");
}

AppError failure(const QString &description, int code = CalendarStore::Failed)
{
    return AppError{CalendarStore::errorDomain(), code, description};
}

}  // namespace

CalendarStore::CalendarStore(QString root) : m_root(std::move(root)) {}

CalendarStore *CalendarStore::shared()
{
    static auto *store = new CalendarStore(QString());
    store->setRoot(UserDefaults::standard()->value(rootSettingKey(), defaultRoot()).toString());
    return store;
}

QString CalendarStore::defaultRoot()
{
    return AppPaths::dataDir() + QStringLiteral("/Calendars");
}

QString CalendarStore::root() const
{
    std::lock_guard lock(m_mutex);
    return m_root;
}

void CalendarStore::setRoot(const QString &root)
{
    std::lock_guard lock(m_mutex);
    if (root != m_root) {
        m_root = root;
        m_files.clear();
    }
}

QList<CalendarStore::Folder> CalendarStore::scan()
{
    QList<Folder> folders;
    const QDir root(m_root);
    const QStringList names = root.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    QSet<QString> seen;
    for (const QString &name : names) {
        Folder folder;
        folder.collection.identifier = name;
        folder.collection.path = root.filePath(name);
        QDir dir(folder.collection.path);
        const QByteArray title = readBytes(dir.filePath(kDisplayNameFile)).trimmed();
        folder.collection.title = title.isEmpty() ? name : QString::fromUtf8(title);
        const QString kindWord = QString::fromUtf8(readBytes(dir.filePath(kKindFile)).trimmed());
        for (const FileStatus &file : listFiles(folder.collection.path, ".ics")) {
            const QString &path = file.path;
            folder.files.append(path);
            seen.insert(path);
            const CachedFile &entry = cached(path, name, file.size, file.modified);
            folder.hasEvents = folder.hasEvents || !entry.events.isEmpty();
            folder.hasReminders = folder.hasReminders || !entry.reminders.isEmpty();
        }
        if (kindWord == QLatin1String("reminders"))
            folder.collection.kind = Kind::Reminders;
        else if (kindWord == QLatin1String("events"))
            folder.collection.kind = Kind::Events;
        else
        {
            folder.collection.kind = folder.hasReminders && !folder.hasEvents ? Kind::Reminders : Kind::Events;
            folder.collection.mixed = folder.hasReminders && folder.hasEvents;
        }
        folders.append(folder);
    }
    // Files gone since the last look leave the cache.
    for (auto it = m_files.begin(); it != m_files.end();)
        it = seen.contains(it.key()) ? std::next(it) : m_files.erase(it);
    return folders;
}

const CalendarStore::CachedFile &CalendarStore::cached(const QString &path, const QString &collection, qint64 size,
                                                      qint64 modified)
{
    auto it = m_files.find(path);
    if (it != m_files.end() && it->size == size && it->modified == modified)
        return *it;
    CachedFile entry;
    entry.size = size;
    entry.modified = modified;
    Component parsed(parse(CalendarFileText::withUids(readBytes(path), QFileInfo(path).completeBaseName())));
    for (const icalcomponent_kind kind : {ICAL_VEVENT_COMPONENT, ICAL_VTODO_COMPONENT}) {
        QHash<QString, QList<icalcomponent *>> overrides;
        forEachComponent(parsed.root, kind, [&](icalcomponent *c) {
            if (icalcomponent_get_first_property(c, ICAL_RECURRENCEID_PROPERTY))
                overrides[text(icalcomponent_get_uid(c))].append(c);
        });
        forEachItem(parsed.root, kind, [&](icalcomponent *c) {
            CalendarItem item = readItem(c, collection, path);
            item.fileSize = size;
            item.fileModified = modified;
            if (CalendarRecurrence::isRecurring(c)) {
                item.recurring = true;
                entry.series.append(Series{c, overrides.value(item.identifier), item});
            }
            (kind == ICAL_VEVENT_COMPONENT ? entry.events : entry.reminders).append(item);
        });
    }
    if (!entry.series.isEmpty())
        entry.tree.reset(std::exchange(parsed.root, nullptr), icalcomponent_free);
    return *m_files.insert(path, std::move(entry));
}

QList<CalendarCollection> CalendarStore::collections(Kind kind)
{
    std::lock_guard lock(m_mutex);
    QList<CalendarCollection> result;
    for (const Folder &folder : scan()) {
        if (serves(folder, kind)) {
            result.append(folder.collection);
            result.last().kind = kind;
        }
    }
    return result;
}

Result<CalendarCollection> CalendarStore::createCollection(const QString &name, Kind kind)
{
    const QString identifier = name.toLower();
    QDir root(m_root);
    if (!PrivateFile::makeFolder(root.filePath(identifier)))
        return failure(QStringLiteral("The folder '%1' could not be created.").arg(root.filePath(identifier)));
    const QString path = root.filePath(identifier);
    const std::optional<QString> failed =
        PrivateFile::write(path + u'/' + kDisplayNameFile, name.toUtf8());
    const std::optional<QString> kindFailed = PrivateFile::write(
        path + u'/' + kKindFile, kind == Kind::Reminders ? QByteArrayLiteral("reminders") : QByteArrayLiteral("events"));
    if (failed || kindFailed)
        return failure(failed.value_or(kindFailed.value_or(QString())));
    return CalendarCollection{identifier, name, path, kind};
}

Result<CalendarCollection> CalendarStore::defaultCollection(Kind kind)
{
    std::lock_guard lock(m_mutex);
    for (const Folder &folder : scan()) {
        if (serves(folder, kind)) {
            CalendarCollection collection = folder.collection;
            collection.kind = kind;
            return collection;
        }
    }
    return createCollection(kind == Kind::Events ? QStringLiteral("Calendar") : QStringLiteral("Reminders"), kind);
}

QList<CalendarItem> CalendarStore::events(const QDateTime &start, const QDateTime &end,
                                          const std::optional<QStringList> &collections,
                                          QList<CalendarCollection> *calendars, int maxOccurrences,
                                          bool *truncated)
{
    std::lock_guard lock(m_mutex);
    QList<CalendarItem> result;
    for (const Folder &folder : scan()) {
        if (!serves(folder, Kind::Events))
            continue;
        if (calendars)
            calendars->append(folder.collection);
        if (collections && !collections->contains(folder.collection.identifier))
            continue;
        for (const QString &path : folder.files) {
            const CachedFile &entry = m_files[path];
            for (const Series &series : entry.series) {
                if (icalcomponent_isa(series.master) != ICAL_VEVENT_COMPONENT)
                    continue;
                for (const CalendarRecurrence::Occurrence &occurrence :
                     CalendarRecurrence::expand(series.master, series.overrides, start, end, maxOccurrences, truncated)) {
                    CalendarItem event = occurrence.source == series.master
                                             ? series.item
                                             : overrideItem(occurrence.source, series.item);
                    event.identifier = series.item.identifier;
                    event.occurrence = occurrence.key;
                    event.recurring = true;
                    event.start = occurrence.start;
                    event.end = occurrence.end;
                    result.append(event);
                }
            }
            for (const CalendarItem &event : entry.events) {
                if (event.recurring || !event.start.isValid())
                    continue;
                // Overlap; an event of no length counts when it stands inside the range.
                const bool overlaps = event.start == event.end ? event.start >= start && event.start <= end
                                                               : event.start < end && event.end > start;
                if (overlaps)
                    result.append(event);
            }
        }
    }
    std::stable_sort(result.begin(), result.end(),
                     [](const CalendarItem &a, const CalendarItem &b) { return a.start < b.start; });
    return result;
}

QList<CalendarItem> CalendarStore::currentOccurrences(const Series &series, const QDateTime &now)
{
    // What falls due in the month before now, and the next one after it.
    QList<CalendarItem> result;
    bool sawNext = false;
    for (const CalendarRecurrence::Occurrence &occurrence :
         CalendarRecurrence::expand(series.master, series.overrides, now.addDays(-30), now.addDays(366), 10000, nullptr)) {
        if (sawNext)
            break;
        CalendarItem reminder =
            occurrence.source == series.master ? series.item : overrideItem(occurrence.source, series.item);
        reminder.identifier = series.item.identifier;
        reminder.occurrence = occurrence.key;
        reminder.recurring = true;
        // A to-do without a due date has none in its occurrences either.
        reminder.due = series.item.due.isValid() || reminder.due.isValid() ? occurrence.end : QDateTime();
        const QDateTime when = reminder.due.isValid() ? reminder.due : occurrence.start;
        if (when < now.addDays(-30))
            continue;
        sawNext = when > now;
        result.append(reminder);
    }
    return result;
}

QList<CalendarItem> CalendarStore::reminders(const std::optional<QStringList> &collections)
{
    std::lock_guard lock(m_mutex);
    const QDateTime now = QDateTime::currentDateTimeUtc();
    QList<CalendarItem> result;
    for (const Folder &folder : scan()) {
        if (!serves(folder, Kind::Reminders))
            continue;
        if (collections && !collections->contains(folder.collection.identifier))
            continue;
        for (const QString &path : folder.files) {
            const CachedFile &entry = m_files[path];
            for (const CalendarItem &reminder : entry.reminders) {
                if (!reminder.recurring)
                    result.append(reminder);
            }
            for (const Series &series : entry.series) {
                if (icalcomponent_isa(series.master) == ICAL_VTODO_COMPONENT)
                    result += currentOccurrences(series, now);
            }
        }
    }
    std::stable_sort(result.begin(), result.end(), [](const CalendarItem &a, const CalendarItem &b) {
        return a.title.localeAwareCompare(b.title) < 0;
    });
    return result;
}

std::optional<CalendarItem> CalendarStore::item(const QString &identifier, Kind kind)
{
    if (identifier.isEmpty())
        return std::nullopt;
    std::lock_guard lock(m_mutex);
    for (const Folder &folder : scan()) {
        if (!serves(folder, kind))
            continue;
        for (const QString &path : folder.files) {
            const CachedFile &entry = m_files[path];
            for (const CalendarItem &candidate : kind == Kind::Events ? entry.events : entry.reminders) {
                if (candidate.identifier == identifier)
                    return candidate;
            }
        }
    }
    return occurrence(identifier, kind);
}

std::optional<CalendarItem> CalendarStore::occurrence(const QString &identifier, Kind kind)
{
    const icalcomponent_kind componentKind = kind == Kind::Events ? ICAL_VEVENT_COMPONENT : ICAL_VTODO_COMPONENT;
    // "<uid>@<key>": a UID may hold "@" itself, the key never does.
    const qsizetype at = identifier.lastIndexOf(u'@');
    if (at <= 0)
        return std::nullopt;
    const QString uid = identifier.left(at);
    const QString key = identifier.mid(at + 1);
    const QDateTime original = CalendarRecurrence::keyInstant(key);
    if (!original.isValid())
        return std::nullopt;
    for (auto it = m_files.cbegin(); it != m_files.cend(); ++it) {
        for (const Series &series : it->series) {
            if (series.item.identifier != uid || icalcomponent_isa(series.master) != componentKind)
                continue;
            // The occurrence whose original start the key names, wherever an override moved it.
            for (const CalendarRecurrence::Occurrence &found :
                 CalendarRecurrence::expand(series.master, series.overrides, original, original.addSecs(1), 1000, nullptr)) {
                if (found.key == key && found.source == series.master) {
                    CalendarItem item = series.item;
                    item.occurrence = key;
                    if (kind == Kind::Events) {
                        item.start = found.start;
                        item.end = found.end;
                    } else if (item.due.isValid()) {
                        item.due = found.end;
                    }
                    return item;
                }
            }
            for (icalcomponent *override : series.overrides) {
                const QString overrideKey = CalendarRecurrence::keyOf(CalendarRecurrence::timeOf(
                    icalcomponent_get_first_property(override, ICAL_RECURRENCEID_PROPERTY), override));
                if (overrideKey != key)
                    continue;
                CalendarItem item = overrideItem(override, series.item);
                item.occurrence = key;
                item.recurring = true;
                return item;
            }
        }
    }
    return std::nullopt;
}

Result<void> CalendarStore::save(CalendarItem &item, Kind kind)
{
    std::lock_guard lock(m_mutex);
    // Another program (a sync) rewrote the file since the item was read: writing now would
    // put the old fields back over its change.
    if (!item.filePath.isEmpty() && item.fileSize >= 0 &&
        statusOf(item.filePath) != std::optional(std::pair{item.fileSize, item.fileModified}))
        return failure(QStringLiteral("The file '%1' was changed by another program; read it again.").arg(item.filePath),
                       Stale);
    if (!item.occurrence.isEmpty())
        return saveOccurrence(item);
    const QList<Folder> folders = scan();
    const auto target = std::find_if(folders.begin(), folders.end(),
                                     [&](const Folder &f) { return f.collection.identifier == item.collection; });
    if (target == folders.end())
        return failure(item.collection.isEmpty() ? QStringLiteral("No calendar was given for the item.")
                                                 : QStringLiteral("The calendar '%1' does not exist.").arg(item.collection));
    if (kind == Kind::Events && (!item.start.isValid() || !item.end.isValid()))
        return failure(QStringLiteral("The event has no start or end date."));
    if (kind == Kind::Events && !item.allDay && item.end < item.start)
        return failure(QStringLiteral("The start date must be before the end date."));
    const icalcomponent_kind componentKind = kind == Kind::Events ? ICAL_VEVENT_COMPONENT : ICAL_VTODO_COMPONENT;

    // An existing item is rewritten in its own file, keeping what else the file holds.
    const QByteArray original = item.filePath.isEmpty() ? QByteArray() : readNamed(item.filePath);
    Component file(parse(original));
    icalcomponent *component = nullptr;
    forEachItem(file.root, componentKind, [&](icalcomponent *c) {
        if (!component && text(icalcomponent_get_uid(c)) == item.identifier)
            component = c;
    });
    std::optional<CalendarItem> before;
    std::optional<CalendarRecurrence::TimeForm> newForm;
    if (component)
        before = readItem(component, item.collection, item.filePath);
    if (!component) {
        if (file.root)
            icalcomponent_free(std::exchange(file.root, nullptr));
        if (item.identifier.isEmpty())
            item.identifier = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
        file.root = icalcomponent_new(ICAL_VCALENDAR_COMPONENT);
        icalcomponent_add_property(file.root, icalproperty_new_version("2.0"));
        icalcomponent_add_property(file.root, icalproperty_new_prodid("-//Tamsel//Kelvara//EN"));
        if (componentKind == ICAL_VEVENT_COMPONENT && !item.allDay)
            newForm = systemForm(file.root);
        component = icalcomponent_new(componentKind);
        icalcomponent_set_uid(component, item.identifier.toUtf8().constData());
        icalcomponent_add_component(file.root, component);
    }
    const CalendarRecurrence::TimeForm oldForm = newForm.value_or(CalendarRecurrence::formOf(component));
    writeItem(component, item, before ? &*before : nullptr, oldForm);
    if (before && CalendarRecurrence::isRecurring(component) && before->allDay == item.allDay &&
        before->start != item.start)
        shiftOccurrenceNames(file.root, component, before->start, item.start, oldForm);

    const QString oldPath = item.filePath;
    const bool moves = !oldPath.isEmpty() && QFileInfo(oldPath).absolutePath() != QFileInfo(target->collection.path).absoluteFilePath();
    QString path = oldPath;
    if (path.isEmpty() || moves)
        path = QDir(target->collection.path).filePath(sanitisedFileName(item.identifier));
    // Only the item's own text changes; a move takes it alone out of a file of several.
    const QByteArray bytes = moves ? CalendarFileText::extracted(original, file.root, item.identifier)
                                   : CalendarFileText::spliced(original, file.root, item.identifier);
    if (const std::optional<QString> failed = PrivateFile::write(path, bytes))
        return failure(*failed);
    if (moves && CalendarFileText::holdsOthers(original, item.identifier)) {
        if (const std::optional<QString> failed =
                PrivateFile::write(oldPath, CalendarFileText::spliced(original, nullptr, item.identifier))) {
            return failure(QStringLiteral("The item was copied to '%1' but could not be taken out of '%2': %3")
                               .arg(path, oldPath, *failed));
        }
    } else if (moves && !QFile::remove(oldPath)) {
        return failure(QStringLiteral("The item was copied to '%1' but '%2' could not be removed.").arg(path, oldPath));
    }
    item.filePath = path;
    m_files.remove(path);
    m_files.remove(oldPath);
    return {};
}

Result<void> CalendarStore::remove(const CalendarItem &item)
{
    std::lock_guard lock(m_mutex);
    if (!item.occurrence.isEmpty())
        return removeOccurrence(item);
    if (item.filePath.isEmpty() || !QFileInfo::exists(item.filePath))
        return failure(QStringLiteral("The item '%1' is no longer stored.").arg(item.identifier));
    // A file that holds other items too keeps them.
    const QByteArray original = readNamed(item.filePath);
    Component file(parse(original));
    int others = 0;  // items of other UIDs; a series' overrides are its own
    icalcomponent *own = nullptr;
    icalcomponent *calendar = file.root && icalcomponent_isa(file.root) == ICAL_VCALENDAR_COMPONENT ? file.root : nullptr;
    if (calendar) {
        for (icalcomponent *c = icalcomponent_get_first_component(calendar, ICAL_ANY_COMPONENT); c;
             c = icalcomponent_get_next_component(calendar, ICAL_ANY_COMPONENT)) {
            const icalcomponent_kind kind = icalcomponent_isa(c);
            if (kind != ICAL_VEVENT_COMPONENT && kind != ICAL_VTODO_COMPONENT)
                continue;
            if (text(icalcomponent_get_uid(c)) == item.identifier)
                own = c;
            else
                ++others;
        }
    }
    m_files.remove(item.filePath);
    if (!calendar || !own || others == 0) {
        if (!QFile::remove(item.filePath))
            return failure(QStringLiteral("The file '%1' could not be removed.").arg(item.filePath));
        return {};
    }
    // Every component of that UID goes: the item and its overrides.
    QList<icalcomponent *> mine;
    for (icalcomponent *c = icalcomponent_get_first_component(calendar, ICAL_ANY_COMPONENT); c;
         c = icalcomponent_get_next_component(calendar, ICAL_ANY_COMPONENT)) {
        if (text(icalcomponent_get_uid(c)) == item.identifier)
            mine.append(c);
    }
    for (icalcomponent *c : mine) {
        icalcomponent_remove_component(calendar, c);
        icalcomponent_free(c);
    }
    if (const std::optional<QString> failed =
            PrivateFile::write(item.filePath, CalendarFileText::spliced(original, file.root, item.identifier)))
        return failure(*failed);
    return {};
}

namespace {

// The series of the UID in a parsed file and its override for the key, if any.
struct SeriesParts {
    icalcomponent *master = nullptr;
    icalcomponent *override = nullptr;
};

SeriesParts seriesParts(icalcomponent *root, const CalendarItem &item)
{
    const QString &uid = item.identifier;
    const QString &key = item.occurrence;
    SeriesParts parts;
    const auto look = [&](icalcomponent *c) {
        if (text(icalcomponent_get_uid(c)) != uid)
            return;
        icalproperty *recurrence = icalcomponent_get_first_property(c, ICAL_RECURRENCEID_PROPERTY);
        if (!recurrence)
            parts.master = parts.master ? parts.master : c;
        else if (CalendarRecurrence::keyOf(CalendarRecurrence::timeOf(recurrence, c)) == key)
            parts.override = c;
    };
    // A UID names events or to-dos, never both.
    forEachComponent(root, ICAL_VEVENT_COMPONENT, look);
    forEachComponent(root, ICAL_VTODO_COMPONENT, look);
    return parts;
}

// The file with the item's components as they are in root, the rest as it was.
std::optional<QString> writeTree(const QString &path, const QByteArray &original, icalcomponent *root,
                                 const QString &uid)
{
    return PrivateFile::write(path, CalendarFileText::spliced(original, root, uid));
}

}  // namespace

Result<void> CalendarStore::saveOccurrence(CalendarItem &item)
{
    const QByteArray original = readNamed(item.filePath);
    Component file(parse(original));
    const SeriesParts parts = seriesParts(file.root, item);
    if (!parts.master)
        return failure(QStringLiteral("The event '%1' is no longer stored.").arg(item.identifier));
    if (!item.allDay && item.end < item.start)
        return failure(QStringLiteral("The start date must be before the end date."));
    // One occurrence stays in its series' calendar.
    item.collection = readItem(parts.master, item.collection, item.filePath).collection;
    const CalendarRecurrence::TimeForm form = CalendarRecurrence::formOf(parts.master);
    icalcomponent *override = parts.override;
    if (!override) {
        // A copy of the series for that occurrence alone: its alarms and attendees come along.
        override = icalcomponent_new_clone(parts.master);
        for (icalproperty_kind kind : {ICAL_RRULE_PROPERTY, ICAL_RDATE_PROPERTY, ICAL_EXDATE_PROPERTY,
                                       ICAL_EXRULE_PROPERTY, ICAL_DTSTART_PROPERTY, ICAL_DTEND_PROPERTY,
                                       ICAL_DURATION_PROPERTY})
            removeAll(override, kind);
        const QDateTime original = CalendarRecurrence::keyInstant(item.occurrence);
        icalcomponent_add_property(override,
                                   CalendarRecurrence::newProperty(ICAL_RECURRENCEID_PROPERTY, original, form));
        // An event's dates are written below; a to-do's start is that of its occurrence.
        if (icalcomponent_isa(override) == ICAL_VTODO_COMPONENT &&
            icalcomponent_get_first_property(parts.master, ICAL_DTSTART_PROPERTY))
            icalcomponent_add_property(override, CalendarRecurrence::newProperty(ICAL_DTSTART_PROPERTY, original, form));
        icalcomponent_add_component(icalcomponent_get_parent(parts.master), override);
    }
    std::optional<CalendarItem> before;
    if (parts.override)
        before = readItem(parts.override, item.collection, item.filePath);
    writeItem(override, item, before ? &*before : nullptr,
              CalendarRecurrence::formOf(parts.override ? parts.override : parts.master));
    if (const std::optional<QString> failed = writeTree(item.filePath, original, file.root, item.identifier))
        return failure(*failed);
    m_files.remove(item.filePath);
    return {};
}

Result<void> CalendarStore::removeOccurrence(const CalendarItem &item)
{
    const QByteArray original = readNamed(item.filePath);
    Component file(parse(original));
    const SeriesParts parts = seriesParts(file.root, item);
    if (!parts.master)
        return failure(QStringLiteral("The event '%1' is no longer stored.").arg(item.identifier));
    if (parts.override) {
        icalcomponent_remove_component(icalcomponent_get_parent(parts.override), parts.override);
        icalcomponent_free(parts.override);
    }
    icalcomponent_add_property(parts.master,
                               CalendarRecurrence::newProperty(ICAL_EXDATE_PROPERTY,
                                                               CalendarRecurrence::keyInstant(item.occurrence),
                                                               CalendarRecurrence::formOf(parts.master)));
    if (const std::optional<QString> failed = writeTree(item.filePath, original, file.root, item.identifier))
        return failure(*failed);
    m_files.remove(item.filePath);
    return {};
}
