#include "workbench/EditorSettings.h"

#include "base/UserDefaults.h"

const QStringList EditorSettings::fontFamilies = {
    QStringLiteral("Menlo"),      QStringLiteral("Monaco"),          QStringLiteral("Courier New"),
    QStringLiteral("Courier"),    QStringLiteral("SF Mono"),         QStringLiteral("Source Code Pro"),
    QStringLiteral("Fira Code"),  QStringLiteral("JetBrains Mono"),  QStringLiteral("Consolas")};

namespace {

const QString kPrefix = QStringLiteral("ScriptEditor.");

QColor readColor(QSettings &store, const char *key, const QColor &fallback)
{
    const QColor color(store.value(kPrefix + QLatin1String(key)).toString());
    return color.isValid() ? color : fallback;
}

}  // namespace

EditorSettings *EditorSettings::shared()
{
    static auto *settings = new EditorSettings();
    return settings;
}

EditorSettings::EditorSettings(QObject *parent) : QObject(parent)
{
    load();
    m_changed = false;
}

void EditorSettings::markChanged()
{
    m_changed = true;
    emit settingsChanged();
}

void EditorSettings::load()
{
    readStored();
    markChanged();
}

void EditorSettings::readStored()
{
    auto store = UserDefaults::standard();
    auto text = [&](const char *key) { return store->value(kPrefix + QLatin1String(key)).toString(); };
    if (!text("fontName").isEmpty())
        fontName = text("fontName");
    if (const double size = store->value(kPrefix + QStringLiteral("fontSize")).toDouble(); size > 0.0)
        fontSize = size;
    themeName = text("themeName");
    lineWrap = store->value(kPrefix + QStringLiteral("lineWrap"), lineWrap).toBool();
    if (const int column = store->value(kPrefix + QStringLiteral("lineWrapColumn")).toInt(); column >= 1)
        lineWrapColumn = column;
    showWhitespace = store->value(kPrefix + QStringLiteral("showWhitespace"), showWhitespace).toBool();
    useSpaces = store->value(kPrefix + QStringLiteral("useSpaces"), useSpaces).toBool();
    if (const int width = store->value(kPrefix + QStringLiteral("tabWidth")).toInt(); width >= 1)
        tabWidth = width;
    keywordColor = readColor(*store, "keywordColor", keywordColor);
    stringColor = readColor(*store, "stringColor", stringColor);
    commentColor = readColor(*store, "commentColor", commentColor);
    numberColor = readColor(*store, "numberColor", numberColor);
    functionColor = readColor(*store, "functionColor", functionColor);
}

void EditorSettings::save()
{
    auto store = UserDefaults::standard();
    store->setValue(kPrefix + QStringLiteral("fontName"), fontName);
    store->setValue(kPrefix + QStringLiteral("fontSize"), fontSize);
    store->setValue(kPrefix + QStringLiteral("themeName"), themeName);
    store->setValue(kPrefix + QStringLiteral("lineWrap"), lineWrap);
    store->setValue(kPrefix + QStringLiteral("lineWrapColumn"), lineWrapColumn);
    store->setValue(kPrefix + QStringLiteral("showWhitespace"), showWhitespace);
    store->setValue(kPrefix + QStringLiteral("useSpaces"), useSpaces);
    store->setValue(kPrefix + QStringLiteral("tabWidth"), tabWidth);
    store->setValue(kPrefix + QStringLiteral("keywordColor"), keywordColor.name(QColor::HexArgb));
    store->setValue(kPrefix + QStringLiteral("stringColor"), stringColor.name(QColor::HexArgb));
    store->setValue(kPrefix + QStringLiteral("commentColor"), commentColor.name(QColor::HexArgb));
    store->setValue(kPrefix + QStringLiteral("numberColor"), numberColor.name(QColor::HexArgb));
    store->setValue(kPrefix + QStringLiteral("functionColor"), functionColor.name(QColor::HexArgb));
    m_changed = false;
    emit settingsChanged();
}

void EditorSettings::resetToDefaults()
{
    assignDefaults();
    markChanged();
}

void EditorSettings::assignDefaults()
{
    const EditorSettings defaults(nullptr, 0);
    fontName = defaults.fontName;
    fontSize = defaults.fontSize;
    themeName = defaults.themeName;
    lineWrap = defaults.lineWrap;
    lineWrapColumn = defaults.lineWrapColumn;
    showWhitespace = defaults.showWhitespace;
    useSpaces = defaults.useSpaces;
    tabWidth = defaults.tabWidth;
    keywordColor = defaults.keywordColor;
    stringColor = defaults.stringColor;
    commentColor = defaults.commentColor;
    numberColor = defaults.numberColor;
    functionColor = defaults.functionColor;
}

void EditorSettings::discardChanges()
{
    // One notice for the whole step, so the editor is set up once.
    assignDefaults();
    readStored();
    m_changed = false;
    emit settingsChanged();
}
