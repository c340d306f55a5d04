#include "tools/contacts/ContactsStore.h"

#include "base/AppPaths.h"
#include "base/AtomicFile.h"
#include "base/UserDefaults.h"
#include "tools/calendar/PrivateFile.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QUuid>

#include <sys/stat.h>

namespace {

std::optional<std::pair<qint64, qint64>> statusOf(const QString &path)
{
    struct stat status {};
    if (::stat(QFile::encodeName(path).constData(), &status) != 0)
        return std::nullopt;
    return std::pair{qint64(status.st_size), qint64(status.st_mtim.tv_sec) * 1000000000 + status.st_mtim.tv_nsec};
}

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

AppError failure(const QString &description, int code = ContactsStore::Failed)
{
    return AppError{ContactsStore::errorDomain(), code, description};
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

Result<void> ContactsStore::enumerate(const std::function<bool(const Entry &)> &visit)
{
    std::lock_guard lock(m_mutex);
    const QDir root(m_root);
    if (root.exists() && !QFileInfo(m_root).isReadable())
        return failure(QStringLiteral("The contacts folder '%1' cannot be read.").arg(m_root));
    for (const QString &collection : root.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name)) {
        const QDir dir(root.filePath(collection));
        for (const QString &file : dir.entryList({QStringLiteral("*.vcf")}, QDir::Files, QDir::Name)) {
            const QString path = dir.filePath(file);
            const auto status = statusOf(path);
            const QList<VCard> cards = VCard::parseAll(readBytes(path));
            for (int i = 0; i < cards.size(); ++i) {
                Entry entry{cards.at(i), identifierOf(cards.at(i), path, i), path};
                if (status)
                    std::tie(entry.fileSize, entry.fileModified) = *status;
                if (!visit(entry))
                    return {};
            }
        }
    }
    return {};
}

std::optional<ContactsStore::Entry> ContactsStore::find(const QString &identifier)
{
    const QDir root(m_root);
    for (const QString &collection : root.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name)) {
        const QDir dir(root.filePath(collection));
        for (const QString &file : dir.entryList({QStringLiteral("*.vcf")}, QDir::Files, QDir::Name)) {
            const QString path = dir.filePath(file);
            const auto status = statusOf(path);
            const QList<VCard> cards = VCard::parseAll(readBytes(path));
            for (int i = 0; i < cards.size(); ++i) {
                if (identifierOf(cards.at(i), path, i) != identifier)
                    continue;
                Entry entry{cards.at(i), identifier, path};
                if (status)
                    std::tie(entry.fileSize, entry.fileModified) = *status;
                return entry;
            }
        }
    }
    return std::nullopt;
}

Result<ContactsStore::Entry> ContactsStore::contact(const QString &identifier)
{
    std::lock_guard lock(m_mutex);
    std::optional<Entry> found = find(identifier);
    if (!found)
        return failure(QStringLiteral("No contact has the identifier '%1'.").arg(identifier));
    return *std::move(found);
}

Result<ContactsStore::Entry> ContactsStore::add(VCard card)
{
    std::lock_guard lock(m_mutex);
    QDir root(m_root);
    QStringList collections = root.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    if (collections.isEmpty()) {
        // Address books are private: the folder 0700, its files 0600.
        if (!PrivateFile::makeFolder(root.filePath(QStringLiteral("contacts"))) ||
            PrivateFile::write(root.filePath(QStringLiteral("contacts/displayname")), "Contacts"))
            return failure(QStringLiteral("The contacts folder '%1' could not be created.")
                               .arg(root.filePath(QStringLiteral("contacts"))));
        collections = {QStringLiteral("contacts")};
    }
    if (card.uid.isEmpty())
        card.uid = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
    const QString path = QDir(root.filePath(collections.first())).filePath(card.uid + QStringLiteral(".vcf"));
    if (const std::optional<QString> failed = PrivateFile::write(path, VCard::serialiseAll({card})))
        return failure(*failed);
    return Entry{card, card.uid, path};
}

Result<void> ContactsStore::rewrite(const Entry &entry, const std::optional<VCard> &replacement)
{
    const QString &path = entry.filePath;
    // Another program (a sync, an address book) changed the file since the card was read:
    // writing now would put the old card back over its change.
    if (entry.fileSize >= 0 && statusOf(path) != std::optional(std::pair{entry.fileSize, entry.fileModified}))
        return failure(QStringLiteral("The file '%1' was changed by another program; read it again.").arg(path), Stale);
    const QByteArray bytes = readBytes(path);
    const QList<VCard> cards = VCard::parseAll(bytes);
    int target = -1;
    for (int i = 0; i < cards.size() && target < 0; ++i) {
        if (identifierOf(cards.at(i), path, i) == entry.identifier)
            target = i;
    }
    if (target < 0)
        return failure(QStringLiteral("No contact has the identifier '%1'.").arg(entry.identifier));
    if (!replacement && cards.size() == 1) {
        if (!QFile::remove(path))
            return failure(QStringLiteral("The file '%1' could not be removed.").arg(path));
        return {};
    }
    // The bytes between and around the cards stay; a card without UID gets its id as one.
    QByteArray out;
    qsizetype copied = 0;
    for (int i = 0; i < cards.size(); ++i) {
        const VCard &card = cards.at(i);
        out += bytes.mid(copied, card.offset - copied);
        copied = card.offset + card.raw.size();
        if (i == target && !replacement)
            continue;
        VCard written = i == target ? *replacement : card;
        if (written.uid.isEmpty())
            written.uid = identifierOf(card, path, i);
        out += written.serialised();
    }
    out += bytes.mid(copied);
    if (const std::optional<QString> failed = PrivateFile::write(path, out))
        return failure(*failed);
    return {};
}

Result<void> ContactsStore::update(Entry &entry)
{
    std::lock_guard lock(m_mutex);
    if (entry.card.uid.isEmpty())
        entry.card.uid = entry.identifier;
    if (Result<void> written = rewrite(entry, entry.card); !written)
        return written;
    entry.identifier = entry.card.uid;
    return {};
}

Result<void> ContactsStore::remove(const Entry &entry)
{
    std::lock_guard lock(m_mutex);
    return rewrite(entry, std::nullopt);
}
