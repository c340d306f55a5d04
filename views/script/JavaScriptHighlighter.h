#pragma once

#include <QRegularExpression>
#include <QSyntaxHighlighter>

class EditorSettings;

// The script editor's JavaScript colouring: keywords, strings (', " and `), numbers,
// function names before "(", and // and /* */ comments, which may span blocks. The colours
// are the editor settings'. Only the blocks an edit touches are coloured again.
class JavaScriptHighlighter : public QSyntaxHighlighter {
    Q_OBJECT

public:
    JavaScriptHighlighter(QTextDocument *document, EditorSettings *settings);

protected:
    void highlightBlock(const QString &text) override;

private:
    EditorSettings *m_settings;
};
