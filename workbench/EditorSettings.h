#pragma once

#include <QColor>
#include <QObject>
#include <QString>

// The script editor's settings, one shared object in the user defaults under
// "ScriptEditor.*". A stored value replaces a default only when it is usable (a name that is
// there, a size above 0, a column or tab width of at least 1); colours are stored as
// "#AARRGGBB" text, and one that does not read falls back to its default.
class EditorSettings : public QObject {
    Q_OBJECT

public:
    static EditorSettings *shared();
    explicit EditorSettings(QObject *parent = nullptr);

    static const QStringList fontFamilies;

    QString fontName = QStringLiteral("Menlo");
    double fontSize = 13.0;
    QString themeName;
    bool lineWrap = false;
    int lineWrapColumn = 120;
    bool showWhitespace = false;
    bool useSpaces = true;
    int tabWidth = 4;
    QColor keywordColor = QColor::fromRgbF(0.8f, 0.5f, 1.0f, 0.85f);
    QColor stringColor = QColor::fromRgbF(0.85f, 0.72f, 0.45f, 0.85f);
    QColor commentColor = QColor::fromRgbF(0.5f, 0.5f, 0.5f, 0.35f);
    QColor numberColor = QColor::fromRgbF(0.55f, 0.9f, 0.65f, 0.85f);
    QColor functionColor = QColor::fromRgbF(0.25f, 0.65f, 1.0f, 0.85f);

    // There are settings not saved yet.
    bool changed() const { return m_changed; }
    // Marks the settings changed and tells the views.
    void markChanged();
    void load();
    void save();
    void resetToDefaults();
    // Back to what is stored, over the defaults: what "Cancel" leaves after live edits.
    void discardChanges();
    // The indentation one Tab inserts.
    QString indentUnit() const { return useSpaces ? QString(tabWidth, QLatin1Char(' ')) : QStringLiteral("\t"); }

signals:
    void settingsChanged();

private:
    // The defaults alone, without reading the store.
    EditorSettings(QObject *parent, int) : QObject(parent) {}
    void assignDefaults();
    // The usable stored values over the current ones, without a notice.
    void readStored();
    bool m_changed = false;
};
