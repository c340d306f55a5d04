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
// Any thread: the operations take turns on one lock.
class ContactsStore {
public:
    struct Entry {
        VCard card;
        QString identifier;  // the UID, or the file's name without one
        QString filePath;
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
    bool update(const Entry &entry, QString *error);
    bool remove(const Entry &entry, QString *error);

private:
    std::optional<Entry> find(const QString &identifier);
    bool rewrite(const QString &path, const QString &identifier, const std::optional<VCard> &replacement,
                 QString *error);

    std::mutex m_mutex;
    QString m_root;
};
