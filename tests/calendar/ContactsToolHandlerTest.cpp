#include "tools/contacts/ContactsStore.h"
#include "tools/contacts/ContactsToolHandler.h"
#include "tools/contacts/VCard.h"
#include "tools/security/PrivacyAccess.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>
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

namespace {

QByteArray fixture(const char *name)
{
    return readFile(QStringLiteral(KELVARA_CALENDAR_TEST_DATA "/") + QString::fromLatin1(name));
}

// Every line of the bytes, line ends kept, so a comparison shows what changed.
QList<QByteArray> linesOf(const QByteArray &bytes)
{
    QList<QByteArray> lines;
    qsizetype pos = 0;
    while (pos < bytes.size()) {
        qsizetype next = bytes.indexOf('\n', pos);
        next = next < 0 ? bytes.size() : next + 1;
        lines.append(bytes.mid(pos, next - pos));
        pos = next;
    }
    return lines;
}

}  // namespace

TEST(VCardFiles, UnchangedCardsGoBackByteForByte)
{
    for (const char *name : {"khard-ada.vcf", "simon-perreault.vcf", "export3.vcf", "phone-export.vcf", "card-4.0.vcf"}) {
        const QByteArray bytes = fixture(name);
        ASSERT_FALSE(bytes.isEmpty()) << name;
        EXPECT_EQ(VCard::serialiseAll(VCard::parseAll(bytes)), bytes) << name;
    }
    // A card cut off before its END is dropped, not half read.
    EXPECT_EQ(VCard::parseAll("BEGIN:VCARD\r\nVERSION:3.0\r\nFN:Half\r\n").size(), 0);
}

TEST(VCardFiles, AnUpdateRewritesOnlyTheLinesOfWhatChanged)
{
    // khard's card: a note edit leaves every other line as it was.
    const VCard ada = VCard::parseAll(fixture("khard-ada.vcf")).first();
    EXPECT_EQ(ada.displayName(), "Ada Lovelace");
    EXPECT_EQ(ada.organization, "Analytical Engine Society");
    VCard noted = ada;
    noted.note = "Wrote the first program; see Note G";
    QList<QByteArray> expected = linesOf(ada.raw);
    const qsizetype noteAt = expected.indexOf("NOTE:Wrote the first program\r\n");
    ASSERT_GE(noteAt, 0);
    expected[noteAt] = "NOTE:Wrote the first program\\; see Note G\r\n";
    EXPECT_EQ(linesOf(noted.serialised()), expected);

    // A changed name: N keeps its prefix, FN made from the whole name follows it, ORG keeps
    // its unit, and the version stays 3.0.
    VCard renamed = ada;
    renamed.givenName = "Augusta Ada";
    renamed.organization = "Difference Engine Society";
    const QByteArray written = renamed.serialised();
    EXPECT_TRUE(written.contains("\r\nFN:Countess Augusta Ada Lovelace\r\n")) << written.toStdString();
    EXPECT_TRUE(written.contains("\r\nN:Lovelace;Augusta Ada;;Countess;\r\n"));
    EXPECT_TRUE(written.contains("\r\nORG:Difference Engine Society;Notes Department\r\n"));
    EXPECT_TRUE(written.startsWith("BEGIN:VCARD\r\nVERSION:3.0\r\n"));
    EXPECT_EQ(linesOf(written).size(), linesOf(ada.raw).size());

    // Lists: a number kept keeps its line; a changed one takes the line (and TYPE) of the one
    // it replaces; one more follows the last; an address dropped loses only its line.
    VCard phones = ada;
    phones.phoneNumbers = {"+44 20 7946 0002", "+44 20 7946 0009", "+44 20 7946 0010"};
    phones.emailAddresses = {"ada@home.example"};
    const QByteArray listed = phones.serialised();
    EXPECT_TRUE(listed.contains("TEL;TYPE=home,pref:+44 20 7946 0002\r\n"));
    EXPECT_TRUE(listed.contains("TEL;TYPE=cell:+44 20 7946 0009\r\n"));
    EXPECT_TRUE(listed.contains("TEL:+44 20 7946 0010\r\n"));
    EXPECT_FALSE(listed.contains("0001"));
    EXPECT_FALSE(listed.contains("ada@engine.example"));
    EXPECT_TRUE(listed.contains("EMAIL;TYPE=home:ada@home.example\r\n"));
    const VCard reread = VCard::parseAll(listed).first();
    EXPECT_EQ(QSet<QString>(reread.phoneNumbers.begin(), reread.phoneNumbers.end()),
              QSet<QString>(phones.phoneNumbers.begin(), phones.phoneNumbers.end()));

    // The RFC's example: a CRLF card with quoted TYPE lists, folded lines and URIs.
    const VCard simon = VCard::parseAll(fixture("simon-perreault.vcf")).first();
    VCard moved = simon;
    moved.familyName = "Perrault";
    QList<QByteArray> simonLines = linesOf(simon.raw);
    const QList<QByteArray> movedLines = linesOf(moved.serialised());
    ASSERT_EQ(movedLines.size(), simonLines.size());
    for (int i = 0; i < simonLines.size(); ++i) {
        if (simonLines.at(i).startsWith("FN:"))
            EXPECT_EQ(movedLines.at(i), "FN:Simon Perrault\r\n");
        else if (simonLines.at(i).startsWith("N:"))
            EXPECT_EQ(movedLines.at(i), "N:Perrault;Simon;;;ing. jr,M.Sc.\r\n");
        else
            EXPECT_EQ(movedLines.at(i), simonLines.at(i));
    }
}

TEST(VCardFiles, ANameTheUserWroteStays)
{
    // FN that is not made from N ("Mom") is shown when there is no name and kept when one
    // is given; an organisation's card keeps an empty display name.
    VCard mom = VCard::parseAll("BEGIN:VCARD\nVERSION:3.0\nFN:Mom\nTEL;TYPE=cell:+1 555 0100\nEND:VCARD\n").first();
    EXPECT_EQ(mom.displayName(), "Mom");
    mom.givenName = "Maria";
    const QByteArray written = mom.serialised();
    EXPECT_EQ(written, "BEGIN:VCARD\nVERSION:3.0\nFN:Mom\nN:;Maria;;;\nTEL;TYPE=cell:+1 555 0100\nEND:VCARD\n");
    EXPECT_EQ(VCard::parseAll(written).first().displayName(), "Maria");

    // FN made from the organisation follows it while there is no name.
    VCard shop = VCard::parseAll("BEGIN:VCARD\r\nVERSION:4.0\r\nFN:Borealis Labs\r\nORG:Borealis Labs;\r\nEND:VCARD\r\n").first();
    EXPECT_EQ(shop.displayName(), "");
    shop.organization = "Borealis Research";
    EXPECT_EQ(shop.serialised(),
              "BEGIN:VCARD\r\nVERSION:4.0\r\nFN:Borealis Research\r\nORG:Borealis Research;\r\nEND:VCARD\r\n");
    // The last component emptied removes the line; a note removed removes its line.
    shop.organization.clear();
    EXPECT_FALSE(shop.serialised().contains("ORG"));
}

TEST_F(ContactsToolTest, OtherCardsOfTheFileStayAndIdsNeverShift)
{
    const QString path = dir.path() + "/phone/export3.vcf";
    ASSERT_TRUE(QFile::copy(QStringLiteral(KELVARA_CALENDAR_TEST_DATA "/export3.vcf"), path));
    QFile(path).setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    const QByteArray original = readFile(path);
    QHash<QString, QString> ids;  // display name -> id as first listed
    for (const QJsonValue &contact : structured(handler.listContacts({})).value("contacts").toArray())
        ids.insert(contact.toObject().value("display_name").toString(), contact.toObject().value("contact_id").toString());
    ASSERT_EQ(ids.value("Ben Beta"), "export3#1");
    ASSERT_EQ(ids.value("Gus Gamma"), "export3#2");

    // Ann goes first: the others keep their ids, now written as their UIDs.
    EXPECT_TRUE(structured(handler.deleteContact(params({{"contact_id", ids.value("Ann Alpha")}}))).value("success").toBool());
    QByteArray expected = original;
    expected.remove(0, expected.indexOf("BEGIN:VCARD", 1));
    expected.replace("BEGIN:VCARD\nVERSION:3.0\nN:Beta", "BEGIN:VCARD\nVERSION:3.0\nUID:export3#1\nN:Beta");
    expected.replace("BEGIN:VCARD\nVERSION:3.0\nN:Gamma", "BEGIN:VCARD\nVERSION:3.0\nUID:export3#2\nN:Gamma");
    EXPECT_EQ(readFile(path), expected);

    // Ben's id still names Ben, and his update leaves Gus's bytes alone.
    const QJsonObject ben = structured(handler.updateContact(params({{"contact_id", "export3#1"}, {"note", "Rye"}})));
    EXPECT_EQ(ben.value("contact").toObject().value("display_name").toString(), "Ben Beta") << QJsonDocument(ben).toJson().toStdString();
    EXPECT_EQ(ben.value("contact").toObject().value("organization_name").toString(), "Beta Bakery");
    const QByteArray after = readFile(path);
    EXPECT_TRUE(after.contains("ORG:Beta Bakery;Ovens;Night shift\nitem1.EMAIL;type=INTERNET;type=pref:ben@bakery.example\n"
                               "item1.X-ABLabel:_$!<Other>!$_\nPHOTO;ENCODING=b;TYPE=JPEG:"));
    EXPECT_TRUE(after.contains("NOTE:Rye\nEND:VCARD\n"));
    EXPECT_TRUE(after.endsWith(expected.mid(expected.indexOf("BEGIN:VCARD\nVERSION:3.0\nUID:export3#2"))));
    // The deleted card's id is gone and touches nothing.
    EXPECT_TRUE(structured(handler.updateContact(params({{"contact_id", ids.value("Ann Alpha")}, {"note", "x"}})))
                    .value("error").toString().startsWith("Failed to update contact: No contact has the identifier"));
    EXPECT_EQ(readFile(path), after);
}

TEST_F(ContactsToolTest, ACardChangedByAnotherProgramIsNeverOverwritten)
{
    std::optional<ContactsStore::Entry> maja;
    (void)store.enumerate([&](const ContactsStore::Entry &entry) {
        if (entry.card.givenName == "Maja")
            maja = entry;
        return !maja;
    });
    ASSERT_TRUE(maja);
    // A sync rewrote the file after the card was read.
    const QByteArray synced = readFile(maja->filePath).replace("Call back in", "Called in");
    {
        QFile file(maja->filePath);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(synced);
    }
    maja->card.note = "stale";
    const Result<void> updated = store.update(*maja);
    ASSERT_FALSE(updated.ok());
    EXPECT_EQ(updated.error().code, ContactsStore::Stale);
    EXPECT_FALSE(store.remove(*maja).ok());
    EXPECT_EQ(readFile(maja->filePath), synced);
    // The tool reads again and writes over the synced file.
    const QString id = structured(handler.listContacts(params({{"query", "Maja"}}))).value("contacts").toArray()
                           .first().toObject().value("contact_id").toString();
    EXPECT_TRUE(structured(handler.updateContact(params({{"contact_id", id}, {"family_name", "Berg"}}))).value("success").toBool());
    EXPECT_TRUE(readFile(maja->filePath).contains("Called in"));
    EXPECT_TRUE(readFile(maja->filePath).contains("N:Berg;Maja;Elin;Dr.;"));
}
