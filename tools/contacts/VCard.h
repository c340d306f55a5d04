#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

// One contact card of a vCard file (RFC 6350, version 4.0; 3.0 cards, what most exports
// hold, read the same way). The properties the contact tools use are fields; the card also
// keeps the bytes it was read from, and writing it back edits only the lines of the fields
// that changed: every other line (photos, addresses, groups, X- properties, parameters,
// folding, line ends) goes back byte for byte, and a 3.0 card stays 3.0.
struct VCard {
    QString version = QStringLiteral("4.0");
    QString uid;
    QString formattedName;  // FN
    QString givenName;
    QString familyName;
    QString organization;   // the first component of the first ORG line
    QStringList phoneNumbers;
    QStringList emailAddresses;
    QString note;

    // The card as it was read, from BEGIN to the line end after END; empty for a new card.
    QByteArray raw;
    qsizetype offset = -1;  // where raw starts in its file

    // "Given Family" of the names that are not blank. A card without either name that is
    // not an organisation's (FN other than ORG, as "Mom") shows its FN.
    QString displayName() const;

    // Every card of a file; lines may end in CRLF or LF and be folded.
    static QList<VCard> parseAll(const QByteArray &bytes);
    // The card: raw with the changed fields' lines edited, or a new card with CRLF line
    // ends, long lines folded at 75 octets.
    QByteArray serialised() const;
    static QByteArray serialiseAll(const QList<VCard> &cards);

    static QString escaped(const QString &text);
    static QString unescaped(const QString &text);
};
