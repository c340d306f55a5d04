#pragma once

#include <QDBusVariant>
#include <QObject>
#include <QPalette>

// Light or dark, as the desktop prefers: the freedesktop appearance setting (read from the
// settings portal and followed while Kelvara runs), else a dark GTK theme, else the palette
// the platform gave. KELVARA_COLOR_SCHEME=light|dark overrides it (screenshots, tests).
// Where the desktop prefers dark and the platform's palette is light, the window takes a
// dark palette of its own. Main thread.
class ColorScheme : public QObject {
    Q_OBJECT

public:
    enum class Scheme { light, dark };

    static ColorScheme *shared();

    Scheme scheme() const { return m_scheme; }
    bool isDark() const { return m_scheme == Scheme::dark; }
    // Sets the application's palette for the scheme now preferred, and again on each change.
    void apply();

    // The palette Kelvara uses in the dark where the platform offers none.
    static QPalette darkPalette();
    // Whether a palette reads as dark (light text on a dark window).
    static bool isDarkPalette(const QPalette &palette);
    // A text colour that reads on the background: a light colour meant for a dark editor is
    // taken darker on a light one, and the other way round.
    static QColor readableOn(const QColor &color, const QColor &background);

signals:
    void changed();

private slots:
    void portalSettingChanged(const QString &group, const QString &key, const QDBusVariant &value);

private:
    ColorScheme();
    Scheme preferred() const;
    void setScheme(Scheme scheme);

    Scheme m_scheme = Scheme::light;
    QPalette m_platformPalette;
    int m_portalValue = -1;  // 0 no preference, 1 dark, 2 light; -1 not known
};
