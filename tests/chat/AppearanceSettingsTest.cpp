#include "chat/appearance/AppearanceSettings.h"

#include <gtest/gtest.h>

#include <QFontDatabase>
#include <QGuiApplication>
#include <QPalette>
#include <QScopeGuard>
#include <QJsonDocument>
#include <QTemporaryDir>

namespace {

class AppearanceSettingsTest : public testing::Test {
protected:
    std::unique_ptr<QSettings> store() const
    {
        return std::make_unique<QSettings>(m_dir.filePath(QStringLiteral("group.conf")), QSettings::IniFormat);
    }
    QJsonObject stored() const
    {
        return QJsonDocument::fromJson(store()->value(AppearanceSettings::JsonKey).toByteArray()).object();
    }
    void write(const QString &key, const QJsonObject &record) const
    {
        auto s = store();
        s->setValue(key, QJsonDocument(record).toJson());
        s->sync();
    }
    QTemporaryDir m_dir;
};

TEST_F(AppearanceSettingsTest, DefaultsAreWrittenOnFirstUse)
{
    AppearanceSettings settings(store());
    const auto &v = settings.values();
    EXPECT_EQ(v.chatFont, ChatFontFamily::SystemMono);
    EXPECT_EQ(v.codeFont, ChatFontFamily::SFMono);
    EXPECT_EQ(v.assistantFontSize, 13);
    EXPECT_EQ(v.lineSpacing, 1.0);
    const QJsonObject record = stored();
    EXPECT_EQ(record.value(QStringLiteral("codeFont")).toString(), QStringLiteral("SF Mono"));
    EXPECT_EQ(record.size(), 17);
    EXPECT_TRUE(record.value(QStringLiteral("assistantTextFaintColor")).toObject().contains(QStringLiteral("alpha")));
}

TEST_F(AppearanceSettingsTest, ARecordWithoutAColourKeepsThatDefaultAndGainsItOnSave)
{
    QJsonObject record = AppearanceSettings::defaults().toJson();
    record[QStringLiteral("lineSpacing")] = 1.4;
    record[QStringLiteral("chatFont")] = QStringLiteral("Georgia");
    record[QStringLiteral("inputBackgroundColor")] =
        QJsonObject{{"red", 1.0}, {"green", 0.0}, {"blue", 0.0}, {"alpha", 1.0}};
    record.remove(QStringLiteral("assistantTextPrimaryColor"));
    write(AppearanceSettings::JsonKey, record);

    AppearanceSettings settings(store());
    EXPECT_EQ(settings.values().lineSpacing, 1.4);
    EXPECT_EQ(settings.values().chatFont, ChatFontFamily::Georgia);
    EXPECT_EQ(settings.color(AppearanceSettings::InputBackground), QColor(Qt::red));
    EXPECT_EQ(settings.color(AppearanceSettings::AssistantTextPrimary),
              AppearanceSettings::defaults().colors[AppearanceSettings::AssistantTextPrimary]);
    EXPECT_TRUE(stored().contains(QStringLiteral("assistantTextPrimaryColor")));
}

TEST_F(AppearanceSettingsTest, AnUnknownFontOrMissingSizeFailsTheWholeRecord)
{
    QJsonObject record = AppearanceSettings::defaults().toJson();
    record[QStringLiteral("lineSpacing")] = 1.6;
    record[QStringLiteral("codeFont")] = QStringLiteral("Comic Mono");
    write(AppearanceSettings::JsonKey, record);
    EXPECT_EQ(AppearanceSettings(store()).values().lineSpacing, 1.0);

    record[QStringLiteral("codeFont")] = QStringLiteral("Menlo");
    record.remove(QStringLiteral("codeFontSize"));
    write(AppearanceSettings::JsonKey, record);
    EXPECT_EQ(AppearanceSettings(store()).values().lineSpacing, 1.0);
}

TEST_F(AppearanceSettingsTest, TheFormerNamesRecordIsTakenOver)
{
    QJsonObject record = AppearanceSettings::defaults().toJson();
    record[QStringLiteral("userFontSize")] = 18;
    write(AppearanceSettings::LegacyPrefix + QStringLiteral("json"), record);
    AppearanceSettings settings(store());
    EXPECT_EQ(settings.values().userFontSize, 18);
    EXPECT_FALSE(store()->contains(AppearanceSettings::LegacyPrefix + QStringLiteral("json")));
}

TEST_F(AppearanceSettingsTest, ResettingAColourTouchesThatColourAlone)
{
    AppearanceSettings settings(store());
    settings.setColor(AppearanceSettings::InputText, Qt::green);
    settings.setColor(AppearanceSettings::UserBubbleText, Qt::magenta);
    settings.resetColor(AppearanceSettings::InputText);
    EXPECT_EQ(settings.color(AppearanceSettings::InputText),
              AppearanceSettings::defaults().colors[AppearanceSettings::InputText]);
    EXPECT_EQ(settings.color(AppearanceSettings::UserBubbleText), QColor(Qt::magenta));
    EXPECT_EQ(AppearanceSettings(store()).color(AppearanceSettings::UserBubbleText), QColor(Qt::magenta));
}

TEST_F(AppearanceSettingsTest, OnlyPickedColoursStayWhenTheDesktopsSchemeChanges)
{
    const QPalette light = QGuiApplication::palette();
    QPalette dark = light;
    dark.setColor(QPalette::Base, QColor(0x1e, 0x1e, 0x1e));
    dark.setColor(QPalette::ButtonText, QColor(0xee, 0xee, 0xee));
    const auto restore = qScopeGuard([&] { QGuiApplication::setPalette(light); });

    auto settings = std::make_unique<AppearanceSettings>(store());
    settings->setColor(AppearanceSettings::InputText, Qt::green);
    int changes = 0;
    QObject::connect(settings.get(), &AppearanceSettings::changed, [&] { ++changes; });

    QGuiApplication::setPalette(dark); // live, while running
    EXPECT_GE(changes, 1);
    EXPECT_EQ(settings->color(AppearanceSettings::InputBackground), QColor(0x1e, 0x1e, 0x1e));
    EXPECT_EQ(settings->color(AppearanceSettings::AssistantTextPrimary), QColor(0xee, 0xee, 0xee));
    EXPECT_EQ(settings->color(AppearanceSettings::InputText), QColor(Qt::green));
    settings.reset();

    QGuiApplication::setPalette(light); // between runs: the next start reads the record under another scheme
    AppearanceSettings next(store());
    EXPECT_EQ(next.color(AppearanceSettings::InputBackground), light.color(QPalette::Base));
    EXPECT_EQ(next.color(AppearanceSettings::InputText), QColor(Qt::green));
    next.resetColor(AppearanceSettings::InputText);
    EXPECT_FALSE(AppearanceSettings(store()).isChosen(AppearanceSettings::InputText));
}

TEST_F(AppearanceSettingsTest, ARecordWithoutPicksKeepsWhatDiffersFromTheDefaults)
{
    QJsonObject record = AppearanceSettings::defaults().toJson();
    record[QStringLiteral("inputBackgroundColor")] =
        QJsonObject{{"red", 1.0}, {"green", 0.0}, {"blue", 0.0}, {"alpha", 1.0}};
    write(AppearanceSettings::JsonKey, record);
    AppearanceSettings settings(store());
    EXPECT_TRUE(settings.isChosen(AppearanceSettings::InputBackground));
    EXPECT_FALSE(settings.isChosen(AppearanceSettings::InputText));
}

TEST(ChatFontFamily, ANamedFontNotInstalledFallsBackToTheFixedFont)
{
    // "Palatino" is a commercial face that the test machines don't carry.
    ASSERT_FALSE(QFontDatabase::families().contains(QStringLiteral("Palatino"), Qt::CaseInsensitive));
    EXPECT_FALSE(ChatFontFamily::isInstalled(ChatFontFamily::Palatino));
    const QFont f = ChatFontFamily::font(ChatFontFamily::Palatino, 15);
    EXPECT_EQ(f.family(), QFontDatabase::systemFont(QFontDatabase::FixedFont).family());
    EXPECT_EQ(f.pointSizeF(), 15);
    EXPECT_TRUE(ChatFontFamily::isInstalled(ChatFontFamily::SystemSerif));
    EXPECT_EQ(ChatFontFamily::fromRawValue(QStringLiteral("Fira Code")), ChatFontFamily::FiraCode);
    EXPECT_FALSE(ChatFontFamily::fromRawValue(QStringLiteral("fira code")).has_value());
}

} // namespace
