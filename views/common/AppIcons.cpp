#include "views/common/AppIcons.h"

#include "base/AppPaths.h"

#include <QFileInfo>
#include <QPainter>
#include <QPixmap>

namespace AppIcons {

QIcon bundled(const QString &relativePath)
{
    const QString path = AppPaths::resourcesDir() + QLatin1Char('/') + relativePath;
    return QFileInfo::exists(path) ? QIcon(path) : QIcon();
}

QIcon themed(const QString &themeName, const QString &fallbackPath)
{
    if (!themeName.isEmpty() && QIcon::hasThemeIcon(themeName))
        return QIcon::fromTheme(themeName);
    return bundled(fallbackPath);
}

QIcon withSelectedColor(const QIcon &icon, const QColor &color, const QSize &size)
{
    // Plain pixmaps in both modes: the SVG engine would not hand out the tinted ones.
    QIcon result;
    for (int scale : {1, 2}) {
        QPixmap normal = icon.pixmap(size * scale);
        if (normal.isNull())
            continue;
        QPixmap tinted = normal;
        QPainter painter(&tinted);
        painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
        painter.fillRect(tinted.rect(), color);
        painter.end();
        normal.setDevicePixelRatio(scale);
        tinted.setDevicePixelRatio(scale);
        result.addPixmap(normal, QIcon::Normal);
        result.addPixmap(tinted, QIcon::Selected);
    }
    return result.isNull() ? icon : result;
}

QIcon destinationIcon(MenuDestination destination)
{
    return themed(MenuDestinations::themeIconName(destination), MenuDestinations::fallbackIconPath(destination));
}

QIcon applicationIcon()
{
    if (QIcon::hasThemeIcon(QStringLiteral("kelvara")))
        return QIcon::fromTheme(QStringLiteral("kelvara"));
    return bundled(QStringLiteral("icons/kelvara.svg"));
}

}  // namespace AppIcons
