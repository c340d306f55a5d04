#pragma once

#include "tools/contacts/VCard.h"

#include <QString>
#include <functional>
#include <mutex>
#include <optional>

// Contacts kept as a vdir tree of vCard files: <root>/<collection>/<uid>.vcf, a collection
// being a folder (an address book); a file may hold several cards, as exports do. Each
// call reads the files anew, so what another program wrote is seen at once; writes go to
// a temporary file that then takes the file's place. New contacts go to the first
// collection, or to a new "Contacts" one when there is none.
//
// A write changes only the bytes of its own card; the other cards of the file stay as
// they are. A card without a UID is known by its file's name ("<name>" for the first card,
// "<name>#<n>" for the n-th after it); the first write to its file gives every such card of
// the file that id as its UID, so ids listed before stay valid and never shift when a card
// before them goes.
//
// Any thread: the operations take turns on one lock.
class ContactsStore {
public:
    struct Entry {
        VCard card;
        QString identifier;  // the UID, or the file's name without one
        QString filePath;
        // The file as it was when the card was read: a write refuses a newer one.
        qint64 fileSize = -1;
        qint64 fileModified = 0;  // nanoseconds
    };

    explicit ContactsStore(QString root);
    // Over the root of the setting "mcp.contacts.root", by default
    // $XDG_DATA_HOME/Kelvara/Contacts; the root is read again on every call.
    static ContactsStore *shared();
    static QString defaultRoot();
    static QString rootSettingKey() { return QStringLiteral("mcp.contacts.root"); }
    void setRoot(const QString &root);

    // Walks the contacts in collection and file order until visit returns false. False
    // with the reason when the tree cannot be read.
    bool enumerate(const std::function<bool(const Entry &)> &visit, QString *error);
    std::optional<Entry> contact(const QString &identifier, QString *error);
    // A new contact (its UID made here) into the default collection.
    std::optional<Entry> add(VCard card, QString *error);
    // Writes the card over the one it was read from; entry's identifier becomes the card's
    // UID. When the file changed since the card was read nothing is written and stale is
    // set: read it again.
    bool update(Entry &entry, QString *error, bool *stale = nullptr);
    bool remove(const Entry &entry, QString *error, bool *stale = nullptr);

private:
    std::optional<Entry> find(const QString &identifier);
    bool rewrite(const Entry &entry, const std::optional<VCard> &replacement, QString *error, bool *stale);

    std::mutex m_mutex;
    QString m_root;
};
