#include "chat/markdown/MarkdownSection.h"

#include <QRegularExpression>
#include <QStringList>

QList<MarkdownSection> MarkdownSection::parse(const QString &text)
{
    static const QRegularExpression numbered(QStringLiteral("^(\\d+)\\.\\s"));
    QList<MarkdownSection> sections;
    QStringList paragraph;
    QStringList code;
    bool inCode = false;
    auto add = [&](Type type, const QString &content, std::optional<int> number = std::nullopt) {
        sections.append({int(sections.size()), type, content, number});
    };
    auto flush = [&] {
        if (!paragraph.isEmpty())
            add(Type::Paragraph, paragraph.join(QLatin1Char(' ')));
        paragraph.clear();
    };
    for (const QString &line : text.split(QLatin1Char('\n'))) {
        if (line.startsWith(QLatin1String("```"))) {
            if (inCode) {
                add(Type::Code, code.join(QLatin1Char('\n')).trimmed());
                code.clear();
            } else {
                flush();
            }
            inCode = !inCode;
            continue;
        }
        if (inCode) {
            code << line;
            continue;
        }
        const QString t = line.trimmed();
        if (t == QLatin1String("---") || t == QLatin1String("***") || t == QLatin1String("___"))
            continue;
        if (t.isEmpty()) {
            flush();
            continue;
        }
        int hashes = 0;
        while (hashes < 6 && hashes < line.size() && line[hashes] == QLatin1Char('#'))
            ++hashes;
        if (hashes > 0 && line.size() > hashes && line[hashes] == QLatin1Char(' ')) {
            flush();
            add(Type(int(Type::Heading1) + hashes - 1), line.mid(hashes + 1).trimmed());
            continue;
        }
        if (line.startsWith(QLatin1String("> "))) {
            paragraph << line.mid(2).trimmed();
            continue;
        }
        if (const auto m = numbered.match(line); m.hasMatch()) {
            flush();
            add(Type::NumberedItem, line.mid(m.capturedLength()).trimmed(), m.captured(1).toInt());
            continue;
        }
        if (line.startsWith(QLatin1String("- ")) || line.startsWith(QLatin1String("* "))
            || line.startsWith(QLatin1String("+ "))) {
            flush();
            add(Type::BulletPoint, line.mid(2).trimmed());
            continue;
        }
        paragraph << t;
    }
    if (inCode && !code.isEmpty())
        add(Type::Code, code.join(QLatin1Char('\n')).trimmed());
    flush();
    return sections;
}

QString MarkdownSection::inlineHtml(const QString &content)
{
    static const QRegularExpression bold(QStringLiteral("(\\*\\*|__)(.*?)\\1"));
    static const QRegularExpression italic(
        QStringLiteral("(?<!\\*)\\*(?!\\*)(.*?)(?<!\\*)\\*(?!\\*)|(?<!_)_(?!_)(.*?)(?<!_)_(?!_)"));
    static const QRegularExpression code(QStringLiteral("`([^`]+)`"));
    static const QRegularExpression strike(QStringLiteral("~~(.*?)~~"));
    QString html = content.toHtmlEscaped();
    html.replace(bold, QStringLiteral("<b>\\2</b>"));
    html.replace(italic, QStringLiteral("<i>\\1\\2</i>"));
    html.replace(code, QStringLiteral("<code>\\1</code>"));
    html.replace(strike, QStringLiteral("<s>\\1</s>"));
    return html;
}
