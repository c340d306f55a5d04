#pragma once

#include <QByteArray>
#include <QString>

#include <libical/ical.h>

// Writes changes to an iCalendar file as edits of its text: a file holds what other
// programs wrote (their folding, parameter spelling, order, unknown properties, alarms,
// other events), and a change to one item must leave every other byte as it was.
//
// The components of one UID (the item and its overrides) are matched with those of a
// parsed tree that holds the change. A property or sub-component (VALARM) whose value
// is the same as before keeps its original lines where they were; a changed one takes the
// place of the one it replaces; a new one goes after its kind, or at the end. Components
// gone from the tree are cut out of the text, new ones follow the item's last component,
// and a VTIMEZONE the tree has and the file lacks goes before the first item. Lines the
// library could not read stay as they were.
class CalendarFileText {
public:
    // The file with the components of uid as they are in root. An empty or unreadable
    // original gives root's own serialisation.
    static QByteArray spliced(const QByteArray &original, icalcomponent *root, const QString &uid);
    // A new file holding only the components of uid as they are in root (their unchanged
    // lines as in original) and the VTIMEZONEs of original they name.
    static QByteArray extracted(const QByteArray &original, icalcomponent *root, const QString &uid);
    // The file with a UID line written into each item that has none: "<name>" for the first
    // such item of the file, "<name>#<n>" for the n-th after it, name being the file's name
    // without its suffix. Read and written through this, an item's id never depends on its
    // position after the first write. The original when every item has a UID.
    static QByteArray withUids(const QByteArray &original, const QString &name);
    // Whether the file holds an item (event, to-do, journal) of another UID.
    static bool holdsOthers(const QByteArray &original, const QString &uid);
};
