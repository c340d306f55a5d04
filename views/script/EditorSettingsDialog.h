#pragma once

#include <QDialog>

class EditorSettings;
class QCheckBox;
class QComboBox;
class QLabel;
class QDoubleSpinBox;
class QSpinBox;
class QToolButton;

// The sheet "Editor Settings": font, theme, wrapping, whitespace, indentation and the
// colours of the syntax. Each change goes to the shared settings at once, so the editor
// behind the sheet shows it; "Save changes" stores them, "Cancel" goes back to what is
// stored, and "Reset" puts every setting back to its default.
class EditorSettingsDialog : public QDialog {
    Q_OBJECT

public:
    explicit EditorSettingsDialog(EditorSettings *settings, QWidget *parent = nullptr);

    QComboBox *fontField() const { return m_font; }
    QLabel *fontNote() const { return m_fontNote; }
    QDoubleSpinBox *sizeField() const { return m_size; }
    QCheckBox *wrapField() const { return m_wrap; }
    QComboBox *tabWidthField() const { return m_tabWidth; }
    void saveChanges();
    void resetAll();
    void reject() override;

private:
    void refresh();
    void showFontNote(const QString &family);
    QToolButton *colorButton(const char *name, QColor EditorSettings::*member);

    EditorSettings *m_settings;
    QComboBox *m_font;
    QLabel *m_fontNote;
    QDoubleSpinBox *m_size;
    QComboBox *m_theme;
    QCheckBox *m_wrap;
    QSpinBox *m_column;
    QCheckBox *m_whitespace;
    QCheckBox *m_spaces;
    QComboBox *m_tabWidth;
    QList<std::pair<QToolButton *, QColor EditorSettings::*>> m_colors;
    bool m_refreshing = false;
};
