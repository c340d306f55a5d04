#pragma once

#include "tools/security/PrivacyAccess.h"

#include <QList>
#include <QObject>
#include <QString>

// The privacy setting as the window shows it: the question asked once when the first main
// window appears, for each kind not yet decided (reminders, then calendars, then contacts,
// one after the other), and the switches of the "Privacy" settings page.
class PrivacyAccessController : public QObject {
    Q_OBJECT

public:
    using Kind = PrivacyAccess::Kind;

    explicit PrivacyAccessController(QObject *parent = nullptr);

    // The kinds still to ask about, in the order they are asked.
    static QList<Kind> undecided();
    static QString questionTitle(Kind kind);
    static QString questionText(Kind kind);
    static QString label(Kind kind);

    bool isGranted(Kind kind) const;
    void setGranted(Kind kind, bool granted);
    // The answer to the question: the same as the switch.
    void answer(Kind kind, bool allow) { setGranted(kind, allow); }

signals:
    void accessChanged(PrivacyAccess::Kind kind, bool granted);
};
