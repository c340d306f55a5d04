#include "app/UserDefaultsKeys.h"

namespace UserDefaultsKeyNames {

namespace {

constexpr const char *names[] = {
    "spPromptConfigView",
    "spResourceConfigView",
    "spToolConfigView",
    "spToolInputSchemeView",
    "spToolOutputSchemeView",
    "spScriptEditorView",
    "spScriptEditorLogView",
    "menuSelection",
    "selection2",
    "scriptEditorFontName",
    "scriptEditorFontSize",
    "scriptEditorLineWrap",
    "scriptEditorLineWrapColumn",
    "scriptEditorShowWhitespace",
    "scriptEditorThemeName",
    "scriptEditorUseSpaces",
    "scriptEditorTabWidth",
    "scriptEditorKeywordColor",
    "scriptEditorStringColor",
    "scriptEditorCommentColor",
    "scriptEditorNumberColor",
    "scriptEditorFunctionColor",
    "scriptEditorSelectedDirectory",
    "scriptEditorSelectedFile",
    "scriptEditorShowLogView",
    "scriptEditorShowFileBrowserView",
    "scriptEditorSearchText",
    "scriptEditorToolHandler",
    "windowState",
    "windowOriginX",
    "windowOriginY",
    "windowWidth",
    "windowHeight",
    "windowIsZoomed",
    "windowIsMiniaturized",
    "windowIsFullscreen",
    "logviewSearchText",
};

static_assert(std::size(names) == static_cast<size_t>(UserDefaultsKeys::logviewSearchText) + 1);

}  // namespace

const QList<UserDefaultsKeys> &all()
{
    static const QList<UserDefaultsKeys> list = [] {
        QList<UserDefaultsKeys> l;
        for (size_t i = 0; i < std::size(names); ++i)
            l.append(static_cast<UserDefaultsKeys>(i));
        return l;
    }();
    return list;
}

QString rawValue(UserDefaultsKeys key) { return QString::fromLatin1(names[static_cast<int>(key)]); }

std::optional<UserDefaultsKeys> fromRawValue(const QString &raw)
{
    for (size_t i = 0; i < std::size(names); ++i) {
        if (raw == QLatin1String(names[i]))
            return static_cast<UserDefaultsKeys>(i);
    }
    return std::nullopt;
}

bool isSplitterKey(UserDefaultsKeys key) { return rawValue(key).startsWith(QLatin1String("sp")); }

double defaultSplitterPosition(UserDefaultsKeys key)
{
    return key == UserDefaultsKeys::spScriptEditorLogView ? 400.0 : 300.0;
}

}  // namespace UserDefaultsKeyNames
