#pragma once

#include "app/MenuDestination.h"

#include <QIcon>
#include <QString>

// Icons of the window: the desktop's theme icon where the theme has one, else the SVG
// that travels with the application (a bare machine has no icon theme at all).
namespace AppIcons {

QIcon destinationIcon(MenuDestination destination);
QIcon applicationIcon();
// A theme icon, or the bundled file (relative to the resources folder) when the theme
// lacks it.
QIcon themed(const QString &themeName, const QString &fallbackPath);
// The bundled icon alone, ignoring the theme.
QIcon bundled(const QString &relativePath);
// The icon with a variant in one colour for selected rows, so that it reads on the
// selection's background.
QIcon withSelectedColor(const QIcon &icon, const QColor &color, const QSize &size);

}  // namespace AppIcons
