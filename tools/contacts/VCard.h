#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

// One contact card of a vCard file (RFC 6350, version 4.0; 3.0 cards, what most exports
// hold, read the same way). The properties the contact tools use are fields; every other
// line is kept as it was read and written back, so a card made by another program keeps
// what Kelvara does not show.
struct VCard {
    QString version = QStringLiteral("4.0");
    QString uid;
    QString givenName;
    QString familyName;
    QString organization;
    QStringList phoneNumbers;
    QStringList emailAddresses;
    QString note;
    QStringList otherLines;  // unfolded, as read

    // "Given Family" of the names that are not blank.
    QString displayName() const;

    // Every card of a file; lines may end in CRLF or LF and be folded.
    static QList<VCard> parseAll(const QByteArray &bytes);
    // The cards with CRLF line ends, long lines folded at 75 octets.
    static QByteArray serialiseAll(const QList<VCard> &cards);

    static QString escaped(const QString &text);
    static QString unescaped(const QString &text);
};
