#pragma once

#include "chat/appearance/ChatFontFamily.h"
#include "chat/markdown/MarkdownStyle.h"

#include <QColor>
#include <QJsonObject>
#include <QObject>
#include <QSettings>
#include <array>
#include <bitset>
#include <memory>
#include <optional>

// The chat's fonts, sizes, line spacing and nine colours, one for the application. Stored as
// one JSON record ("Payload") under "kelvara.appearance.json" in the group suite; a record
// that doesn't decode leaves every default, a record without colours keeps the default
// colours. The record always holds all nine colours, but only those the user picked are kept
// when the desktop's scheme changes (on start or live): the others follow the new scheme's
// defaults. Which ones were picked is kept beside the record, under "ChosenColorsKey".
// Main thread; `changed` follows every save.
class AppearanceSettings : public QObject {
    Q_OBJECT
public:
    enum ColorRole { UserBubbleBackground, AssistantBubbleBackground, UserBubbleText, AssistantTextPrimary,
                     AssistantTextSecondary, AssistantTextMuted, AssistantTextFaint, InputText, InputBackground,
                     ColorCount };

    // The values and their stored form.
    struct Payload {
        ChatFontFamily::Value chatFont = ChatFontFamily::SystemMono;
        ChatFontFamily::Value inputFont = ChatFontFamily::SystemMono;
        ChatFontFamily::Value codeFont = ChatFontFamily::SFMono;
        double userFontSize = 13, assistantFontSize = 13, inputFontSize = 13, codeFontSize = 13;
        double lineSpacing = 1.0;
        std::array<QColor, ColorCount> colors;

        QJsonObject toJson() const;
        // The eight font and size keys are required; an absent colour keeps `defaults`' one.
        static std::optional<Payload> fromJson(const QJsonObject &object, const Payload &defaults);
    };

    static inline const QString JsonKey = QStringLiteral("kelvara.appearance.json");
    static inline const QString KeyPrefix = QStringLiteral("kelvara.appearance.");
    static inline const QString LegacyPrefix = QStringLiteral("brantor.appearance.");
    static inline const QString ChosenColorsKey = QStringLiteral("kelvara.appearance.chosenColors");

    // Reads the stored record (the group suite unless another store is given), then saves.
    explicit AppearanceSettings(std::unique_ptr<QSettings> store = {}, QObject *parent = nullptr);
    ~AppearanceSettings() override;

    // The application's one instance, over the group suite, made on first use (main thread).
    // Every chat window and the Chat Settings window work on it, so a change shows everywhere.
    static AppearanceSettings *shared();

    static Payload defaults();
    static QString colorKey(ColorRole role);
    static QString colorLabel(ColorRole role);

    const Payload &values() const { return m_values; }
    void setValues(const Payload &values); // then saves
    QColor color(ColorRole role) const { return m_values.colors[role]; }
    void setColor(ColorRole role, const QColor &color); // the user picked it: kept across schemes
    void resetColor(ColorRole role);
    void resetToDefaults();
    void save();
    bool isChosen(ColorRole role) const { return m_chosen[role]; }

    // The style an answer is rendered with.
    MarkdownStyle markdownStyle() const;
    // The fonts of the user's bubbles and of the input field, as set.
    QFont userFont() const;
    QFont assistantFont() const;
    QFont inputFont() const;

signals:
    void changed();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void load();
    // Colours the user did not pick take the current scheme's defaults; true when one moved.
    bool followScheme();

    std::unique_ptr<QSettings> m_store;
    Payload m_values;
    std::bitset<ColorCount> m_chosen;
};
