#pragma once

#include "workbench/DeclarationIndex.h"
#include "workbench/SearchReplaceManager.h"

#include <QPlainTextEdit>

class EditorSettings;
class JavaScriptHighlighter;
class LineNumberRulerView;

// The script editor's text view: JavaScript colouring, the index of declarations with
// Ctrl+click to go to one, the line-number gutter, Return keeping the line's indentation, Tab
// and Shift+Tab indenting
// the selected lines by the settings (spaces or a tab), the search matches drawn under the
// text, and wrapping at the settings' column.
class SourceTextEditor : public QPlainTextEdit {
    Q_OBJECT

public:
    SourceTextEditor(EditorSettings *settings, QWidget *parent = nullptr);

    // Reads the font, wrapping, whitespace and colours from the settings again.
    void applySettings();
    // The family as set, or the desktop's fixed-width font where that family is not installed
    // (the default "Menlo" rarely is on Linux, and fontconfig's stand-in need not be fixed-width).
    static QFont editorFont(const QString &family, double pointSize);
    static bool isInstalled(const QString &family);
    // Marks every match, the current one stronger.
    void showMatches(const QList<SearchReplaceManager::Range> &matches, int current);
    void indentSelection(bool outdent);
    LineNumberRulerView *ruler() const { return m_ruler; }
    // The declarations of the text as it stands (read again after a change, when asked).
    const DeclarationIndex &declarations() const;
    JavaScriptHighlighter *highlighter() const { return m_highlighter; }

signals:
    // Files dropped on the editor are to be opened, not their addresses typed in.
    void filesDropped(const QStringList &paths);

protected:
    bool canInsertFromMimeData(const QMimeData *source) const override;
    void insertFromMimeData(const QMimeData *source) override;
    void keyPressEvent(QKeyEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void placeRuler();

private:
    friend class LineNumberRulerView;
    void updateRulerArea(const QRect &rect, int dy);
    void updateMargins();

    EditorSettings *m_settings;
    JavaScriptHighlighter *m_highlighter;
    LineNumberRulerView *m_ruler;
    mutable DeclarationIndex m_index;
    mutable bool m_indexStale = true;
};
