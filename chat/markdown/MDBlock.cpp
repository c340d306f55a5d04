#include "chat/markdown/MDBlock.h"

QString MDBlock::outline(const std::vector<MDBlock> &blocks, int indent)
{
    QString out;
    const QString pad(indent, QLatin1Char(' '));
    auto line = [&](const QString &s) { out += pad + s + QLatin1Char('\n'); };
    for (const MDBlock &b : blocks) {
        switch (b.kind) {
        case Kind::Heading: line(QStringLiteral("h%1 %2").arg(b.level).arg(MDSpan::outline(b.spans))); break;
        case Kind::Paragraph: line(QStringLiteral("p ") + MDSpan::outline(b.spans)); break;
        case Kind::CodeBlock:
            line(QStringLiteral("code(%1) %2 lines").arg(b.language).arg(b.body.count(QLatin1Char('\n'))));
            break;
        case Kind::Blockquote:
            line(QStringLiteral("quote"));
            out += outline(b.children, indent + 2);
            break;
        case Kind::BulletList:
        case Kind::OrderedList:
        case Kind::TaskList:
            line(b.kind == Kind::BulletList ? QStringLiteral("ul")
                 : b.kind == Kind::TaskList ? QStringLiteral("tasks")
                                            : QStringLiteral("ol start=%1").arg(b.start));
            for (const MDListItem &item : b.items) {
                line(b.kind != Kind::TaskList ? QStringLiteral("  -")
                     : item.checked           ? QStringLiteral("  - [x]")
                                              : QStringLiteral("  - [ ]"));
                out += outline(item.children, indent + 4);
            }
            break;
        case Kind::Table: {
            QStringList a;
            for (MDColumnAlign c : b.align)
                a << (c == MDColumnAlign::Left ? QStringLiteral("l") : c == MDColumnAlign::Center ? QStringLiteral("c")
                      : c == MDColumnAlign::Right ? QStringLiteral("r") : QStringLiteral("-"));
            line(QStringLiteral("table %1x%2 align=%3 header=%4")
                     .arg(b.header.size()).arg(b.rows.size()).arg(a.join(QLatin1Char(',')), b.header.join(QLatin1Char('|'))));
            break;
        }
        case Kind::HorizontalRule: line(QStringLiteral("hr")); break;
        case Kind::Blank: line(QStringLiteral("blank")); break;
        }
    }
    return out;
}
