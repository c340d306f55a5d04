#include "tools/contacts/ContactsStore.h"

#include "base/AppPaths.h"
#include "base/AtomicFile.h"
#include "base/UserDefaults.h"
#include "tools/calendar/PrivateFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUuid>

namespace {

QByteArray readBytes(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return file.read(16 << 20);
}

QString identifierOf(const VCard &card, const QString &path, int index)
{
    if (!card.uid.isEmpty())
        return card.uid;
    const QString base = QFileInfo(path).completeBaseName();
    return index == 0 ? base : base + u'#' + QString::number(index);
}

}  // namespace

ContactsStore::ContactsStore(QString root) : m_root(std::move(root)) {}

ContactsStore *ContactsStore::shared()
{
    static auto *store = new ContactsStore(QString());
    store->setRoot(UserDefaults::standard()->value(rootSettingKey(), defaultRoot()).toString());
    return store;
}

QString ContactsStore::defaultRoot()
{
    return AppPaths::dataDir() + QStringLiteral("/Contacts");
}

void ContactsStore::setRoot(const QString &root)
{
    std::lock_guard lock(m_mutex);
    m_root = root;
}

bool ContactsStore::enumerate(const std::function<bool(const Entry &)> &visit, QString *error)
{
    std::lock_guard lock(m_mutex);
    const QDir root(m_root);
    if (root.exists() && !QFileInfo(m_root).isReadable()) {
        *error = QStringLiteral("The contacts folder '%1' cannot be read.").arg(m_root);
        return false;
    }
    for (const QString &collection : root.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name)) {
        const QDir dir(root.filePath(collection));
        for (const QString &file : dir.entryList({QStringLiteral("*.vcf")}, QDir::Files, QDir::Name)) {
            const QString path = dir.filePath(file);
            const QList<VCard> cards = VCard::parseAll(readBytes(path));
            for (int i = 0; i < cards.size(); ++i) {
                if (!visit(Entry{cards.at(i), identifierOf(cards.at(i), path, i), path}))
                    return true;
            }
        }
    }
    return true;
}

std::optional<ContactsStore::Entry> ContactsStore::find(const QString &identifier)
{
    const QDir root(m_root);
    for (const QString &collection : root.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name)) {
        const QDir dir(root.filePath(collection));
        for (const QString &file : dir.entryList({QStringLiteral("*.vcf")}, QDir::Files, QDir::Name)) {
            const QString path = dir.filePath(file);
            const QList<VCard> cards = VCard::parseAll(readBytes(path));
            for (int i = 0; i < cards.size(); ++i) {
                if (identifierOf(cards.at(i), path, i) == identifier)
                    return Entry{cards.at(i), identifier, path};
            }
        }
    }
    return std::nullopt;
}

std::optional<ContactsStore::Entry> ContactsStore::contact(const QString &identifier, QString *error)
{
    std::lock_guard lock(m_mutex);
    std::optional<Entry> found = find(identifier);
    if (!found)
        *error = QStringLiteral("No contact has the identifier '%1'.").arg(identifier);
    return found;
}

std::optional<ContactsStore::Entry> ContactsStore::add(VCard card, QString *error)
{
    std::lock_guard lock(m_mutex);
    QDir root(m_root);
    QStringList collections = root.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    if (collections.isEmpty()) {
        // Address books are private: the folder 0700, its files 0600.
        if (!PrivateFile::makeFolder(root.filePath(QStringLiteral("contacts"))) ||
            PrivateFile::write(root.filePath(QStringLiteral("contacts/displayname")), "Contacts")) {
            *error = QStringLiteral("The contacts folder '%1' could not be created.").arg(root.filePath(QStringLiteral("contacts")));
            return std::nullopt;
        }
        collections = {QStringLiteral("contacts")};
    }
    if (card.uid.isEmpty())
        card.uid = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    const QString path = QDir(root.filePath(collections.first())).filePath(card.uid + QStringLiteral(".vcf"));
    if (const std::optional<QString> failed = PrivateFile::write(path, VCard::serialiseAll({card}))) {
        *error = *failed;
        return std::nullopt;
    }
    return Entry{card, card.uid, path};
}

bool ContactsStore::rewrite(const QString &path, const QString &identifier, const std::optional<VCard> &replacement,
                            QString *error)
{
    QList<VCard> cards = VCard::parseAll(readBytes(path));
    bool found = false;
    for (int i = 0; i < cards.size(); ++i) {
        if (identifierOf(cards.at(i), path, i) != identifier)
            continue;
        found = true;
        if (replacement)
            cards[i] = *replacement;
        else
            cards.removeAt(i);
        break;
    }
    if (!found) {
        *error = QStringLiteral("No contact has the identifier '%1'.").arg(identifier);
        return false;
    }
    if (cards.isEmpty()) {
        if (!QFile::remove(path)) {
            *error = QStringLiteral("The file '%1' could not be removed.").arg(path);
            return false;
        }
        return true;
    }
    if (const std::optional<QString> failed = AtomicFile::write(path, VCard::serialiseAll(cards))) {
        *error = *failed;
        return false;
    }
    return true;
}

bool ContactsStore::update(const Entry &entry, QString *error)
{
    std::lock_guard lock(m_mutex);
    return rewrite(entry.filePath, entry.identifier, entry.card, error);
}

bool ContactsStore::remove(const Entry &entry, QString *error)
{
    std::lock_guard lock(m_mutex);
    return rewrite(entry.filePath, entry.identifier, std::nullopt, error);
}
