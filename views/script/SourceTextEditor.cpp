#include "views/script/SourceTextEditor.h"

#include <QFontDatabase>

#include <QMimeData>
#include <QUrl>

#include "views/script/JavaScriptHighlighter.h"
#include "views/script/LineNumberRulerView.h"
#include "workbench/EditorSettings.h"

#include <QKeyEvent>
#include <QTextBlock>

SourceTextEditor::SourceTextEditor(EditorSettings *settings, QWidget *parent)
    : QPlainTextEdit(parent),
      m_settings(settings),
      m_highlighter(new JavaScriptHighlighter(document(), settings)),
      m_ruler(new LineNumberRulerView(this))
{
    setObjectName(QStringLiteral("sourceTextEditor"));
    connect(this, &QPlainTextEdit::blockCountChanged, this, &SourceTextEditor::updateMargins);
    connect(this, &QPlainTextEdit::updateRequest, this, &SourceTextEditor::updateRulerArea);
    // The index is read again when it is next asked, not on every keystroke.
    connect(document(), &QTextDocument::contentsChanged, this, [this] { m_indexStale = true; });
    setMouseTracking(true);
    applySettings();
}

const DeclarationIndex &SourceTextEditor::declarations() const
{
    if (m_indexStale) {
        m_index.parse(toPlainText());
        m_indexStale = false;
    }
    return m_index;
}

bool SourceTextEditor::isInstalled(const QString &family)
{
    return QFontDatabase::families().contains(family, Qt::CaseInsensitive);
}

QFont SourceTextEditor::editorFont(const QString &family, double pointSize)
{
    QFont font = isInstalled(family) ? QFont(family) : QFontDatabase::systemFont(QFontDatabase::FixedFont);
    font.setStyleHint(QFont::Monospace);
    font.setFixedPitch(true);
    font.setPointSizeF(pointSize);
    return font;
}

void SourceTextEditor::applySettings()
{
    const QFont font = editorFont(m_settings->fontName, m_settings->fontSize);
    setFont(font);
    m_ruler->setFont(font);
    setTabStopDistance(fontMetrics().horizontalAdvance(u' ') * m_settings->tabWidth);
    setLineWrapMode(m_settings->lineWrap ? QPlainTextEdit::WidgetWidth : QPlainTextEdit::NoWrap);
    QTextOption option = document()->defaultTextOption();
    option.setFlags(m_settings->showWhitespace ? QTextOption::ShowTabsAndSpaces : QTextOption::Flags());
    document()->setDefaultTextOption(option);
    updateMargins();
    m_highlighter->rehighlight();
}

void SourceTextEditor::updateMargins()
{
    // Wrapping at a column: the text area ends there when the window is wider.
    int right = 0;
    if (m_settings->lineWrap) {
        const int textWidth = fontMetrics().horizontalAdvance(u'M') * m_settings->lineWrapColumn + 2 * int(document()->documentMargin());
        right = std::max(0, contentsRect().width() - m_ruler->rulerWidth() - textWidth);
    }
    if (viewportMargins() != QMargins(m_ruler->rulerWidth(), 0, right, 0))
        setViewportMargins(m_ruler->rulerWidth(), 0, right, 0);
}

void SourceTextEditor::showMatches(const QList<SearchReplaceManager::Range> &matches, int current)
{
    QList<QTextEdit::ExtraSelection> marks;
    for (int i = 0; i < matches.size(); ++i) {
        QTextEdit::ExtraSelection mark;
        mark.cursor = QTextCursor(document());
        mark.cursor.setPosition(matches.at(i).location);
        mark.cursor.setPosition(matches.at(i).location + matches.at(i).length, QTextCursor::KeepAnchor);
        mark.format.setBackground(i == current ? QColor(255, 149, 0, 128) : QColor(255, 204, 0, 77));
        marks.append(mark);
    }
    setExtraSelections(marks);
}

void SourceTextEditor::indentSelection(bool outdent)
{
    QTextCursor cursor = textCursor();
    const int first = document()->findBlock(cursor.selectionStart()).blockNumber();
    int last = document()->findBlock(cursor.selectionEnd()).blockNumber();
    if (cursor.hasSelection() && document()->findBlock(cursor.selectionEnd()).position() == cursor.selectionEnd() && last > first)
        --last;  // a selection that ends at a line's start leaves that line alone
    const QString unit = m_settings->indentUnit();
    cursor.beginEditBlock();
    for (int number = first; number <= last; ++number) {
        const QTextBlock block = document()->findBlockByNumber(number);
        QTextCursor line(block);
        if (!outdent) {
            if (!block.text().isEmpty())
                line.insertText(unit);
            continue;
        }
        // One level out: a tab, or up to a tab width of spaces.
        const QString text = block.text();
        int remove = 0;
        if (text.startsWith(u'\t'))
            remove = 1;
        else
            while (remove < m_settings->tabWidth && remove < text.size() && text.at(remove) == u' ')
                ++remove;
        line.movePosition(QTextCursor::Right, QTextCursor::KeepAnchor, remove);
        line.removeSelectedText();
    }
    cursor.endEditBlock();
}

void SourceTextEditor::keyPressEvent(QKeyEvent *event)
{
    const bool multiLine = textCursor().hasSelection() &&
                           document()->findBlock(textCursor().selectionStart()) != document()->findBlock(textCursor().selectionEnd());
    if (event->key() == Qt::Key_Backtab || (event->key() == Qt::Key_Tab && event->modifiers() & Qt::ShiftModifier)) {
        indentSelection(true);
        return;
    }
    if (event->key() == Qt::Key_Tab && event->modifiers() == Qt::NoModifier) {
        if (multiLine)
            indentSelection(false);
        else
            insertPlainText(m_settings->indentUnit());
        return;
    }
    if ((event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) && event->modifiers() == Qt::NoModifier) {
        // The new line starts where the last one did.
        const QString line = textCursor().block().text().left(textCursor().positionInBlock());
        QString indent;
        for (QChar c : line) {
            if (c != u' ' && c != u'\t')
                break;
            indent += c;
        }
        insertPlainText(u'\n' + indent);
        return;
    }
    QPlainTextEdit::keyPressEvent(event);
}

void SourceTextEditor::mousePressEvent(QMouseEvent *event)
{
    // Ctrl+click on a name jumps to its declaration.
    if (event->button() == Qt::LeftButton && event->modifiers() & Qt::ControlModifier) {
        const int index = cursorForPosition(event->pos()).position();
        if (const std::optional<DeclarationIndex::Range> target = declarations().declarationAt(toPlainText(), index)) {
            QTextCursor cursor(document());
            cursor.setPosition(target->location);
            cursor.setPosition(target->location + target->length, QTextCursor::KeepAnchor);
            setTextCursor(cursor);
            centerCursor();
            qInfo("[SourceTextEditor::mouseDown] navigating to declaration at range: (%d, %d)", target->location,
                  target->length);
            return;
        }
    }
    QPlainTextEdit::mousePressEvent(event);
}

void SourceTextEditor::mouseMoveEvent(QMouseEvent *event)
{
    const bool link = event->modifiers() & Qt::ControlModifier &&
                      declarations().declarationAt(toPlainText(), cursorForPosition(event->pos()).position()).has_value();
    viewport()->setCursor(link ? Qt::PointingHandCursor : Qt::IBeamCursor);
    QPlainTextEdit::mouseMoveEvent(event);
}

void SourceTextEditor::resizeEvent(QResizeEvent *event)
{
    QPlainTextEdit::resizeEvent(event);
    updateMargins();
    placeRuler();
}

void SourceTextEditor::placeRuler()
{
    // Beside the text, down to where the text ends: a horizontal scroll bar stays clear.
    const QRect area = contentsRect();
    const QRect ruler(area.left(), area.top(), m_ruler->rulerWidth(), viewport()->height());
    if (m_ruler->geometry() != ruler)
        m_ruler->setGeometry(ruler);
}

void SourceTextEditor::updateRulerArea(const QRect &rect, int dy)
{
    placeRuler();  // the scroll bar may have come or gone
    if (dy)
        m_ruler->scroll(0, dy);
    else
        m_ruler->update(0, rect.y(), m_ruler->width(), rect.height());
}

namespace {

QStringList localFiles(const QMimeData *source)
{
    QStringList paths;
    if (source && source->hasUrls()) {
        for (const QUrl &url : source->urls()) {
            if (url.isLocalFile())
                paths.append(url.toLocalFile());
        }
    }
    return paths;
}

}  // namespace

bool SourceTextEditor::canInsertFromMimeData(const QMimeData *source) const
{
    return !localFiles(source).isEmpty() || QPlainTextEdit::canInsertFromMimeData(source);
}

void SourceTextEditor::insertFromMimeData(const QMimeData *source)
{
    const QStringList paths = localFiles(source);
    if (!paths.isEmpty()) {
        emit filesDropped(paths);
        return;
    }
    QPlainTextEdit::insertFromMimeData(source);
}
