#include "chat/markdown/MarkdownRenderer.h"

#include "chat/markdown/CodeTokenHighlighter.h"
#include "chat/markdown/MarkdownParser.h"

#include <QFontDatabase>
#include <QTextDocument>

#include <algorithm>

namespace {

// Extra leading between lines for a spacing multiplier: (L - 1) times the size, at least 0.
double leading(double multiplier, double size) { return std::max(0.0, (multiplier - 1.0) * size); }

// A cell's text as it reads: emphasis and code marks taken off, a link as its text. The
// columns are padded in a fixed font, so a cell keeps one style.
QString plainText(const QList<MDSpan> &spans)
{
    QString text;
    for (const MDSpan &span : spans)
        text += span.children.isEmpty() ? (span.kind == MDSpan::Kind::LineBreak ? QStringLiteral(" ") : span.text)
                                        : plainText(span.children);
    return text;
}

QString padded(const QString &cell, int width, MDColumnAlign align)
{
    const int room = width - int(cell.size());
    if (room <= 0)
        return cell;
    if (align == MDColumnAlign::Right)
        return QString(room, QLatin1Char(' ')) + cell;
    if (align == MDColumnAlign::Center)
        return QString(room / 2, QLatin1Char(' ')) + cell + QString(room - room / 2, QLatin1Char(' '));
    return cell + QString(room, QLatin1Char(' '));
}

QString trimmedOfNewlines(QString s)
{
    while (s.startsWith(QLatin1Char('\n')))
        s.remove(0, 1);
    while (s.endsWith(QLatin1Char('\n')))
        s.chop(1);
    return s;
}

} // namespace

void MarkdownRenderer::render(const QString &markdown, QTextDocument *document) const
{
    document->clear();
    // A rendered answer is never edited: the undo history would only cost time.
    const bool undo = document->isUndoRedoEnabled();
    document->setUndoRedoEnabled(false);
    QTextCursor cursor(document);
    cursor.beginEditBlock();
    bool first = true;
    for (const MDBlock &block : MarkdownParser::parseBlocks(markdown))
        renderBlock(cursor, block, first);
    cursor.endEditBlock();
    document->setUndoRedoEnabled(undo);
}

QTextCharFormat MarkdownRenderer::bodyFormat(const QColor &color, double size) const
{
    QTextCharFormat f;
    QFont font = m_style.bodyFont;
    font.setPointSizeF(std::max(1.0, size));
    f.setFont(font);
    f.setForeground(color);
    return f;
}

QTextBlockFormat MarkdownRenderer::paragraphFormat(double before, double after, double spacing, double size,
                                                   double indent) const
{
    QTextBlockFormat f;
    f.setTopMargin(before);
    f.setBottomMargin(after);
    f.setLineHeight(leading(spacing, size), QTextBlockFormat::LineDistanceHeight);
    f.setLeftMargin(indent);
    f.setTextIndent(0);
    return f;
}

void MarkdownRenderer::write(QTextCursor &cursor, const QString &text, const QTextCharFormat &format)
{
    const QStringList lines = text.split(QLatin1Char('\n'));
    for (qsizetype k = 0; k < lines.size(); ++k) {
        if (k > 0)
            cursor.insertBlock();
        if (!lines[k].isEmpty())
            cursor.insertText(lines[k], format);
    }
}

void MarkdownRenderer::renderBlock(QTextCursor &cursor, const MDBlock &block, bool &first) const
{
    const double body = m_style.bodySize, L = m_style.lineSpacing;
    QTextBlockFormat para;
    QTextCharFormat base = bodyFormat(m_style.primary, body);
    using K = MDBlock::Kind;
    switch (block.kind) {
    case K::Heading: {
        static const int grow[] = {7, 4, 2, 1, 0, -1};
        const double size = body + grow[std::clamp(block.level, 1, 6) - 1];
        para = paragraphFormat(11, 4, L, size, 0);
        base = bodyFormat(block.level <= 2 ? m_style.primary : block.level == 3 ? m_style.secondary : m_style.muted,
                          size);
        break;
    }
    case K::Paragraph: para = paragraphFormat(2, 4, L + 0.25, body, 0); break;
    case K::Blockquote: para = paragraphFormat(2, 4, L, body, 12); break;
    case K::BulletList: para = paragraphFormat(2, 2, L + 0.25, body, 24); break;
    case K::OrderedList: para = paragraphFormat(4, 2, L + 0.25, body, 24); break;
    case K::TaskList: {
        para = paragraphFormat(2, 2, L + 0.25, body, 18);
        para.setTabPositions({QTextOption::Tab(18, QTextOption::LeftTab)});
        break;
    }
    case K::Table:
        para = paragraphFormat(4, 4, L, std::max(11.0, body - 1), 0);
        para.setNonBreakableLines(true);  // a wrapped row would lose its columns
        break;
    case K::CodeBlock: {
        const double S = L >= 1 ? L / 2 : L;
        para = paragraphFormat(4 * S, 4 * S, S, m_style.codeSize, 8);
        break;
    }
    case K::HorizontalRule: para = paragraphFormat(6, 6, 0, body, 0); break;
    case K::Blank: return;
    }
    if (first)
        cursor.setBlockFormat(para);
    else
        cursor.insertBlock(para);
    first = false;

    switch (block.kind) {
    case K::Table: renderTable(cursor, block); return;
    case K::CodeBlock: renderCode(cursor, block); return;
    case K::HorizontalRule: return;
    case K::Heading:
    case K::Paragraph: renderSpans(cursor, block.spans, base); return;
    case K::Blockquote: {
        QTextCharFormat bar = base;
        bar.setForeground(m_style.accent);
        cursor.insertText(QStringLiteral("▍ "), bar);
        renderItemChildren(cursor, block.children, bodyFormat(m_style.muted, body));
        return;
    }
    default: break;
    }

    // Lists: the paragraph style of the list covers each whole item, nested lists included.
    const int last = block.start + int(block.items.size()) - 1;
    const int numberWidth = int(QString::number(last).size());
    for (size_t k = 0; k < block.items.size(); ++k) {
        const MDListItem &item = block.items[k];
        if (k > 0)
            cursor.insertBlock();
        QTextCharFormat marker = base;
        if (block.kind == K::BulletList) {
            marker.setForeground(m_style.accent);
            cursor.insertText(QStringLiteral("• "), marker);
        } else if (block.kind == K::OrderedList) {
            const QString n = QString::number(block.start + int(k));
            cursor.insertText(QString(numberWidth - n.size(), QLatin1Char(' ')) + n + QStringLiteral(". "), marker);
        } else {
            marker.setForeground(item.checked ? m_style.accent : m_style.muted);
            cursor.insertText(item.checked ? QStringLiteral("☑\t") : QStringLiteral("☐\t"), marker);
        }
        renderItemChildren(cursor, item.children, base);
    }
}

void MarkdownRenderer::renderItemChildren(QTextCursor &cursor, const std::vector<MDBlock> &children,
                                          const QTextCharFormat &base) const
{
    bool firstChild = true;
    for (const MDBlock &child : children) {
        if (!firstChild)
            cursor.insertBlock();
        firstChild = false;
        if (child.kind == MDBlock::Kind::Paragraph || child.kind == MDBlock::Kind::Heading) {
            renderSpans(cursor, child.spans, base);
            continue;
        }
        // Other blocks inside an item keep the item's paragraph style: render them into a
        // paragraph of their own and carry on behind it.
        bool first = true;
        const QTextBlockFormat keep = cursor.blockFormat();
        renderBlock(cursor, child, first);
        cursor.setBlockFormat(keep);
    }
}

void MarkdownRenderer::renderSpans(QTextCursor &cursor, const QList<MDSpan> &spans, const QTextCharFormat &base) const
{
    using K = MDSpan::Kind;
    for (const MDSpan &span : spans) {
        QTextCharFormat f = base;
        switch (span.kind) {
        case K::Text: write(cursor, span.text, base); break;
        case K::Bold: f.setFontWeight(QFont::Bold); renderSpans(cursor, span.children, f); break;
        case K::Italic: f.setFontItalic(true); renderSpans(cursor, span.children, f); break;
        case K::BoldItalic:
            f.setFontWeight(QFont::Bold);
            f.setFontItalic(true);
            renderSpans(cursor, span.children, f);
            break;
        case K::Strikethrough:
            f.setFontStrikeOut(true);
            f.setForeground(m_style.faint);
            renderSpans(cursor, span.children, f);
            break;
        case K::Code: {
            QFont code = m_style.codeFont;
            code.setPointSizeF(m_style.codeSize);
            code.setBold(base.fontWeight() >= QFont::Bold);
            code.setItalic(base.fontItalic());
            f.setFont(code);
            f.setForeground(m_style.inlineCode);
            write(cursor, span.text, f);
            break;
        }
        case K::Link:
            f.setForeground(m_style.link);
            f.setFontUnderline(true);
            f.setAnchor(true);
            f.setAnchorHref(span.url);
            write(cursor, span.text, f);
            break;
        case K::LineBreak: cursor.insertBlock(); break;
        }
    }
}

void MarkdownRenderer::renderTable(QTextCursor &cursor, const MDBlock &block) const
{
    QFont mono = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    mono.setPointSizeF(std::max(11.0, m_style.bodySize - 1));
    auto format = [&](const QColor &c) {
        QTextCharFormat f;
        f.setFont(mono);
        f.setForeground(c);
        return f;
    };
    const qsizetype columns = block.header.size();
    auto plainRow = [](const QStringList &row) {
        QStringList cells;
        for (const QString &cell : row)
            cells << plainText(MarkdownParser::parseInline(cell));
        return cells;
    };
    const QStringList header = plainRow(block.header);
    QList<QStringList> rows;
    for (const QStringList &row : block.rows)
        rows << plainRow(row);
    QList<int> width(columns, 0);
    auto measure = [&](const QStringList &row) {
        for (qsizetype c = 0; c < std::min(columns, row.size()); ++c)
            width[c] = std::max(width[c], int(row[c].size()));
    };
    measure(header);
    for (const QStringList &row : rows)
        measure(row);
    auto line = [&](const QStringList &row) {
        QStringList cells;
        for (qsizetype c = 0; c < columns; ++c)
            cells << padded(c < row.size() ? row[c] : QString(), width[c],
                            c < block.align.size() ? block.align[c] : MDColumnAlign::None);
        return cells.join(QStringLiteral("   "));
    };
    write(cursor, line(header) + QLatin1Char('\n'), format(m_style.secondary));
    QStringList rule;
    for (int w : width)
        rule << QString(w, QChar(0x2500));
    write(cursor, rule.join(QStringLiteral("   ")) + QLatin1Char('\n'), format(m_style.faint));
    for (qsizetype r = 0; r < rows.size(); ++r)
        write(cursor, line(rows[r]) + (r + 1 < rows.size() ? QStringLiteral("\n") : QString()),
              format(m_style.primary));
}

void MarkdownRenderer::renderCode(QTextCursor &cursor, const MDBlock &block) const
{
    QString body = block.body;
    if (body.startsWith(QLatin1String(" \n")))
        body.remove(0, 2);
    QFont small = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    small.setPointSizeF(std::max(10.0, m_style.bodySize - 1));
    QTextCharFormat ruleFormat;
    ruleFormat.setFont(small);
    ruleFormat.setForeground(m_style.faint);
    write(cursor, QString(28, QChar(0x2500)) + QLatin1Char('\n'), ruleFormat);

    const QString language = MarkdownParser::trimBlanks(block.language);
    if (!language.isEmpty()) {
        QTextCharFormat f = ruleFormat;
        f.setForeground(m_style.secondary);
        cursor.insertText(language.toUpper() + QStringLiteral("  |  "), f);
    }
    QTextCharFormat copy = ruleFormat;
    copy.setForeground(m_style.link);
    copy.setAnchor(true);
    copy.setAnchorHref(QStringLiteral("kelvara://copy-code"));
    copy.setUnderlineStyle(QTextCharFormat::DotLine);
    copy.setProperty(CodeCopyPayload, trimmedOfNewlines(body));
    cursor.insertText(QStringLiteral("Copy"), copy);
    cursor.insertBlock();

    QFont code = m_style.codeFont;
    code.setPointSizeF(m_style.codeSize);
    QTextCharFormat kinds[int(SyntaxToken::Kind::Plain) + 1];
    for (int k = 0; k <= int(SyntaxToken::Kind::Plain); ++k) {
        kinds[k].setFont(code);
        kinds[k].setForeground(SyntaxToken::colorOf(SyntaxToken::Kind(k), m_style.text));
    }
    // Tokens of one colour go in as one run, and blanks join the run before them (their
    // colour doesn't show): far fewer format look-ups in the document.
    QString run;
    int runKind = -1;
    for (const SyntaxToken &token : CodeTokenHighlighter::tokenize(body, language)) {
        const bool blank = token.kind == SyntaxToken::Kind::Plain && token.text.trimmed().isEmpty();
        if (runKind >= 0 && (int(token.kind) != runKind && !blank)) {
            write(cursor, run, kinds[runKind]);
            run.clear();
            runKind = -1;
        }
        if (runKind < 0)
            runKind = int(token.kind);
        run += token.text;
    }
    if (runKind >= 0)
        write(cursor, run, kinds[runKind]);
    write(cursor, body.endsWith(QLatin1Char('\n')) ? QStringLiteral("\n") : QStringLiteral("\n\n"), ruleFormat);
    cursor.insertText(QStringLiteral(" "), ruleFormat);
}
