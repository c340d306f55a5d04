#include "chat/markdown/SyntaxToken.h"

QColor SyntaxToken::colorOf(Kind kind, const QColor &textColor)
{
    auto faded = [&](double alpha) {
        QColor c = textColor;
        c.setAlphaF(float(alpha));
        return c;
    };
    switch (kind) {
    case Kind::Keyword: return QColor::fromRgbF(0.8f, 0.5f, 1.0f, 0.85f);
    case Kind::Type: return QColor::fromRgbF(0.35f, 0.82f, 0.95f, 0.85f);
    case Kind::String: return QColor::fromRgbF(0.85f, 0.72f, 0.45f, 0.85f);
    case Kind::Number: return QColor::fromRgbF(0.55f, 0.9f, 0.65f, 0.85f);
    case Kind::Comment: return faded(0.35);
    case Kind::Operator: return faded(0.5);
    case Kind::Plain: break;
    }
    return faded(0.85);
}
