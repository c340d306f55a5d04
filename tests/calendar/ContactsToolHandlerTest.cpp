#include "tools/contacts/ContactsStore.h"
#include "tools/contacts/ContactsToolHandler.h"
#include "tools/contacts/VCard.h"
#include "tools/security/PrivacyAccess.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QTemporaryDir>

namespace {

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QJsonObject structured(const JSONToolResult &result)
{
    return result.toJsonObject().value(QStringLiteral("structuredContent")).toObject();
}

QString textOf(const JSONToolResult &result)
{
    return result.content.isEmpty() ? QString() : result.content.first().text;
}

QVariantMap params(std::initializer_list<std::pair<const char *, QVariant>> pairs)
{
    QVariantMap map;
    for (const auto &[key, value] : pairs)
        map.insert(QString::fromLatin1(key), value);
    return map;
}

class ContactsToolTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        PrivacyAccess::setStatus(PrivacyAccess::Kind::Contacts, PrivacyAccess::FullAccess);
        QDir(dir.path()).mkpath("phone");
        for (const char *name : {"phone-export.vcf", "card-4.0.vcf"}) {
            const QString target = dir.path() + "/phone/" + name;
            QFile::copy(QStringLiteral(KELVARA_CALENDAR_TEST_DATA "/") + name, target);
            QFile(target).setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
        }
    }

    QTemporaryDir dir;
    ContactsStore store{dir.path()};
    ContactsToolHandler handler{&store};
};

}  // namespace

TEST(VCardFiles, VersionThreeAndFourWithFoldedLinesEscapesAndSeveralNumbers)
{
    const QList<VCard> export3 = VCard::parseAll(readFile(QStringLiteral(KELVARA_CALENDAR_TEST_DATA "/phone-export.vcf")));
    ASSERT_EQ(export3.size(), 2);
    const VCard &maja = export3.first();
    EXPECT_EQ(maja.version, "3.0");
    EXPECT_EQ(maja.givenName, "Maja");
    EXPECT_EQ(maja.familyName, "Lindqvist");
    EXPECT_EQ(maja.organization, "Nordlicht Instruments, AB");
    EXPECT_EQ(maja.phoneNumbers, QStringList({"+46 70 123 45 67", "+46 8 555 010 20"}));
    EXPECT_EQ(maja.emailAddresses, QStringList({"maja.lindqvist@example.org"}));
    EXPECT_EQ(maja.note, "Met at the sensor conference, asked about calibration\nCall back in spring");
    EXPECT_EQ(export3.at(1).displayName(), "");
    EXPECT_EQ(export3.at(1).organization, "Borealis Labs");

    const QList<VCard> card4 = VCard::parseAll(readFile(QStringLiteral(KELVARA_CALENDAR_TEST_DATA "/card-4.0.vcf")));
    ASSERT_EQ(card4.size(), 1);
    EXPECT_EQ(card4.first().uid, "urn:uuid:4fbe8971-0bc3-424c-9c26-36c3e1eff6b1");
    EXPECT_EQ(card4.first().displayName(), QString::fromUtf8("Jürgen Öberg"));
    EXPECT_EQ(card4.first().emailAddresses.size(), 2);
    EXPECT_EQ(card4.first().note, "Prefers mail; speaks German, Swedish and English");

    // Written back: lines of at most 75 octets, no UTF-8 sequence cut, and the same card
    // read again, the lines Kelvara does not show (the address, the middle name) kept.
    VCard long3 = maja;
    long3.note = QString::fromUtf8("Långa anteckningar, med ; och \\ och radbrytningar\r\növer flera rader ") + QString(120, QChar(0x00E9));
    const QByteArray written = VCard::serialiseAll({long3});
    for (const QByteArray &line : written.split('\n'))
        EXPECT_LE(line.size(), 76) << line.toStdString();  // 75 octets and the CR
    EXPECT_TRUE(QString::fromUtf8(written).isValidUtf16());
    EXPECT_FALSE(written.contains("\xEF\xBF\xBD"));  // no replacement character
    const VCard again = VCard::parseAll(written).first();
    EXPECT_EQ(again.note, QString::fromUtf8("Långa anteckningar, med ; och \\ och radbrytningar\növer flera rader ") + QString(120, QChar(0x00E9)));
    EXPECT_EQ(again.organization, maja.organization);
    EXPECT_EQ(again.phoneNumbers, maja.phoneNumbers);
    EXPECT_TRUE(written.contains("item1.ADR;type=WORK;type=pref:;;Storgatan 1;Lund;;223 50;Sweden"));
    EXPECT_TRUE(written.contains("N:Lindqvist;Maja;Elin;Dr.;"));
}

TEST_F(ContactsToolTest, ListingFiltersByQueryAndStopsAtTheLimit)
{
    QJsonObject all = structured(handler.listContacts({}));
    EXPECT_EQ(all.value("count").toInt(), 3);
    // Across given and family name, in capitals, and a number only as it is stored.
    EXPECT_EQ(structured(handler.listContacts(params({{"query", "MAJA LINDQVIST"}}))).value("count").toInt(), 1);
    EXPECT_EQ(structured(handler.listContacts(params({{"query", "+46 40 600"}}))).value("count").toInt(), 1);
    EXPECT_EQ(structured(handler.listContacts(params({{"query", "+4640600"}}))).value("count").toInt(), 0);
    EXPECT_EQ(structured(handler.listContacts(params({{"limit", 0}}))).value("count").toInt(), 1);
    EXPECT_EQ(structured(handler.listContacts(params({{"limit", -4}}))).value("count").toInt(), 1);
    EXPECT_EQ(structured(handler.listContacts(params({{"limit", "2"}}))).value("count").toInt(), 2);
    EXPECT_EQ(ContactsToolHandler::readLimit("5"), 5);
    EXPECT_EQ(ContactsToolHandler::readLimit("+5"), 5);
    EXPECT_EQ(ContactsToolHandler::readLimit(" 5"), 100);
    EXPECT_EQ(ContactsToolHandler::readLimit("99999999999999999999"), 100);
    // An organization alone: the line ends after the comma and blank.
    const JSONToolResult org = handler.listContacts(params({{"query", "borealis"}}));
    EXPECT_TRUE(textOf(org).startsWith(", \n") == false);
    EXPECT_TRUE(textOf(org).section(u'\n', 0, 0).endsWith(", ")) << textOf(org).toStdString();
}

TEST_F(ContactsToolTest, CreateUpdateAndDeleteKeepTheirTexts)
{
    EXPECT_EQ(structured(handler.createContact(params({{"given_name", "  "}, {"family_name", "\n"}}))).value("error").toString(),
              "At least one of 'given_name', 'family_name', or 'organization_name' must be provided.");
    const JSONToolResult created = handler.createContact(
        params({{"given_name", " Ada "}, {"family_name", "Byron"}, {"phone_numbers", " +44 20 7946 0000 "},
                {"email_addresses", QVariantList{"ada@example.org", "  ", 7}}}));
    const QJsonObject contact = structured(created).value("contact").toObject();
    EXPECT_TRUE(textOf(created).startsWith("Contact created: Ada Byron\n\n```json\n"));
    EXPECT_EQ(contact.value("phone_numbers").toArray(), QJsonArray({"+44 20 7946 0000"}));
    EXPECT_EQ(contact.value("email_addresses").toArray(), QJsonArray({"ada@example.org"}));
    const QString id = contact.value("contact_id").toString();

    // A number empties the given name; an empty array removes every number; without the
    // key the addresses stay.
    const QJsonObject updated = structured(handler.updateContact(
        params({{"contact_id", id}, {"given_name", 42}, {"phone_numbers", QVariantList{}}}))).value("contact").toObject();
    EXPECT_EQ(updated.value("given_name").toString(), "");
    EXPECT_EQ(updated.value("display_name").toString(), "Byron");
    EXPECT_TRUE(updated.value("phone_numbers").toArray().isEmpty());
    EXPECT_EQ(updated.value("email_addresses").toArray().size(), 1);

    const QString unknown = structured(handler.updateContact(params({{"contact_id", "nobody"}}))).value("error").toString();
    EXPECT_TRUE(unknown.startsWith("Failed to update contact: ")) << unknown.toStdString();
    EXPECT_EQ(structured(handler.updateContact(params({{"contact_id", " "}}))).value("error").toString(),
              "Tool parameter 'contact_id' must not be empty.");

    // A card of a file of several keeps the others when it changes or goes.
    const QString majaId = "urn:uuid:4fbe8971-0bc3-424c-9c26-36c3e1eff6b1";
    EXPECT_TRUE(structured(handler.updateContact(params({{"contact_id", majaId}, {"note", "n"}}))).value("success").toBool());
    EXPECT_TRUE(readFile(dir.path() + "/phone/card-4.0.vcf").contains("EMAIL;TYPE=work:j.oberg@example.com"));
    const QJsonArray listed = structured(handler.listContacts(params({{"query", "borealis"}}))).value("contacts").toArray();
    const QString borealisId = listed.first().toObject().value("contact_id").toString();
    EXPECT_TRUE(structured(handler.deleteContact(params({{"contact_id", borealisId}}))).value("success").toBool());
    EXPECT_TRUE(readFile(dir.path() + "/phone/phone-export.vcf").contains("Lindqvist"));
    EXPECT_FALSE(readFile(dir.path() + "/phone/phone-export.vcf").contains("Borealis"));

    const JSONToolResult deleted = handler.deleteContact(params({{"contact_id", id}}));
    EXPECT_TRUE(textOf(deleted).startsWith("Contact deleted: " + id));
    EXPECT_TRUE(structured(handler.deleteContact(params({{"contact_id", id}}))).value("error").toString()
                    .startsWith("Failed to delete contact: "));
}

TEST_F(ContactsToolTest, WithoutAccessTheRefusalCarriesItsJSON)
{
    PrivacyAccess::setStatus(PrivacyAccess::Kind::Contacts, PrivacyAccess::Denied);
    const JSONToolResult refused = handler.listContacts({});
    EXPECT_EQ(structured(refused).value("error").toString(), "Contacts access denied.");
    EXPECT_TRUE(textOf(refused).startsWith("Contacts access denied.\n\n```json\n{"));
    // Other failures are the message alone.
    PrivacyAccess::setStatus(PrivacyAccess::Kind::Contacts, PrivacyAccess::FullAccess);
    EXPECT_EQ(textOf(handler.deleteContact({})), "Tool parameter 'contact_id' must not be empty.");
}
