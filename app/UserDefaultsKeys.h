#pragma once

#include <QList>
#include <QString>
#include <optional>

// The keys of the shell's stored settings. The raw text of each is its name.
enum class UserDefaultsKeys : int {
    spPromptConfigView,
    spResourceConfigView,
    spToolConfigView,
    spToolInputSchemeView,
    spToolOutputSchemeView,
    spScriptEditorView,
    spScriptEditorLogView,
    menuSelection,
    selection2,
    scriptEditorFontName,
    scriptEditorFontSize,
    scriptEditorLineWrap,
    scriptEditorLineWrapColumn,
    scriptEditorShowWhitespace,
    scriptEditorThemeName,
    scriptEditorUseSpaces,
    scriptEditorTabWidth,
    scriptEditorKeywordColor,
    scriptEditorStringColor,
    scriptEditorCommentColor,
    scriptEditorNumberColor,
    scriptEditorFunctionColor,
    scriptEditorSelectedDirectory,
    scriptEditorSelectedFile,
    scriptEditorShowLogView,
    scriptEditorShowFileBrowserView,
    scriptEditorSearchText,
    scriptEditorToolHandler,
    windowState,
    windowOriginX,
    windowOriginY,
    windowWidth,
    windowHeight,
    windowIsZoomed,
    windowIsMiniaturized,
    windowIsFullscreen,
    logviewSearchText,
};

namespace UserDefaultsKeyNames {

// All 37, in order.
const QList<UserDefaultsKeys> &all();
QString rawValue(UserDefaultsKeys key);
std::optional<UserDefaultsKeys> fromRawValue(const QString &raw);
// Whether the key stores a split pane's position (its name begins with "sp").
bool isSplitterKey(UserDefaultsKeys key);
// The position a pane takes when nothing is stored: 400 for the script editor's log, else 300.
double defaultSplitterPosition(UserDefaultsKeys key);

}  // namespace UserDefaultsKeyNames
