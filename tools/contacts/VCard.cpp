#include "tools/contacts/VCard.h"

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

// The value: after the first ':' that is not inside a quoted parameter.
QString propertyValue(const QString &line)
{
    bool quoted = false;
    for (qsizetype i = 0; i < line.size(); ++i) {
        const QChar c = line.at(i);
        if (c == u'"')
            quoted = !quoted;
        else if (c == u':' && !quoted)
            return line.mid(i + 1);
    }
    return {};
}

QStringList unfoldedLines(const QByteArray &bytes)
{
    QStringList lines;
    const QString text = QString::fromUtf8(bytes);
    for (const QString &raw : text.split(u'\n')) {
        QString line = raw;
        if (line.endsWith(u'\r'))
            line.chop(1);
        if ((line.startsWith(u' ') || line.startsWith(u'\t')) && !lines.isEmpty())
            lines.last() += line.mid(1);
        else if (!line.isEmpty())
            lines.append(line);
    }
    return lines;
}

// Folds a line at 75 octets without splitting a UTF-8 sequence.
void appendFolded(QByteArray &out, const QString &line)
{
    const QByteArray bytes = line.toUtf8();
    qsizetype start = 0;
    qsizetype limit = 75;
    while (bytes.size() - start > limit) {
        qsizetype cut = start + limit;
        while (cut > start && (uchar(bytes.at(cut)) & 0xC0) == 0x80)
            --cut;
        out += bytes.mid(start, cut - start);
        out += "\r\n ";
        start = cut;
        limit = 74;  // the leading blank counts
    }
    out += bytes.mid(start);
    out += "\r\n";
}

}  // namespace

QString VCard::displayName() const
{
    QStringList parts;
    for (const QString &name : {givenName.trimmed(), familyName.trimmed()}) {
        if (!name.isEmpty())
            parts.append(name);
    }
    return parts.join(u' ');
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
    for (const QString &line : unfoldedLines(bytes)) {
        const QString name = propertyName(line);
        const QString value = propertyValue(line);
        if (name == QLatin1String("BEGIN") && value.trimmed().compare(QLatin1String("VCARD"), Qt::CaseInsensitive) == 0) {
            cards.append(VCard());
            card = &cards.last();
            card->version.clear();
            continue;
        }
        if (!card)
            continue;
        if (name == QLatin1String("END")) {
            card = nullptr;
        } else if (name == QLatin1String("VERSION")) {
            card->version = value.trimmed();
        } else if (name == QLatin1String("UID")) {
            card->uid = unescaped(value.trimmed());
        } else if (name == QLatin1String("N")) {
            const QStringList parts = splitUnescaped(value, u';');
            card->familyName = unescaped(parts.value(0));
            card->givenName = unescaped(parts.value(1));
            card->otherLines.append(line);  // the other name parts go back as they were
        } else if (name == QLatin1String("ORG")) {
            card->organization = unescaped(splitUnescaped(value, u';').value(0));
        } else if (name == QLatin1String("TEL")) {
            card->phoneNumbers.append(unescaped(value));
        } else if (name == QLatin1String("EMAIL")) {
            card->emailAddresses.append(unescaped(value));
        } else if (name == QLatin1String("NOTE")) {
            card->note = unescaped(value);
        } else if (name != QLatin1String("FN")) {
            card->otherLines.append(line);
        }
    }
    return cards;
}

QByteArray VCard::serialiseAll(const QList<VCard> &cards)
{
    QByteArray out;
    for (const VCard &card : cards) {
        appendFolded(out, QStringLiteral("BEGIN:VCARD"));
        appendFolded(out, QStringLiteral("VERSION:") + (card.version.isEmpty() ? QStringLiteral("4.0") : card.version));
        if (!card.uid.isEmpty())
            appendFolded(out, QStringLiteral("UID:") + card.uid);
        // FN is required: the display name, else the organization.
        const QString shown = card.displayName().isEmpty() ? card.organization : card.displayName();
        appendFolded(out, QStringLiteral("FN:") + escaped(shown));
        // N keeps its other parts (additional names, prefixes, suffixes) from the card read.
        QStringList nParts = {QString(), QString(), QString(), QString(), QString()};
        for (const QString &line : card.otherLines) {
            if (propertyName(line) == QLatin1String("N")) {
                const QStringList read = splitUnescaped(propertyValue(line), u';');
                for (int i = 2; i < 5; ++i)
                    nParts[i] = read.value(i);
            }
        }
        nParts[0] = escaped(card.familyName);
        nParts[1] = escaped(card.givenName);
        appendFolded(out, QStringLiteral("N:") + nParts.join(u';'));
        if (!card.organization.isEmpty())
            appendFolded(out, QStringLiteral("ORG:") + escaped(card.organization));
        for (const QString &number : card.phoneNumbers)
            appendFolded(out, QStringLiteral("TEL;TYPE=main:") + escaped(number));
        for (const QString &address : card.emailAddresses)
            appendFolded(out, QStringLiteral("EMAIL;TYPE=work:") + escaped(address));
        if (!card.note.isEmpty())
            appendFolded(out, QStringLiteral("NOTE:") + escaped(card.note));
        for (const QString &line : card.otherLines) {
            if (propertyName(line) != QLatin1String("N"))
                appendFolded(out, line);
        }
        appendFolded(out, QStringLiteral("END:VCARD"));
    }
    return out;
}
