#include "tools/contacts/VCard.h"

#include <algorithm>
#include <utility>

namespace {

// Splits at the separators that are not escaped; the parts stay escaped.
QStringList splitUnescaped(const QString &text, QChar separator)
{
    QStringList parts;
    QString current;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (c == u'\\' && i + 1 < text.size()) {
            current += c;
            current += text.at(++i);
        } else if (c == separator) {
            parts.append(current);
            current.clear();
        } else {
            current += c;
        }
    }
    parts.append(current);
    return parts;
}

// The property name of a content line: before the first ';' or ':', without a group.
QString propertyName(const QString &line)
{
    qsizetype end = 0;
    bool quoted = false;
    for (; end < line.size(); ++end) {
        const QChar c = line.at(end);
        if (c == u'"')
            quoted = !quoted;
        if (!quoted && (c == u';' || c == u':'))
            break;
    }
    QString name = line.left(end).toUpper();
    const qsizetype dot = name.lastIndexOf(u'.');
    return dot >= 0 ? name.mid(dot + 1) : name;
}

// A content line as read: its text unfolded, and where its bytes (folds and line end
// included) lie.
struct Line {
    QString text;
    qsizetype begin = 0;
    qsizetype end = 0;
};

// Folding may cut a UTF-8 sequence, so the bytes are joined before they are decoded.
QList<Line> logicalLines(const QByteArray &bytes)
{
    QList<Line> lines;
    QByteArray current;
    qsizetype pos = 0;
    const auto flush = [&](qsizetype end) {
        if (!lines.isEmpty() && lines.last().end < 0) {
            lines.last().text = QString::fromUtf8(current);
            lines.last().end = end;
        }
        current.clear();
    };
    while (pos < bytes.size()) {
        qsizetype next = bytes.indexOf('\n', pos);
        next = next < 0 ? bytes.size() : next + 1;
        QByteArray content = bytes.mid(pos, next - pos);
        while (content.endsWith('\n') || content.endsWith('\r'))
            content.chop(1);
        if ((content.startsWith(' ') || content.startsWith('\t')) && !lines.isEmpty()) {
            current += content.mid(1);
        } else {
            flush(pos);
            if (!content.isEmpty()) {
                lines.append(Line{QString(), pos, -1});
                current = content;
            }
        }
        pos = next;
    }
    flush(pos);
    return lines;
}

// Where the value starts: after the first ':' that is not inside a quoted parameter.
qsizetype valueStart(const QString &line)
{
    bool quoted = false;
    for (qsizetype i = 0; i < line.size(); ++i) {
        const QChar c = line.at(i);
        if (c == u'"')
            quoted = !quoted;
        else if (c == u':' && !quoted)
            return i + 1;
    }
    return line.size();
}

QString propertyValue(const QString &line)
{
    return line.mid(valueStart(line));
}

// Folds a line at 75 octets without splitting a UTF-8 sequence.
void appendFolded(QByteArray &out, const QString &line, const char *eol = "\r\n")
{
    const QByteArray bytes = line.toUtf8();
    qsizetype start = 0;
    qsizetype limit = 75;
    while (bytes.size() - start > limit) {
        qsizetype cut = start + limit;
        while (cut > start && (uchar(bytes.at(cut)) & 0xC0) == 0x80)
            --cut;
        out += bytes.mid(start, cut - start);
        out += eol;
        out += ' ';
        start = cut;
        limit = 74;  // the leading blank counts
    }
    out += bytes.mid(start);
    out += eol;
}

QString joinedNames(const QStringList &names)
{
    QStringList parts;
    for (const QString &name : names) {
        if (!name.trimmed().isEmpty())
            parts.append(name.trimmed());
    }
    return parts.join(u' ');
}

// The five parts of an N value (family, given, additional, prefixes, suffixes), unescaped.
QStringList nameParts(const QString &value)
{
    QStringList parts = splitUnescaped(value, u';');
    while (parts.size() < 5)
        parts.append(QString());
    for (QString &part : parts)
        part = VCard::unescaped(part);
    return parts;
}

}  // namespace

QString VCard::displayName() const
{
    const QString names = joinedNames({givenName, familyName});
    if (!names.isEmpty() || formattedName.trimmed() == organization.trimmed())
        return names;
    return formattedName.trimmed();
}

QString VCard::escaped(const QString &text)
{
    QString out;
    out.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (c == u'\\')
            out += QStringLiteral("\\\\");
        else if (c == u',')
            out += QStringLiteral("\\,");
        else if (c == u';')
            out += QStringLiteral("\\;");
        else if (c == u'\r' && i + 1 < text.size() && text.at(i + 1) == u'\n')
            continue;  // the line feed that follows says it
        else if (c == u'\n' || c == u'\r')
            out += QStringLiteral("\\n");
        else
            out += c;
    }
    return out;
}

QString VCard::unescaped(const QString &text)
{
    QString out;
    out.reserve(text.size());
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text.at(i);
        if (c == u'\\' && i + 1 < text.size()) {
            const QChar next = text.at(++i);
            out += (next == u'n' || next == u'N') ? QChar(u'\n') : next;
        } else {
            out += c;
        }
    }
    return out;
}

QList<VCard> VCard::parseAll(const QByteArray &bytes)
{
    QList<VCard> cards;
    VCard *card = nullptr;
    bool sawOrg = false;
    bool sawNote = false;
    for (const Line &line : logicalLines(bytes)) {
        const QString name = propertyName(line.text);
        const QString value = propertyValue(line.text);
        if (name == QLatin1String("BEGIN") && value.trimmed().compare(QLatin1String("VCARD"), Qt::CaseInsensitive) == 0) {
            cards.append(VCard());
            card = &cards.last();
            card->version.clear();
            card->offset = line.begin;
            sawOrg = sawNote = false;
            continue;
        }
        if (!card)
            continue;
        if (name == QLatin1String("END")) {
            card->raw = bytes.mid(card->offset, line.end - card->offset);
            card = nullptr;
        } else if (name == QLatin1String("VERSION")) {
            card->version = value.trimmed();
        } else if (name == QLatin1String("UID")) {
            card->uid = unescaped(value.trimmed());
        } else if (name == QLatin1String("FN")) {
            card->formattedName = unescaped(value);
        } else if (name == QLatin1String("N")) {
            const QStringList parts = nameParts(value);
            card->familyName = parts.at(0);
            card->givenName = parts.at(1);
        } else if (name == QLatin1String("ORG") && !std::exchange(sawOrg, true)) {
            card->organization = unescaped(splitUnescaped(value, u';').value(0));
        } else if (name == QLatin1String("TEL")) {
            card->phoneNumbers.append(unescaped(value));
        } else if (name == QLatin1String("EMAIL")) {
            card->emailAddresses.append(unescaped(value));
        } else if (name == QLatin1String("NOTE") && !std::exchange(sawNote, true)) {
            card->note = unescaped(value);
        }
    }
    // A card cut off before its END is not one.
    if (card)
        cards.removeLast();
    return cards;
}

QByteArray VCard::serialiseAll(const QList<VCard> &cards)
{
    QByteArray out;
    for (const VCard &card : cards)
        out += card.serialised();
    return out;
}

QByteArray VCard::serialised() const
{
    if (raw.isEmpty()) {
        QByteArray out;
        appendFolded(out, QStringLiteral("BEGIN:VCARD"));
        appendFolded(out, QStringLiteral("VERSION:") + (version.isEmpty() ? QStringLiteral("4.0") : version));
        if (!uid.isEmpty())
            appendFolded(out, QStringLiteral("UID:") + escaped(uid));
        // FN is required: the names, else the organization.
        const QString names = joinedNames({givenName, familyName});
        const QString shown = !formattedName.isEmpty() ? formattedName : !names.isEmpty() ? names : organization;
        appendFolded(out, QStringLiteral("FN:") + escaped(shown));
        appendFolded(out, QStringLiteral("N:") + escaped(familyName) + u';' + escaped(givenName) + QStringLiteral(";;;"));
        if (!organization.isEmpty())
            appendFolded(out, QStringLiteral("ORG:") + escaped(organization));
        for (const QString &number : phoneNumbers)
            appendFolded(out, QStringLiteral("TEL:") + escaped(number));
        for (const QString &address : emailAddresses)
            appendFolded(out, QStringLiteral("EMAIL:") + escaped(address));
        if (!note.isEmpty())
            appendFolded(out, QStringLiteral("NOTE:") + escaped(note));
        appendFolded(out, QStringLiteral("END:VCARD"));
        return out;
    }

    const VCard before = parseAll(raw).value(0);
    const QList<Line> lines = logicalLines(raw);
    const char *eol = raw.contains("\r\n") ? "\r\n" : "\n";
    QList<QByteArray> out;
    QList<QByteArray> after(lines.size());
    int versionLine = 0, fnLine = -1, nLine = -1, orgLine = -1, noteLine = -1;
    QList<int> telLines, emailLines;
    for (int i = 0; i < lines.size(); ++i) {
        out.append(raw.mid(lines.at(i).begin, lines.at(i).end - lines.at(i).begin));
        const QString name = propertyName(lines.at(i).text);
        const auto first = [&](int *index, const char *wanted) {
            if (*index < 0 && name == QLatin1String(wanted))
                *index = i;
        };
        first(&fnLine, "FN");
        first(&nLine, "N");
        first(&orgLine, "ORG");
        first(&noteLine, "NOTE");
        if (name == QLatin1String("VERSION"))
            versionLine = i;
        if (name == QLatin1String("TEL"))
            telLines.append(i);
        else if (name == QLatin1String("EMAIL"))
            emailLines.append(i);
    }
    const int endLine = int(lines.size()) - 1;
    const auto line = [&](const QString &text) {
        QByteArray bytes;
        appendFolded(bytes, text, eol);
        return bytes;
    };
    // The line with a new value, its group, name and parameters as they were.
    const auto withValue = [&](int index, const QString &value) {
        const QString &text = lines.at(index).text;
        return line(text.left(valueStart(text)) + value);
    };
    const auto insert = [&](int afterLine, const QString &text) { after[std::max(afterLine, 0)] += line(text); };
    const auto insertBeforeEnd = [&](const QString &text) { after[std::max(endLine - 1, 0)] += line(text); };

    if (!uid.isEmpty() && before.uid.isEmpty())
        insert(versionLine, QStringLiteral("UID:") + escaped(uid));

    const bool namesChanged = givenName != before.givenName || familyName != before.familyName;
    const bool orgChanged = organization != before.organization;
    const QStringList oldParts = nLine >= 0 ? nameParts(propertyValue(lines.at(nLine).text)) : QStringList(5, QString());
    if (namesChanged) {
        if (nLine >= 0) {
            QStringList parts = splitUnescaped(propertyValue(lines.at(nLine).text), u';');
            while (parts.size() < 5)
                parts.append(QString());
            parts[0] = escaped(familyName);
            parts[1] = escaped(givenName);
            out[nLine] = withValue(nLine, parts.join(u';'));
        } else {
            insert(fnLine >= 0 ? fnLine : versionLine, QStringLiteral("N:") + escaped(familyName) + u';' +
                                                           escaped(givenName) + QStringLiteral(";;;"));
        }
    }
    if (namesChanged || orgChanged) {
        // FN follows the names only where it was made from them (or from the organization
        // of a card without names); one the user wrote ("Mom", a title) stays.
        const QString oldFn = before.formattedName.trimmed();
        const QString simple = joinedNames({oldParts.at(1), oldParts.at(0)});
        const QString full = joinedNames({oldParts.at(3), oldParts.at(1), oldParts.at(2), oldParts.at(0), oldParts.at(4)});
        const bool fromNames = oldFn.isEmpty() || oldFn == simple || oldFn == full;
        const bool fromOrganization = simple.isEmpty() && oldFn == before.organization.trimmed();
        if (fromNames || fromOrganization) {
            QString fn = oldFn == full && full != simple
                             ? joinedNames({oldParts.at(3), givenName, oldParts.at(2), familyName, oldParts.at(4)})
                             : joinedNames({givenName, familyName});
            if (fn.isEmpty())
                fn = organization.trimmed();
            if (fnLine >= 0)
                out[fnLine] = withValue(fnLine, escaped(fn));
            else
                insert(versionLine, QStringLiteral("FN:") + escaped(fn));
        }
    }
    if (orgChanged) {
        if (orgLine >= 0) {
            QStringList parts = splitUnescaped(propertyValue(lines.at(orgLine).text), u';');
            parts[0] = escaped(organization);
            const bool blank = std::all_of(parts.begin(), parts.end(), [](const QString &p) { return p.isEmpty(); });
            out[orgLine] = blank ? QByteArray() : withValue(orgLine, parts.join(u';'));
        } else if (!organization.isEmpty()) {
            insert(nLine >= 0 ? nLine : fnLine >= 0 ? fnLine : versionLine, QStringLiteral("ORG:") + escaped(organization));
        }
    }
    if (note != before.note) {
        if (noteLine >= 0)
            out[noteLine] = note.isEmpty() ? QByteArray() : withValue(noteLine, escaped(note));
        else if (!note.isEmpty())
            insertBeforeEnd(QStringLiteral("NOTE:") + escaped(note));
    }
    // A list keeps the lines of the values it still holds; a changed value takes over the
    // line (and its TYPE) of one that went, in order; more values follow the last line.
    const auto merge = [&](const QList<int> &indices, const QStringList &values, const QString &name) {
        QStringList remaining = values;
        QList<int> freed;
        for (int index : indices) {
            const qsizetype at = remaining.indexOf(unescaped(propertyValue(lines.at(index).text)));
            if (at >= 0)
                remaining.removeAt(at);
            else
                freed.append(index);
        }
        for (int index : freed)
            out[index] = remaining.isEmpty() ? QByteArray() : withValue(index, escaped(remaining.takeFirst()));
        for (const QString &value : remaining) {
            if (indices.isEmpty())
                insertBeforeEnd(name + u':' + escaped(value));
            else
                insert(indices.last(), name + u':' + escaped(value));
        }
    };
    if (phoneNumbers != before.phoneNumbers)
        merge(telLines, phoneNumbers, QStringLiteral("TEL"));
    if (emailAddresses != before.emailAddresses)
        merge(emailLines, emailAddresses, QStringLiteral("EMAIL"));

    QByteArray result;
    for (int i = 0; i < lines.size(); ++i)
        result += out.at(i) + after.at(i);
    return result;
}
