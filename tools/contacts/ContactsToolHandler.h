#pragma once

#include "tools/results/JSONToolResult.h"

#include <QStringList>
#include <QVariant>
#include <QVariantMap>

class ContactsStore;

// The built-in contact tools "listContacts", "createContact", "updateContact" and
// "deleteContact" over the contacts folder tree. A success has one text item, the message
// and a JSON copy of the structured content; access is the application's privacy setting
// for contacts.
//
// Any thread: the operations run on the engine worker that calls them; the store takes
// turns on its own lock.
class ContactsToolHandler {
public:
    static ContactsToolHandler *shared();
    // Over the shared store unless one is given.
    explicit ContactsToolHandler(ContactsStore *store = nullptr);

    JSONToolResult listContacts(const QVariantMap &params) const;
    JSONToolResult createContact(const QVariantMap &params) const;
    JSONToolResult updateContact(const QVariantMap &params) const;
    JSONToolResult deleteContact(const QVariantMap &params) const;

    // An integer as it is, a decimal text with an optional sign; anything else gives 100.
    // Then at least 1.
    static qint64 readLimit(const QVariant &value);
    // From an array of strings or one string: trimmed, empty ones dropped.
    static QStringList readList(const QVariant &value);

private:
    ContactsStore *store() const;
    ContactsStore *m_store;
};
