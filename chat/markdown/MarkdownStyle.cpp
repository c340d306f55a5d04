#include "chat/markdown/MarkdownStyle.h"

#include <QFontDatabase>
#include <QGuiApplication>
#include <QPalette>

MarkdownStyle MarkdownStyle::fromPalette()
{
    MarkdownStyle s;
    const QPalette pal = qobject_cast<QGuiApplication *>(QCoreApplication::instance()) ? QGuiApplication::palette()
                                                                                        : QPalette();
    s.bodyFont = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    s.codeFont = s.bodyFont;
    s.text = pal.color(QPalette::Text);
    s.primary = pal.color(QPalette::WindowText);
    s.secondary = pal.color(QPalette::PlaceholderText);
    s.muted = s.secondary;
    s.muted.setAlphaF(0.95f);
    s.faint = s.secondary;
    s.faint.setAlphaF(0.87f);
    s.accent = pal.color(QPalette::Highlight);
    return s;
}
