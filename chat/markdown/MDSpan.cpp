#include "chat/markdown/MDSpan.h"

#include <QStringList>

QString MDSpan::outline(const QList<MDSpan> &spans)
{
    QStringList parts;
    for (const MDSpan &s : spans) {
        switch (s.kind) {
        case Kind::Text: parts << QLatin1Char('"') + s.text + QLatin1Char('"'); break;
        case Kind::Bold: parts << QStringLiteral("b(%1)").arg(outline(s.children)); break;
        case Kind::Italic: parts << QStringLiteral("i(%1)").arg(outline(s.children)); break;
        case Kind::BoldItalic: parts << QStringLiteral("bi(%1)").arg(outline(s.children)); break;
        case Kind::Strikethrough: parts << QStringLiteral("s(%1)").arg(outline(s.children)); break;
        case Kind::Code: parts << QLatin1Char('`') + s.text + QLatin1Char('`'); break;
        case Kind::Link: parts << QStringLiteral("[%1](%2)").arg(s.text, s.url); break;
        case Kind::LineBreak: parts << QStringLiteral("<br>"); break;
        }
    }
    return parts.join(QLatin1Char(' '));
}
