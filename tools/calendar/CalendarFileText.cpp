#include "tools/calendar/CalendarFileText.h"

#include <QList>
#include <QSet>

namespace {

// A content line: where its bytes lie (folds and line end included) and its text unfolded.
struct Line {
    qsizetype begin = 0;
    qsizetype end = 0;
    QByteArray text;
};

QList<Line> logicalLines(const QByteArray &bytes, qsizetype from = 0, qsizetype to = -1)
{
    if (to < 0)
        to = bytes.size();
    QList<Line> lines;
    qsizetype pos = from;
    while (pos < to) {
        qsizetype next = bytes.indexOf('\n', pos);
        next = next < 0 || next >= to ? to : next + 1;
        QByteArray content = bytes.mid(pos, next - pos);
        while (content.endsWith('\n') || content.endsWith('\r'))
            content.chop(1);
        if ((content.startsWith(' ') || content.startsWith('\t')) && !lines.isEmpty()) {
            lines.last().text += content.mid(1);
            lines.last().end = next;
        } else if (!content.isEmpty()) {
            lines.append(Line{pos, next, content});
        } else if (!lines.isEmpty()) {
            lines.last().end = next;  // a blank line belongs to the one before
        }
        pos = next;
    }
    return lines;
}

// The property name, upper case, up to the first ';' or ':'.
QByteArray nameOf(const QByteArray &line)
{
    qsizetype end = 0;
    while (end < line.size() && line.at(end) != ';' && line.at(end) != ':')
        ++end;
    return line.left(end).trimmed().toUpper();
}

QByteArray valueOf(const QByteArray &line)
{
    bool quoted = false;
    for (qsizetype i = 0; i < line.size(); ++i) {
        if (line.at(i) == '"')
            quoted = !quoted;
        else if (line.at(i) == ':' && !quoted)
            return line.mid(i + 1).trimmed();
    }
    return {};
}

QByteArray takeString(char *serialised)
{
    if (!serialised)
        return {};
    QByteArray bytes(serialised);
    icalmemory_free_buffer(serialised);
    return bytes;
}

// The library's own spelling of a property line or a component, so that what it parsed
// from the file and what it holds now compare equal when nothing changed. Empty when it
// cannot read the text.
QByteArray canonicalProperty(const QByteArray &line)
{
    icalproperty *property = icalproperty_new_from_string(line.constData());
    if (!property)
        return {};
    QByteArray text = takeString(icalproperty_as_ical_string_r(property));
    icalproperty_free(property);
    return text;
}

// One line may stand for several properties (the library splits CATEGORIES:A,B in two):
// the spelling of each, read as the library reads a whole file.
QList<QByteArray> canonicalProperties(const QByteArray &line)
{
    QList<QByteArray> result;
    const QByteArray wrapped = "BEGIN:VEVENT\r\n" + line + "\r\nEND:VEVENT\r\n";
    icalcomponent *component = icalparser_parse_string(wrapped.constData());
    if (!component)
        return result;
    for (icalproperty *p = icalcomponent_get_first_property(component, ICAL_ANY_PROPERTY); p;
         p = icalcomponent_get_next_property(component, ICAL_ANY_PROPERTY)) {
        if (icalproperty_isa(p) == ICAL_XLICERROR_PROPERTY) {
            result.clear();  // a line it could not read stays as it is
            break;
        }
        result.append(takeString(icalproperty_as_ical_string_r(p)));
    }
    icalcomponent_free(component);
    return result;
}

QByteArray canonicalComponent(const QByteArray &text)
{
    icalcomponent *component = icalcomponent_new_from_string(text.constData());
    if (!component)
        return {};
    QByteArray result = takeString(icalcomponent_as_ical_string_r(component));
    icalcomponent_free(component);
    return result;
}

// A component of the file directly inside a VCALENDAR.
struct Block {
    QByteArray kind;  // VEVENT, VTODO, VTIMEZONE, ...
    qsizetype begin = 0;
    qsizetype end = 0;
    QString uid;
    QByteArray recurrenceId;  // canonical RECURRENCE-ID line; empty for a master
    QByteArray tzid;          // of a VTIMEZONE
};

struct FileText {
    QList<Block> blocks;
    qsizetype calendarEnd = -1;  // where the first VCALENDAR's END line begins
    QList<qsizetype> calendarEnds;  // the same for each VCALENDAR of the file
};

FileText scan(const QByteArray &bytes)
{
    FileText file;
    QList<QByteArray> stack;
    Block current;
    for (const Line &line : logicalLines(bytes)) {
        const QByteArray name = nameOf(line.text);
        if (name == "BEGIN") {
            const QByteArray kind = valueOf(line.text).toUpper();
            if (stack.size() == 1 && stack.first() == "VCALENDAR")
                current = Block{kind, line.begin, line.end, {}, {}, {}};
            stack.append(kind);
            continue;
        }
        if (name == "END") {
            if (stack.isEmpty())
                continue;
            stack.removeLast();
            if (stack.size() == 1 && stack.first() == "VCALENDAR") {
                current.end = line.end;
                file.blocks.append(current);
            } else if (stack.isEmpty()) {
                if (file.calendarEnd < 0)
                    file.calendarEnd = line.begin;
                file.calendarEnds.append(line.begin);
            }
            continue;
        }
        if (stack.size() != 2 || stack.first() != "VCALENDAR")
            continue;
        if (name == "UID")
            current.uid = QString::fromUtf8(valueOf(line.text));
        else if (name == "RECURRENCE-ID")
            current.recurrenceId = canonicalProperty(line.text);
        else if (name == "TZID")
            current.tzid = valueOf(line.text);
    }
    return file;
}

bool isItem(const QByteArray &kind)
{
    return kind == "VEVENT" || kind == "VTODO" || kind == "VJOURNAL";
}

QByteArray withLineEnds(QByteArray text, bool crlf)
{
    if (!crlf)
        text.replace("\r\n", "\n");
    return text;
}

// One unit of a component's text: a property line or a whole sub-component.
struct Unit {
    QByteArray name;       // property or sub-component kind
    bool component = false;
    QList<QByteArray> canonical;  // what the library makes of it; empty: unreadable, kept
    QByteArray bytes;
};

// The component's text with the content of updated: unchanged units keep their bytes.
QByteArray mergedComponent(const QByteArray &raw, icalcomponent *updated, bool crlf)
{
    const QList<Line> lines = logicalLines(raw);
    if (lines.size() < 2)
        return withLineEnds(takeString(icalcomponent_as_ical_string_r(updated)), crlf);
    QList<Unit> old;
    int depth = 0;
    for (int i = 1; i + 1 < lines.size(); ++i) {
        const Line &line = lines.at(i);
        const QByteArray name = nameOf(line.text);
        const QByteArray bytes = raw.mid(line.begin, line.end - line.begin);
        if (depth > 0) {
            old.last().bytes += bytes;
            depth += name == "BEGIN" ? 1 : name == "END" ? -1 : 0;
            if (depth == 0) {
                const QByteArray text = canonicalComponent(old.last().bytes);
                if (!text.isEmpty())
                    old.last().canonical = {text};
            }
            continue;
        }
        if (name == "BEGIN") {
            old.append(Unit{valueOf(line.text).toUpper(), true, {}, bytes});
            depth = 1;
        } else {
            old.append(Unit{name, false, canonicalProperties(line.text), bytes});
        }
    }

    QList<Unit> fresh;
    for (icalproperty *p = icalcomponent_get_first_property(updated, ICAL_ANY_PROPERTY); p;
         p = icalcomponent_get_next_property(updated, ICAL_ANY_PROPERTY)) {
        // The library's notes about lines it could not read: those lines are kept instead.
        if (icalproperty_isa(p) == ICAL_XLICERROR_PROPERTY)
            continue;
        const QByteArray text = takeString(icalproperty_as_ical_string_r(p));
        fresh.append(Unit{nameOf(text), false, {text}, {}});
    }
    for (icalcomponent *c = icalcomponent_get_first_component(updated, ICAL_ANY_COMPONENT); c;
         c = icalcomponent_get_next_component(updated, ICAL_ANY_COMPONENT)) {
        const QByteArray text = takeString(icalcomponent_as_ical_string_r(c));
        fresh.append(Unit{valueOf(logicalLines(text).value(0).text).toUpper(), true, {text}, {}});
    }

    // Pair what is the same; the rest of the old units go, the rest of the new ones come.
    QList<bool> freshUsed(fresh.size(), false);
    QList<bool> kept;  // per old unit: whether its bytes stay
    for (const Unit &unit : old) {
        if (unit.canonical.isEmpty()) {
            kept.append(true);
            continue;
        }
        // Kept when every property the line stands for is still there.
        QList<int> found;
        for (const QByteArray &text : unit.canonical) {
            for (int j = 0; j < fresh.size(); ++j) {
                if (!freshUsed.at(j) && !found.contains(j) && fresh.at(j).canonical.first() == text) {
                    found.append(j);
                    break;
                }
            }
        }
        const bool same = found.size() == unit.canonical.size();
        if (same) {
            for (int j : found)
                freshUsed[j] = true;
        }
        kept.append(same);
    }
    // A new unit takes the place of the first gone one of its name.
    QList<QByteArray> placed(old.size());
    QByteArray beforeComponents;
    QByteArray atEnd;
    QList<bool> taken(old.size(), false);
    for (int j = 0; j < fresh.size(); ++j) {
        if (freshUsed.at(j))
            continue;
        const Unit &unit = fresh.at(j);
        const QByteArray text = withLineEnds(unit.canonical.first(), crlf);
        int slot = -1;
        for (int i = 0; i < old.size() && slot < 0; ++i) {
            if (!kept.at(i) && !taken.at(i) && old.at(i).name == unit.name && old.at(i).component == unit.component)
                slot = i;
        }
        if (slot < 0) {
            // A property of a kind the component did not have: after the last of its kind,
            // else before the sub-components.
            for (int i = int(old.size()) - 1; i >= 0 && slot < 0; --i) {
                if (old.at(i).name == unit.name && old.at(i).component == unit.component)
                    slot = i;
            }
            if (slot >= 0) {
                placed[slot] += text;
                continue;
            }
            (unit.component ? atEnd : beforeComponents) += text;
            continue;
        }
        taken[slot] = true;
        placed[slot] += text;
    }

    QByteArray out = raw.mid(lines.first().begin, lines.first().end - lines.first().begin);
    bool componentsStarted = false;
    for (int i = 0; i < old.size(); ++i) {
        if (old.at(i).component && !componentsStarted) {
            componentsStarted = true;
            out += std::exchange(beforeComponents, QByteArray());
        }
        if (kept.at(i))
            out += old.at(i).bytes;
        out += placed.at(i);
    }
    out += beforeComponents;
    out += atEnd;
    out += raw.mid(lines.last().begin, lines.last().end - lines.last().begin);
    return out;
}

template <typename Fn>
void forEachOwn(icalcomponent *root, const QString &uid, Fn &&fn)
{
    if (!root)
        return;
    const icalcomponent_kind kind = icalcomponent_isa(root);
    if (kind == ICAL_VEVENT_COMPONENT || kind == ICAL_VTODO_COMPONENT || kind == ICAL_VJOURNAL_COMPONENT) {
        const char *own = icalcomponent_get_uid(root);
        if (own && QString::fromUtf8(own) == uid)
            fn(root);
        return;
    }
    if (kind != ICAL_VCALENDAR_COMPONENT && kind != ICAL_XROOT_COMPONENT)
        return;
    for (icalcomponent *c = icalcomponent_get_first_component(root, ICAL_ANY_COMPONENT); c;
         c = icalcomponent_get_next_component(root, ICAL_ANY_COMPONENT))
        forEachOwn(c, uid, fn);
}

template <typename Fn>
void forEachZone(icalcomponent *root, Fn &&fn)
{
    if (!root)
        return;
    const icalcomponent_kind kind = icalcomponent_isa(root);
    if (kind == ICAL_VTIMEZONE_COMPONENT) {
        fn(root);
        return;
    }
    if (kind != ICAL_VCALENDAR_COMPONENT && kind != ICAL_XROOT_COMPONENT)
        return;
    for (icalcomponent *c = icalcomponent_get_first_component(root, ICAL_ANY_COMPONENT); c;
         c = icalcomponent_get_next_component(root, ICAL_ANY_COMPONENT))
        forEachZone(c, fn);
}

QByteArray kindName(icalcomponent *component)
{
    return QByteArray(icalcomponent_kind_to_string(icalcomponent_isa(component)));
}

QByteArray recurrenceIdOf(icalcomponent *component)
{
    icalproperty *property = icalcomponent_get_first_property(component, ICAL_RECURRENCEID_PROPERTY);
    return property ? takeString(icalproperty_as_ical_string_r(property)) : QByteArray();
}

// The text of each component of uid in root, in root's order, and the old blocks they leave.
struct Replacement {
    QList<QByteArray> texts;        // per block of the file: its new text (empty: cut)
    QList<QByteArray> added;        // components the file did not have
};

Replacement replacement(const QByteArray &original, const FileText &file, icalcomponent *root, const QString &uid,
                        bool crlf)
{
    Replacement result;
    result.texts.resize(file.blocks.size());
    QList<icalcomponent *> components;
    forEachOwn(root, uid, [&](icalcomponent *c) { components.append(c); });
    QList<bool> used(file.blocks.size(), false);
    QList<int> pairedWith(components.size(), -1);
    const auto mine = [&](int i) { return isItem(file.blocks.at(i).kind) && file.blocks.at(i).uid == uid; };
    // By kind and RECURRENCE-ID first, then in order.
    for (int k = 0; k < components.size(); ++k) {
        const QByteArray kind = kindName(components.at(k));
        const QByteArray recurrence = recurrenceIdOf(components.at(k));
        for (int i = 0; i < file.blocks.size() && pairedWith.at(k) < 0; ++i) {
            if (mine(i) && !used.at(i) && file.blocks.at(i).kind == kind && file.blocks.at(i).recurrenceId == recurrence) {
                used[i] = true;
                pairedWith[k] = i;
            }
        }
    }
    for (int k = 0; k < components.size(); ++k) {
        const QByteArray kind = kindName(components.at(k));
        for (int i = 0; i < file.blocks.size() && pairedWith.at(k) < 0; ++i) {
            if (mine(i) && !used.at(i) && file.blocks.at(i).kind == kind) {
                used[i] = true;
                pairedWith[k] = i;
            }
        }
    }
    for (int k = 0; k < components.size(); ++k) {
        const int i = pairedWith.at(k);
        if (i < 0) {
            result.added.append(withLineEnds(takeString(icalcomponent_as_ical_string_r(components.at(k))), crlf));
            continue;
        }
        const Block &block = file.blocks.at(i);
        result.texts[i] = mergedComponent(original.mid(block.begin, block.end - block.begin), components.at(k), crlf);
    }
    return result;
}

}  // namespace

QByteArray CalendarFileText::spliced(const QByteArray &original, icalcomponent *root, const QString &uid)
{
    const FileText file = scan(original);
    if (file.calendarEnd < 0)
        return root ? takeString(icalcomponent_as_ical_string_r(root)) : original;
    const bool crlf = original.contains("\r\n") || !original.contains('\n');
    const Replacement replaced = replacement(original, file, root, uid, crlf);

    // Zones the tree has that the file lacks.
    QSet<QByteArray> zones;
    int firstItem = -1, lastMine = -1;
    for (int i = 0; i < file.blocks.size(); ++i) {
        const Block &block = file.blocks.at(i);
        if (block.kind == "VTIMEZONE")
            zones.insert(block.tzid);
        if (isItem(block.kind) && firstItem < 0)
            firstItem = i;
        if (isItem(block.kind) && block.uid == uid)
            lastMine = i;
    }
    QByteArray newZones;
    forEachZone(root, [&](icalcomponent *zone) {
        icalproperty *tzid = icalcomponent_get_first_property(zone, ICAL_TZID_PROPERTY);
        const QByteArray id = tzid ? QByteArray(icalproperty_get_tzid(tzid)) : QByteArray();
        if (!id.isEmpty() && !zones.contains(id)) {
            zones.insert(id);
            newZones += withLineEnds(takeString(icalcomponent_as_ical_string_r(zone)), crlf);
        }
    });
    QByteArray added;
    for (const QByteArray &text : replaced.added)
        added += text;

    QByteArray out;
    qsizetype copied = 0;
    const auto copyTo = [&](qsizetype position) {
        if (position <= copied)
            return;
        out += original.mid(copied, position - copied);
        copied = position;
    };
    for (int i = 0; i < file.blocks.size(); ++i) {
        const Block &block = file.blocks.at(i);
        copyTo(block.begin);
        if (i == firstItem)
            out += std::exchange(newZones, QByteArray());
        if (isItem(block.kind) && block.uid == uid) {
            out += replaced.texts.at(i);
            copied = block.end;
        }
        if (i == lastMine) {
            copyTo(block.end);
            out += std::exchange(added, QByteArray());
        }
    }
    // What found no place yet goes at the end of the calendar the text has reached.
    if (!newZones.isEmpty() || !added.isEmpty()) {
        for (qsizetype end : file.calendarEnds) {
            if (end >= copied) {
                copyTo(end);
                break;
            }
        }
    }
    out += newZones;
    out += added;
    out += original.mid(copied);
    return out;
}

QByteArray CalendarFileText::extracted(const QByteArray &original, icalcomponent *root, const QString &uid)
{
    const FileText file = scan(original);
    if (file.calendarEnd < 0)
        return root ? takeString(icalcomponent_as_ical_string_r(root)) : QByteArray();
    const bool crlf = original.contains("\r\n") || !original.contains('\n');
    const Replacement replaced = replacement(original, file, root, uid, crlf);
    QByteArray items;
    for (const QByteArray &text : replaced.texts)
        items += text;
    for (const QByteArray &text : replaced.added)
        items += text;
    QByteArray zones;
    for (const Block &block : file.blocks) {
        if (block.kind == "VTIMEZONE" && !block.tzid.isEmpty() && items.contains("TZID=" + block.tzid))
            zones += original.mid(block.begin, block.end - block.begin);
    }
    const QByteArray eol = crlf ? "\r\n" : "\n";
    return "BEGIN:VCALENDAR" + eol + "VERSION:2.0" + eol + "PRODID:-//Tamsel//Kelvara//EN" + eol + zones + items +
           "END:VCALENDAR" + eol;
}

QByteArray CalendarFileText::withUids(const QByteArray &original, const QString &name)
{
    // Most files name their items: no scan for them.
    if (!original.contains("BEGIN:V") || original.count("\nUID:") >= original.count("BEGIN:V") - 1)
        return original;
    const FileText file = scan(original);
    QByteArray out;
    qsizetype copied = 0;
    int missing = 0;
    for (const Block &block : file.blocks) {
        if (!isItem(block.kind) || !block.uid.isEmpty())
            continue;
        const QString uid = missing == 0 ? name : name + u'#' + QString::number(missing);
        ++missing;
        // After the BEGIN line, in the file's own line ends.
        const qsizetype lineEnd = original.indexOf('\n', block.begin);
        if (lineEnd < 0 || lineEnd >= block.end)
            continue;
        const bool crlf = lineEnd > 0 && original.at(lineEnd - 1) == '\r';
        out += original.mid(copied, lineEnd + 1 - copied);
        icalproperty *property = icalproperty_new_uid(uid.toUtf8().constData());
        out += withLineEnds(takeString(icalproperty_as_ical_string_r(property)), crlf);
        icalproperty_free(property);
        copied = lineEnd + 1;
    }
    out += original.mid(copied);
    return out;
}

bool CalendarFileText::holdsOthers(const QByteArray &original, const QString &uid)
{
    const FileText file = scan(original);
    for (const Block &block : file.blocks) {
        if (isItem(block.kind) && block.uid != uid)
            return true;
    }
    return false;
}
