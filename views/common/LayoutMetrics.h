#pragma once

// The one set of spacing the screens use, so that every screen has the same margins and
// gaps (in device-independent pixels).
namespace LayoutMetrics {

// Around a screen's content.
inline constexpr int screenMargin = 12;
// Between controls in a row or a column.
inline constexpr int spacing = 8;
// Between groups of controls (a toolbar and the content under it).
inline constexpr int sectionSpacing = 12;
// Inside a list row, around its lines.
inline constexpr int rowPadding = 6;

}  // namespace LayoutMetrics

#include <QLayout>

namespace LayoutMetrics {

// A screen's outermost layout: its margins and spacing.
inline void applyToScreen(QLayout *layout)
{
    layout->setContentsMargins(screenMargin, screenMargin, screenMargin, screenMargin);
    layout->setSpacing(spacing);
}

}  // namespace LayoutMetrics
