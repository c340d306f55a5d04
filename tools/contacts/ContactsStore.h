#pragma once

#include "base/Result.h"
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

    // Failures carry this domain; the description is the reason a tool shows.
    static QString errorDomain() { return QStringLiteral("ContactsStore"); }
    enum ErrorCode {
        Failed = 1,
        Stale = 2,  // the file changed since the card was read: nothing was written, read it again
    };

    // Walks the contacts in collection and file order until visit returns false. Fails when
    // the tree cannot be read.
    Result<void> enumerate(const std::function<bool(const Entry &)> &visit);
    Result<Entry> contact(const QString &identifier);
    // A new contact (its UID made here) into the default collection.
    Result<Entry> add(VCard card);
    // Writes the card over the one it was read from; entry's identifier becomes the card's
    // UID.
    Result<void> update(Entry &entry);
    Result<void> remove(const Entry &entry);

private:
    std::optional<Entry> find(const QString &identifier);
    Result<void> rewrite(const Entry &entry, const std::optional<VCard> &replacement);

    std::mutex m_mutex;
    QString m_root;
};
