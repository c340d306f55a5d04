#pragma once

#include <QColor>
#include <QFont>

// The fonts, sizes, spacing and colours an answer is rendered with. The chat's appearance
// settings fill it; `fromPalette()` gives the desktop's own look for tests and previews.
struct MarkdownStyle {
    QFont bodyFont;
    double bodySize = 13;
    QFont codeFont;
    double codeSize = 13;
    double lineSpacing = 1.0; // a multiplier
    QColor primary, secondary, muted, faint;
    QColor accent;
    QColor text; // the desktop's text colour, which the highlighter fades
    QColor inlineCode = QColor::fromRgbF(0.55f, 0.9f, 0.65f, 1.0f);
    QColor link = QColor::fromRgbF(0.25f, 0.65f, 1.0f, 0.85f);

    static MarkdownStyle fromPalette();
};
