#include "views/chat/ChatSettingsWindow.h"

#include <gtest/gtest.h>

#include <QComboBox>
#include <QDoubleSpinBox>
#include <QPushButton>
#include <QSlider>
#include <QTemporaryDir>
#include <QTextBrowser>

namespace {

class ChatSettingsWindowTest : public testing::Test {
protected:
    std::unique_ptr<QSettings> store() const
    {
        return std::make_unique<QSettings>(m_dir.filePath(QStringLiteral("group.conf")), QSettings::IniFormat);
    }
    QTemporaryDir m_dir;
};

TEST_F(ChatSettingsWindowTest, ControlsShowTheSettingsAndSaveCopiesTheDraft)
{
    AppearanceSettings settings(store());
    ChatSettingsWindow window(&settings);
    EXPECT_EQ(window.windowTitle(), QStringLiteral("Chat Settings"));
    auto *size = window.findChild<QDoubleSpinBox *>(QStringLiteral("assistantFontSize"));
    auto *spacing = window.findChild<QSlider *>(QStringLiteral("lineSpacing"));
    auto *codeFont = window.findChild<QComboBox *>(QStringLiteral("codeFont"));
    ASSERT_TRUE(size && spacing && codeFont);
    EXPECT_EQ(size->value(), 13);
    EXPECT_EQ(size->text(), QStringLiteral("13 pt"));
    EXPECT_EQ(spacing->value(), 0);
    EXPECT_TRUE(codeFont->currentText().startsWith(QStringLiteral("SF Mono")));

    // The steppers stop at 9 and 24.
    size->setValue(30);
    EXPECT_EQ(size->value(), 24);
    size->setValue(3);
    EXPECT_EQ(size->value(), 9);
    size->stepBy(2);
    spacing->setValue(ChatSettingsWindow::sliderPosition(1.4));
    codeFont->setCurrentIndex(codeFont->findData(int(ChatFontFamily::Menlo)));
    EXPECT_EQ(settings.values().assistantFontSize, 13) << "nothing applies before Save & Close";

    window.findChild<QPushButton *>(QStringLiteral("saveAndClose"))->click();
    EXPECT_EQ(settings.values().assistantFontSize, 11);
    EXPECT_DOUBLE_EQ(settings.values().lineSpacing, 1.4);
    EXPECT_EQ(settings.values().codeFont, ChatFontFamily::Menlo);
    EXPECT_EQ(AppearanceSettings(store()).values().assistantFontSize, 11);
}

TEST_F(ChatSettingsWindowTest, CancelDropsTheDraftAndColourResetsStandAlone)
{
    AppearanceSettings settings(store());
    settings.setColor(AppearanceSettings::InputText, Qt::red);
    settings.setColor(AppearanceSettings::InputBackground, Qt::blue);
    {
        ChatSettingsWindow window(&settings);
        window.findChild<QDoubleSpinBox *>(QStringLiteral("codeFontSize"))->setValue(20);
        window.findChild<QPushButton *>(QStringLiteral("inputTextColor.reset"))->click();
        window.reject();
    }
    EXPECT_EQ(settings.values().codeFontSize, 13);
    EXPECT_EQ(settings.color(AppearanceSettings::InputText),
              AppearanceSettings::defaults().colors[AppearanceSettings::InputText]);
    EXPECT_EQ(settings.color(AppearanceSettings::InputBackground), QColor(Qt::blue));
}

TEST_F(ChatSettingsWindowTest, PreviewRendersAndResetRestoresEverything)
{
    AppearanceSettings settings(store());
    auto values = settings.values();
    values.userFontSize = 20;
    settings.setValues(values);
    ChatSettingsWindow window(&settings);
    EXPECT_TRUE(window.findChild<QTextBrowser *>(QStringLiteral("assistantBubble"))
                    ->toPlainText()
                    .contains(QStringLiteral("Copy")));
    window.findChild<QPushButton *>(QStringLiteral("resetAll"))->click();
    EXPECT_EQ(settings.values().userFontSize, 13);
    EXPECT_EQ(window.findChild<QDoubleSpinBox *>(QStringLiteral("userFontSize"))->value(), 13);
}

TEST(ChatSettingsWindow, SpacingSliderMarksAndLabels)
{
    EXPECT_EQ(ChatSettingsWindow::sliderPosition(1.0), 0);
    EXPECT_EQ(ChatSettingsWindow::sliderPosition(1.8), 16);
    EXPECT_DOUBLE_EQ(ChatSettingsWindow::spacingAt(4), 1.2);
    EXPECT_EQ(ChatSettingsWindow::familyLabel(ChatFontFamily::Palatino), QStringLiteral("Palatino (not installed)"));
    EXPECT_EQ(ChatSettingsWindow::familyLabel(ChatFontFamily::SystemMono), QStringLiteral("System Monospaced"));
}

} // namespace
