#include "views/common/ColorScheme.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusReply>
#include <QDBusVariant>
#include <QStyle>
#include <QStyleFactory>
#include <QWidget>

namespace {

const QString portalService = QStringLiteral("org.freedesktop.portal.Desktop");
const QString portalPath = QStringLiteral("/org/freedesktop/portal/desktop");
const QString portalSettings = QStringLiteral("org.freedesktop.portal.Settings");
const QString appearance = QStringLiteral("org.freedesktop.appearance");
const QString colorSchemeKey = QStringLiteral("color-scheme");

// A portal answer comes wrapped in one or two variants.
int unwrap(QVariant value)
{
    while (value.canConvert<QDBusVariant>() && value.userType() == qMetaTypeId<QDBusVariant>())
        value = value.value<QDBusVariant>().variant();
    bool ok = false;
    const int number = value.toInt(&ok);
    return ok ? number : -1;
}

}  // namespace

ColorScheme *ColorScheme::shared()
{
    static ColorScheme *instance = new ColorScheme;
    return instance;
}

ColorScheme::ColorScheme()
{
    m_platformPalette = QApplication::palette();
    const QByteArray forced = qgetenv("KELVARA_COLOR_SCHEME");
    if (forced.isEmpty()) {
        QDBusConnection bus = QDBusConnection::sessionBus();
        if (bus.isConnected()) {
            QDBusInterface portal(portalService, portalPath, portalSettings, bus);
            portal.setTimeout(400);
            if (portal.isValid()) {
                const QDBusReply<QVariant> reply = portal.call(QStringLiteral("Read"), appearance, colorSchemeKey);
                if (reply.isValid())
                    m_portalValue = unwrap(reply.value());
            }
            bus.connect(portalService, portalPath, portalSettings, QStringLiteral("SettingChanged"), this,
                        SLOT(portalSettingChanged(QString, QString, QDBusVariant)));
        }
    }
    m_scheme = preferred();
}

ColorScheme::Scheme ColorScheme::preferred() const
{
    const QByteArray forced = qgetenv("KELVARA_COLOR_SCHEME").toLower();
    if (forced == "dark")
        return Scheme::dark;
    if (forced == "light")
        return Scheme::light;
    if (m_portalValue == 1)
        return Scheme::dark;
    if (m_portalValue == 2)
        return Scheme::light;
    if (qgetenv("GTK_THEME").toLower().endsWith(":dark"))
        return Scheme::dark;
    return isDarkPalette(m_platformPalette) ? Scheme::dark : Scheme::light;
}

void ColorScheme::portalSettingChanged(const QString &group, const QString &key, const QDBusVariant &value)
{
    if (group != appearance || key != colorSchemeKey)
        return;
    m_portalValue = unwrap(value.variant());
    setScheme(preferred());
    apply();
}

void ColorScheme::setScheme(Scheme scheme)
{
    if (m_scheme == scheme)
        return;
    m_scheme = scheme;
    emit changed();
}

void ColorScheme::apply()
{
    const bool platformDark = isDarkPalette(m_platformPalette);
    if (isDark() == platformDark) {
        QApplication::setPalette(m_platformPalette);
        return;
    }
    // The platform's palette is of the other scheme: Fusion draws either well.
    if (QApplication::style()->name().compare(QStringLiteral("fusion"), Qt::CaseInsensitive) != 0
        && !QApplication::style()->inherits("QProxyStyle"))
        QApplication::setStyle(QStyleFactory::create(QStringLiteral("Fusion")));
    QApplication::setPalette(isDark() ? darkPalette() : QApplication::style()->standardPalette());
}

bool ColorScheme::isDarkPalette(const QPalette &palette)
{
    return palette.color(QPalette::Window).lightness() < palette.color(QPalette::WindowText).lightness();
}

QPalette ColorScheme::darkPalette()
{
    // GNOME's Adwaita dark, in Qt's roles.
    const QColor window(0x30, 0x30, 0x30);
    const QColor base(0x24, 0x24, 0x24);
    const QColor text(0xf0, 0xf0, 0xf0);
    const QColor muted(0x9a, 0x9a, 0x9a);
    const QColor accent(0x35, 0x84, 0xe4);
    QPalette p;
    p.setColor(QPalette::Window, window);
    p.setColor(QPalette::WindowText, text);
    p.setColor(QPalette::Base, base);
    p.setColor(QPalette::AlternateBase, QColor(0x2c, 0x2c, 0x2c));
    p.setColor(QPalette::ToolTipBase, QColor(0x3a, 0x3a, 0x3a));
    p.setColor(QPalette::ToolTipText, text);
    p.setColor(QPalette::PlaceholderText, muted);
    p.setColor(QPalette::Text, text);
    p.setColor(QPalette::Button, QColor(0x3a, 0x3a, 0x3a));
    p.setColor(QPalette::ButtonText, text);
    p.setColor(QPalette::BrightText, QColor(0xff, 0x7b, 0x63));
    p.setColor(QPalette::Light, QColor(0x4a, 0x4a, 0x4a));
    p.setColor(QPalette::Midlight, QColor(0x3e, 0x3e, 0x3e));
    p.setColor(QPalette::Mid, QColor(0x28, 0x28, 0x28));
    p.setColor(QPalette::Dark, QColor(0x1e, 0x1e, 0x1e));
    p.setColor(QPalette::Shadow, QColor(0x10, 0x10, 0x10));
    p.setColor(QPalette::Highlight, accent);
    p.setColor(QPalette::HighlightedText, Qt::white);
    p.setColor(QPalette::Link, QColor(0x78, 0xae, 0xed));
    p.setColor(QPalette::LinkVisited, QColor(0xc0, 0x97, 0xf0));
    for (QPalette::ColorRole role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        p.setColor(QPalette::Disabled, role, QColor(0x7a, 0x7a, 0x7a));
    p.setColor(QPalette::Disabled, QPalette::Highlight, QColor(0x50, 0x50, 0x50));
    return p;
}

QColor ColorScheme::readableOn(const QColor &color, const QColor &background)
{
    const bool lightBackground = background.lightness() > 128;
    QColor result = color;
    if (lightBackground && color.lightness() > 110) {
        result = color.darker(100 + (color.lightness() - 60));
        result.setAlphaF(std::max<float>(color.alphaF(), 0.75f));
    } else if (!lightBackground && color.lightness() < 90) {
        result = color.lighter(250);
    }
    return result;
}
