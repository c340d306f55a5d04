#include "tools/contacts/ContactsToolHandler.h"

#include "tools/contacts/ContactsStore.h"
#include "tools/security/PrivacyAccess.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

const QString kSuccess = QStringLiteral("success");

QString textParam(const QVariantMap &params, const QString &key)
{
    const QVariant value = params.value(key);
    return value.typeId() == QMetaType::QString ? value.toString().trimmed() : QString();
}

QJsonObject contactRecord(const ContactsStore::Entry &entry)
{
    return QJsonObject{{QStringLiteral("contact_id"), entry.identifier},
                       {QStringLiteral("given_name"), entry.card.givenName},
                       {QStringLiteral("family_name"), entry.card.familyName},
                       {QStringLiteral("display_name"), entry.card.displayName()},
                       {QStringLiteral("organization_name"), entry.card.organization},
                       {QStringLiteral("phone_numbers"), QJsonArray::fromStringList(entry.card.phoneNumbers)},
                       {QStringLiteral("email_addresses"), QJsonArray::fromStringList(entry.card.emailAddresses)},
                       {QStringLiteral("note"), entry.card.note}};
}

QString composeText(const QString &message, const QJsonObject &structured)
{
    const QString json = QString::fromUtf8(QJsonDocument(structured).toJson(QJsonDocument::Indented)).trimmed();
    if (json.isEmpty())
        return message;
    if (message.isEmpty())
        return QStringLiteral("```json\n") + json + QStringLiteral("\n```");
    return message + QStringLiteral("\n\n```json\n") + json + QStringLiteral("\n```");
}

JSONToolResult success(const QJsonObject &members, const QString &message)
{
    JSONToolResult result;
    QJsonObject structured = members;
    structured.insert(kSuccess, true);
    for (auto it = structured.begin(); it != structured.end(); ++it) {
        if (auto value = AnyCodable::decode(it.value()))
            result.structuredContent.insert(it.key(), *value);
    }
    result.content = {JSONToolContent{QStringLiteral("text"), composeText(message, structured)}};
    return result;
}

std::optional<JSONToolResult> accessFailure()
{
    if (PrivacyAccess::status(PrivacyAccess::Kind::Contacts) == PrivacyAccess::FullAccess)
        return std::nullopt;
    const QString message = QStringLiteral("Contacts access denied.");
    JSONToolResult result = JSONToolResult::errorResult(message);
    const QJsonObject structured{{QStringLiteral("error"), message}, {kSuccess, false}};
    result.content = {JSONToolContent{QStringLiteral("text"), composeText(message, structured)}};
    return result;
}

}  // namespace

ContactsToolHandler *ContactsToolHandler::shared()
{
    static auto *handler = new ContactsToolHandler();
    return handler;
}

ContactsToolHandler::ContactsToolHandler(ContactsStore *store) : m_store(store) {}

ContactsStore *ContactsToolHandler::store() const
{
    return m_store ? m_store : ContactsStore::shared();
}

qint64 ContactsToolHandler::readLimit(const QVariant &value)
{
    qint64 limit = 100;
    switch (value.typeId()) {
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::UInt:
    case QMetaType::ULongLong:
        limit = value.toLongLong();
        break;
    case QMetaType::Double: {
        // JSON numbers arrive as doubles: a whole number is an integer.
        const double number = value.toDouble();
        if (number == double(qint64(number)))
            limit = qint64(number);
        break;
    }
    case QMetaType::QString: {
        bool ok = false;
        const QString text = value.toString();
        const qint64 read = text.toLongLong(&ok, 10);
        // No blanks anywhere; toLongLong would forgive those at the ends.
        if (ok && !text.isEmpty() && !text.front().isSpace() && !text.back().isSpace())
            limit = read;
        break;
    }
    default:
        break;
    }
    return std::max<qint64>(limit, 1);
}

QStringList ContactsToolHandler::readList(const QVariant &value)
{
    QStringList items;
    if (value.typeId() == QMetaType::QString) {
        const QString item = value.toString().trimmed();
        if (!item.isEmpty())
            items.append(item);
    } else if (value.typeId() == QMetaType::QVariantList || value.typeId() == QMetaType::QStringList) {
        for (const QVariant &element : value.toList()) {
            if (element.typeId() != QMetaType::QString)
                continue;
            const QString item = element.toString().trimmed();
            if (!item.isEmpty())
                items.append(item);
        }
    }
    return items;
}

JSONToolResult ContactsToolHandler::listContacts(const QVariantMap &params) const
{
    if (auto denied = accessFailure())
        return *denied;
    const QString query = textParam(params, QStringLiteral("query")).toLower();
    const qint64 limit = readLimit(params.value(QStringLiteral("limit")));
    QJsonArray records;
    QStringList lines;
    const Result<void> listed = store()->enumerate(
        [&](const ContactsStore::Entry &entry) {
            if (records.size() >= limit)
                return false;
            const QJsonObject record = contactRecord(entry);
            if (!query.isEmpty()) {
                const QString haystack = QStringList{entry.card.givenName, entry.card.familyName,
                                                     entry.card.displayName(), entry.card.organization,
                                                     entry.card.phoneNumbers.join(u' '),
                                                     entry.card.emailAddresses.join(u' ')}
                                             .join(u' ')
                                             .toLower();
                if (!haystack.contains(query))
                    return true;
            }
            records.append(record);
            lines.append(entry.identifier + QStringLiteral(", ") + entry.card.displayName());
            return true;
        });
    if (!listed)
        return JSONToolResult::errorResult(QStringLiteral("Failed to list contacts: ") + listed.error().description);
    return success({{QStringLiteral("count"), records.size()}, {QStringLiteral("contacts"), records}},
                   lines.join(u'\n'));
}

JSONToolResult ContactsToolHandler::createContact(const QVariantMap &params) const
{
    if (auto denied = accessFailure())
        return *denied;
    VCard card;
    card.givenName = textParam(params, QStringLiteral("given_name"));
    card.familyName = textParam(params, QStringLiteral("family_name"));
    card.organization = textParam(params, QStringLiteral("organization_name"));
    if (card.givenName.isEmpty() && card.familyName.isEmpty() && card.organization.isEmpty())
        return JSONToolResult::errorResult(
            QStringLiteral("At least one of 'given_name', 'family_name', or 'organization_name' must be provided."));
    card.note = textParam(params, QStringLiteral("note"));
    card.phoneNumbers = readList(params.value(QStringLiteral("phone_numbers")));
    card.emailAddresses = readList(params.value(QStringLiteral("email_addresses")));
    const Result<ContactsStore::Entry> added = store()->add(card);
    const Result<ContactsStore::Entry> saved = added ? store()->contact(added->identifier) : added;
    if (!saved)
        return JSONToolResult::errorResult(QStringLiteral("Failed to create contact: ") + saved.error().description);
    return success({{QStringLiteral("contact"), contactRecord(*saved)}},
                   QStringLiteral("Contact created: ") + saved->card.displayName());
}

JSONToolResult ContactsToolHandler::updateContact(const QVariantMap &params) const
{
    if (auto denied = accessFailure())
        return *denied;
    const QString id = textParam(params, QStringLiteral("contact_id"));
    if (id.isEmpty())
        return JSONToolResult::errorResult(QStringLiteral("Tool parameter 'contact_id' must not be empty."));
    // Read, change and write; when another program changed the file in between, once more
    // over what it wrote.
    for (int attempt = 1;; ++attempt) {
        Result<ContactsStore::Entry> entry = store()->contact(id);
        if (!entry)
            return JSONToolResult::errorResult(QStringLiteral("Failed to update contact: ") + entry.error().description);
        struct Field {
            const char *key;
            QString *target;
        };
        for (const Field &field : {Field{"given_name", &entry->card.givenName}, Field{"family_name", &entry->card.familyName},
                                   Field{"organization_name", &entry->card.organization}, Field{"note", &entry->card.note}}) {
            const QString key = QString::fromLatin1(field.key);
            if (params.contains(key))
                *field.target = textParam(params, key);
        }
        if (params.contains(QStringLiteral("phone_numbers")))
            entry->card.phoneNumbers = readList(params.value(QStringLiteral("phone_numbers")));
        if (params.contains(QStringLiteral("email_addresses")))
            entry->card.emailAddresses = readList(params.value(QStringLiteral("email_addresses")));
        const Result<void> updated = store()->update(*entry);
        if (!updated && updated.error().code == ContactsStore::Stale && attempt < 2)
            continue;
        const Result<ContactsStore::Entry> saved =
            updated ? store()->contact(entry->identifier) : Result<ContactsStore::Entry>(updated.error());
        if (!saved)
            return JSONToolResult::errorResult(QStringLiteral("Failed to update contact: ") + saved.error().description);
        return success({{QStringLiteral("contact"), contactRecord(*saved)}},
                       QStringLiteral("Contact updated: ") + saved->card.displayName());
    }
}

JSONToolResult ContactsToolHandler::deleteContact(const QVariantMap &params) const
{
    if (auto denied = accessFailure())
        return *denied;
    const QString id = textParam(params, QStringLiteral("contact_id"));
    if (id.isEmpty())
        return JSONToolResult::errorResult(QStringLiteral("Tool parameter 'contact_id' must not be empty."));
    for (int attempt = 1;; ++attempt) {
        const Result<ContactsStore::Entry> entry = store()->contact(id);
        const Result<void> removed = entry ? store()->remove(*entry) : Result<void>(entry.error());
        if (removed)
            break;
        if (removed.error().code != ContactsStore::Stale || attempt == 2)
            return JSONToolResult::errorResult(QStringLiteral("Failed to delete contact: ") + removed.error().description);
    }
    return success({{QStringLiteral("contact_id"), id}}, QStringLiteral("Contact deleted: ") + id);
}
