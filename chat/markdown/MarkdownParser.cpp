#include "chat/markdown/MarkdownParser.h"

#include <QRegularExpression>

namespace {

bool isBlank(QChar c) { return c == QLatin1Char(' ') || c == QLatin1Char('\t'); }

const QRegularExpression &numberMarker()
{
    static const QRegularExpression re(QStringLiteral("^\\d+[\\.\\)]"));
    return re;
}

const QRegularExpression &numberMarkerWithBlanks()
{
    static const QRegularExpression re(QStringLiteral("^\\d+[\\.\\)]\\s*"));
    return re;
}

bool onlyOf(const QString &s, QChar c) // non-empty and nothing but c
{
    if (s.isEmpty())
        return false;
    for (QChar x : s)
        if (x != c)
            return false;
    return true;
}

bool isRule(const QString &t)
{
    for (QChar mark : {QLatin1Char('-'), QLatin1Char('*'), QLatin1Char('_')}) {
        int marks = 0;
        bool ok = true;
        for (QChar x : t) {
            if (x == mark)
                ++marks;
            else if (x != QLatin1Char(' ')) {
                ok = false;
                break;
            }
        }
        if (ok && marks >= 3)
            return true;
    }
    return false;
}

bool dashesAndBlanks(const QString &t)
{
    for (QChar x : t)
        if (x != QLatin1Char('-') && x != QLatin1Char(' '))
            return false;
    return true;
}

// 1 or 2 when `next` underlines `t` as a heading of that level, else 0.
int underlineLevel(const QString &t, const QString &next)
{
    if (onlyOf(next, QLatin1Char('=')))
        return 1;
    if (next.size() >= 2 && onlyOf(next, QLatin1Char('-')) && !dashesAndBlanks(t))
        return 2;
    return 0;
}

QStringList splitRow(const QString &line)
{
    QString t = MarkdownParser::trimBlanks(line);
    if (t.startsWith(QLatin1Char('|')))
        t.remove(0, 1);
    if (t.endsWith(QLatin1Char('|')))
        t.chop(1);
    QStringList cells = t.split(QLatin1Char('|'));
    for (QString &c : cells)
        c = MarkdownParser::trimBlanks(c);
    return cells;
}

MDColumnAlign alignOf(const QString &cell)
{
    int b = 0, e = int(cell.size());
    auto trimmable = [](QChar c) { return c == QLatin1Char('-') || c == QLatin1Char(' '); };
    while (b < e && trimmable(cell[b]))
        ++b;
    while (e > b && trimmable(cell[e - 1]))
        --e;
    const QString core = cell.mid(b, e - b);
    const bool lead = core.startsWith(QLatin1Char(':')), trail = core.endsWith(QLatin1Char(':'));
    if (lead && trail)
        return MDColumnAlign::Center;
    if (trail)
        return MDColumnAlign::Right;
    if (lead)
        return MDColumnAlign::Left;
    return MDColumnAlign::None;
}

MDBlock paragraphOf(const QString &text)
{
    MDBlock b;
    b.kind = MDBlock::Kind::Paragraph;
    b.spans = MarkdownParser::parseInline(text);
    return b;
}

bool startsOtherBlock(const QString &t)
{
    return MarkdownParser::isBullet(t) || MarkdownParser::isNumbered(t) || MarkdownParser::isTask(t)
        || t.startsWith(QLatin1Char('#')) || t.startsWith(QLatin1Char('>')) || MarkdownParser::isFence(t);
}

void appendText(QList<MDSpan> &out, const QString &text)
{
    if (!out.isEmpty() && out.last().kind == MDSpan::Kind::Text)
        out.last().text += text;
    else
        out.append(MDSpan{MDSpan::Kind::Text, text, {}, {}});
}

} // namespace

QString MarkdownParser::trimBlanks(const QString &s)
{
    qsizetype b = 0, e = s.size();
    while (b < e && isBlank(s[b]))
        ++b;
    while (e > b && isBlank(s[e - 1]))
        --e;
    return s.mid(b, e - b);
}

bool MarkdownParser::isBullet(const QString &t)
{
    if (t.size() < 2)
        return false;
    const QChar first = t[0], second = t[1];
    if (first == QLatin1Char('*'))
        return isBlank(second);
    if (first == QLatin1Char('-') || first == QLatin1Char('+'))
        return isBlank(second) || second == QLatin1Char('*') || second == QLatin1Char('_');
    return false;
}

bool MarkdownParser::isNumbered(const QString &t) { return numberMarker().match(t).hasMatch(); }

bool MarkdownParser::isTask(const QString &t)
{
    static const QStringList prefixes{QStringLiteral("- [ ]"), QStringLiteral("- [x]"), QStringLiteral("* [ ]"),
                                      QStringLiteral("* [x]"), QStringLiteral("+ [ ]"), QStringLiteral("+ [x]")};
    for (const QString &p : prefixes)
        if (t.startsWith(p))
            return true;
    return false;
}

bool MarkdownParser::isFence(const QString &t)
{
    return t.startsWith(QLatin1String("```")) || t.startsWith(QLatin1String("~~~"));
}

bool MarkdownParser::isTableSeparator(const QString &line)
{
    qsizetype b = 0, e = line.size();
    auto edge = [](QChar c) { return c == QLatin1Char('|') || isBlank(c); };
    while (b < e && edge(line[b]))
        ++b;
    while (e > b && edge(line[e - 1]))
        --e;
    if (b == e)
        return false;
    for (qsizetype k = b; k < e; ++k) {
        const QChar c = line[k];
        if (c != QLatin1Char('-') && c != QLatin1Char(':') && c != QLatin1Char('|') && c != QLatin1Char(' '))
            return false;
    }
    return true;
}

std::vector<MDBlock> MarkdownParser::parseBlocks(const QString &text)
{
    return parseLines(text.split(QLatin1Char('\n')));
}

std::vector<MDBlock> MarkdownParser::parseLines(const QStringList &lines)
{
    std::vector<MDBlock> blocks;
    const int n = int(lines.size());
    int i = 0;
    while (i < n) {
        const QString t = trimBlanks(lines[i]);
        if (t.isEmpty()) {
            ++i;
            continue;
        }

        if (isFence(t)) {
            const QString fence = t.left(3);
            MDBlock b;
            b.kind = MDBlock::Kind::CodeBlock;
            b.language = trimBlanks(t.mid(3));
            QStringList body;
            ++i;
            // The end of the text closes a fence that never did: an answer cut off mid-block.
            while (i < n && !trimBlanks(lines[i]).startsWith(fence))
                body << lines[i++];
            if (i < n)
                ++i;
            b.body = QStringLiteral(" \n") + body.join(QLatin1Char('\n'));
            blocks.push_back(std::move(b));
            continue;
        }

        if (t.startsWith(QLatin1Char('#'))) {
            int hashes = 0;
            while (hashes < t.size() && t[hashes] == QLatin1Char('#'))
                ++hashes;
            const QString rest = t.mid(hashes);
            if (hashes <= 6 && (rest.isEmpty() || rest[0] == QLatin1Char(' '))) {
                MDBlock b;
                b.kind = MDBlock::Kind::Heading;
                b.level = hashes;
                b.spans = parseInline(trimBlanks(rest));
                blocks.push_back(std::move(b));
            } else {
                blocks.push_back(paragraphOf(t));
            }
            ++i;
            continue;
        }

        if (i + 1 < n) {
            if (const int level = underlineLevel(t, trimBlanks(lines[i + 1]))) {
                MDBlock b;
                b.kind = MDBlock::Kind::Heading;
                b.level = level;
                b.spans = parseInline(t);
                blocks.push_back(std::move(b));
                i += 2;
                continue;
            }
        }

        if (isRule(t)) {
            MDBlock b;
            b.kind = MDBlock::Kind::HorizontalRule;
            blocks.push_back(std::move(b));
            ++i;
            continue;
        }

        if (t.startsWith(QLatin1Char('>'))) {
            QStringList quoted;
            while (i < n) {
                const QString q = trimBlanks(lines[i]);
                if (q.isEmpty()) {
                    ++i;
                    break;
                }
                if (q.startsWith(QLatin1Char('>')))
                    quoted << trimBlanks(q.mid(1));
                else if (!quoted.isEmpty())
                    quoted << q; // a lazy continuation
                else
                    break;
                ++i;
            }
            MDBlock b;
            b.kind = MDBlock::Kind::Blockquote;
            b.children = parseLines(quoted);
            blocks.push_back(std::move(b));
            continue;
        }

        if (t.contains(QLatin1Char('|')) && i + 1 < n && isTableSeparator(lines[i + 1])) {
            MDBlock b;
            b.kind = MDBlock::Kind::Table;
            b.header = splitRow(t);
            for (const QString &cell : splitRow(lines[i + 1]))
                b.align << alignOf(cell);
            i += 2;
            while (i < n) {
                const QString r = trimBlanks(lines[i]);
                if (r.isEmpty() || !r.contains(QLatin1Char('|')))
                    break;
                b.rows << splitRow(r);
                ++i;
            }
            blocks.push_back(std::move(b));
            continue;
        }

        if (isTask(t)) {
            MDBlock b;
            b.kind = MDBlock::Kind::TaskList;
            while (i < n) {
                const QString r = trimBlanks(lines[i]);
                if (!isTask(r))
                    break;
                MDListItem item;
                item.checked = r[3] == QLatin1Char('x');
                item.children.push_back(paragraphOf(trimBlanks(r.mid(5))));
                b.items.push_back(std::move(item));
                ++i;
            }
            blocks.push_back(std::move(b));
            continue;
        }

        if (isBullet(t) || isNumbered(t)) {
            const bool bullets = isBullet(t);
            MDBlock b;
            b.kind = bullets ? MDBlock::Kind::BulletList : MDBlock::Kind::OrderedList;
            if (!bullets) {
                bool ok = false;
                const int start = t.left(t.indexOf(QLatin1Char('.'))).toInt(&ok);
                b.start = ok ? start : 1;
            }
            while (i < n) {
                const QString r = trimBlanks(lines[i]);
                if (r.isEmpty()) {
                    ++i;
                    break;
                }
                if (bullets ? (!isBullet(r) || isTask(r)) : !isNumbered(r))
                    break;
                QString first = bullets ? trimBlanks(r.mid(1))
                                        : r.mid(numberMarkerWithBlanks().match(r).capturedLength());
                ++i;
                QStringList itemLines;
                if (first.isEmpty()) {
                    int k = i;
                    while (k < n && trimBlanks(lines[k]).isEmpty())
                        ++k;
                    if (k < n && !startsOtherBlock(trimBlanks(lines[k]))) {
                        first = trimBlanks(lines[k]);
                        i = k + 1;
                    }
                }
                if (!first.isEmpty())
                    itemLines << first;
                while (i < n) {
                    const QString &raw = lines[i];
                    if (trimBlanks(raw).isEmpty()) {
                        ++i;
                        break;
                    }
                    if (!isBlank(raw[0]))
                        break;
                    int cut = 0;
                    while (cut < 2 && cut < raw.size() && isBlank(raw[cut]))
                        ++cut;
                    itemLines << raw.mid(cut);
                    ++i;
                }
                MDListItem item;
                item.children = parseLines(itemLines);
                b.items.push_back(std::move(item));
            }
            blocks.push_back(std::move(b));
            continue;
        }

        // A paragraph: lines until one that starts another block or is itself underlined.
        auto stops = [&](int j) {
            const QString r = trimBlanks(lines[j]);
            if (r.isEmpty() || r.startsWith(QLatin1Char('#')) || r.startsWith(QLatin1Char('>')) || isFence(r)
                || isTask(r) || isBullet(r) || isNumbered(r))
                return true;
            return j + 1 < n && underlineLevel(r, trimBlanks(lines[j + 1])) != 0;
        };
        QStringList para{t};
        ++i;
        if (!stops(i - 1)) {
            while (i < n && !stops(i))
                para << trimBlanks(lines[i++]);
        }
        blocks.push_back(paragraphOf(para.join(QLatin1Char(' '))));
    }
    return blocks;
}

QList<MDSpan> MarkdownParser::parseInline(const QString &s)
{
    struct Pair {
        QLatin1String delim;
        MDSpan::Kind kind;
    };
    static const Pair pairs[] = {
        {QLatin1String("***"), MDSpan::Kind::BoldItalic}, {QLatin1String("___"), MDSpan::Kind::BoldItalic},
        {QLatin1String("**"), MDSpan::Kind::Bold},        {QLatin1String("__"), MDSpan::Kind::Bold},
        {QLatin1String("*"), MDSpan::Kind::Italic},       {QLatin1String("_"), MDSpan::Kind::Italic},
        {QLatin1String("~~"), MDSpan::Kind::Strikethrough},
    };
    static const QLatin1String hardBreak("  \n");

    QList<MDSpan> out;
    const qsizetype n = s.size();
    qsizetype pos = 0;
    while (pos < n) {
        if (QStringView(s).mid(pos).startsWith(hardBreak)) {
            out.append(MDSpan{MDSpan::Kind::LineBreak, {}, {}, {}});
            pos += 3;
            continue;
        }
        const QChar c = s[pos];
        if (c == QLatin1Char('\\') && pos + 1 < n) {
            appendText(out, QString(s[pos + 1]));
            pos += 2;
            continue;
        }
        if (c == QLatin1Char('`')) {
            const qsizetype len = (pos + 1 < n && s[pos + 1] == QLatin1Char('`')) ? 2 : 1;
            const qsizetype end = s.indexOf(s.mid(pos, len), pos + len);
            if (end >= 0) {
                QString code = s.mid(pos + len, end - pos - len);
                while (code.startsWith(QLatin1Char(' ')))
                    code.remove(0, 1);
                while (code.endsWith(QLatin1Char(' ')))
                    code.chop(1);
                out.append(MDSpan{MDSpan::Kind::Code, code, {}, {}});
                pos = end + len;
                continue;
            }
        }
        bool matched = false;
        for (const Pair &p : pairs) {
            const qsizetype len = p.delim.size();
            if (!QStringView(s).mid(pos).startsWith(p.delim))
                continue;
            if (p.delim == QLatin1String("_") && pos + 1 < n && isBlank(s[pos + 1]))
                continue;
            const qsizetype end = s.indexOf(p.delim, pos + len);
            if (end < 0 || end == pos + len)
                continue;
            out.append(MDSpan{p.kind, {}, {}, parseInline(s.mid(pos + len, end - pos - len))});
            pos = end + len;
            matched = true;
            break;
        }
        if (matched)
            continue;
        if (c == QLatin1Char('[')) {
            const qsizetype close = s.indexOf(QLatin1Char(']'), pos + 1);
            if (close >= 0 && close + 1 < n && s[close + 1] == QLatin1Char('(')) {
                const qsizetype paren = s.indexOf(QLatin1Char(')'), close + 2);
                if (paren >= 0) {
                    out.append(MDSpan{MDSpan::Kind::Link, s.mid(pos + 1, close - pos - 1),
                                      s.mid(close + 2, paren - close - 2), {}});
                    pos = paren + 1;
                    continue;
                }
            }
        }
        qsizetype j = pos + 1;
        static const QString specials = QStringLiteral("`*_~[\\");
        while (j < n && !specials.contains(s[j]) && !QStringView(s).mid(j).startsWith(hardBreak))
            ++j;
        appendText(out, s.mid(pos, j - pos));
        pos = j;
    }
    return out;
}
