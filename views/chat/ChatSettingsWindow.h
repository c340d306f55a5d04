#pragma once

#include "chat/appearance/AppearanceSettings.h"

#include <QDialog>

#include <functional>

class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QLineEdit;
class QSlider;
class QTextBrowser;

// "Chat Settings": fonts, sizes and line spacing on a draft that "Save & Close" copies to the
// appearance settings and "Cancel" drops; each colour applies at once and has its own "Reset
// to default". A preview shows both bubble kinds and the input field. Main thread.
class ChatSettingsWindow : public QDialog {
    Q_OBJECT
public:
    explicit ChatSettingsWindow(AppearanceSettings *settings, QWidget *parent = nullptr);

    // The line spacing slider's position for a spacing (1.0 to 1.8 in steps of 0.05), and back.
    static int sliderPosition(double spacing);
    static double spacingAt(int position);
    // The combo box text of a family: its name, marked when a named font isn't installed.
    static QString familyLabel(ChatFontFamily::Value family);

    const AppearanceSettings::Payload &draft() const { return m_draft; }

private:
    QComboBox *familyPicker(const QString &objectName, ChatFontFamily::Value AppearanceSettings::Payload::*field);
    QDoubleSpinBox *sizeStepper(const QString &objectName, double AppearanceSettings::Payload::*field);
    void loadDraft();
    void refreshPreview();
    void saveAndClose();
    void resetAll();

    AppearanceSettings *m_settings;
    AppearanceSettings::Payload m_draft;
    QList<std::function<void()>> m_reloaders;
    QLabel *m_userBubble = nullptr;
    QTextBrowser *m_assistantBubble = nullptr;
    QLineEdit *m_input = nullptr;
    QSlider *m_spacing = nullptr;
    QLabel *m_spacingValue = nullptr;
};
