#include "app/SettingsManager.h"

#include "base/MainThread.h"
#include "base/UserDefaults.h"

#include <QPointer>

namespace {

QString keyName(UserDefaultsKeys key) { return UserDefaultsKeyNames::rawValue(key); }

// Work that must happen on the main thread runs at once there, else is queued there.
template <typename Fn>
void onMain(QObject *owner, Fn fn)
{
    if (MainThread::isCurrent()) {
        fn();
        return;
    }
    QPointer<QObject> weak(owner);
    MainThread::post([weak, fn = std::move(fn)] {
        if (weak)
            fn();
    });
}

}  // namespace

SettingsManager::SettingsManager(UserDefaultsKeys key, QObject *parent)
    : QObject(parent), m_key(keyName(key))
{
    load(UserDefaultsKeyNames::defaultSplitterPosition(key));
}

SettingsManager::SettingsManager(const QString &rawKey, double defaultPosition, QObject *parent)
    : QObject(parent), m_key(rawKey)
{
    load(defaultPosition);
}

void SettingsManager::load(double defaultPosition)
{
    const auto defaults = UserDefaults::standard();
    const double stored = defaults->value(m_key).toDouble();
    m_splitterPosition = stored > 0 ? stored : defaultPosition;
    m_windowState = readWindowState(*defaults);
}

void SettingsManager::saveSplitter(double position)
{
    onMain(this, [this, position] {
        auto defaults = UserDefaults::standard();
        defaults->setValue(m_key, position);
        defaults->sync();
        if (m_splitterPosition != position) {
            m_splitterPosition = position;
            emit splitterPositionChanged();
        }
    });
}

void SettingsManager::saveDestination(MenuDestination destination)
{
    onMain(this, [this, destination] {
        auto defaults = UserDefaults::standard();
        defaults->setValue(m_key, MenuDestinations::rawValue(destination));
        defaults->sync();
    });
}

void SettingsManager::saveWindowState(const WindowState &state)
{
    auto defaults = UserDefaults::standard();
    writeWindowState(*defaults, state);
    defaults->sync();
    if (!(m_windowState == state)) {
        m_windowState = state;
        emit windowStateChanged();
    }
}

MenuDestination SettingsManager::storedDestination() const
{
    const QString stored = UserDefaults::standard()->value(m_key).toString();
    return MenuDestinations::fromRawValue(stored).value_or(MenuDestination::menuAbout);
}

WindowState SettingsManager::readWindowState(QSettings &settings)
{
    WindowState state;
    if (!settings.contains(keyName(UserDefaultsKeys::windowOriginX)))
        return state;
    state.windowOriginX = settings.value(keyName(UserDefaultsKeys::windowOriginX)).toDouble();
    state.windowOriginY = settings.value(keyName(UserDefaultsKeys::windowOriginY)).toDouble();
    state.windowWidth = settings.value(keyName(UserDefaultsKeys::windowWidth)).toDouble();
    state.windowHeight = settings.value(keyName(UserDefaultsKeys::windowHeight)).toDouble();
    state.isZoomed = settings.value(keyName(UserDefaultsKeys::windowIsZoomed)).toBool();
    state.isMiniaturized = settings.value(keyName(UserDefaultsKeys::windowIsMiniaturized)).toBool();
    state.isFullscreen = settings.value(keyName(UserDefaultsKeys::windowIsFullscreen)).toBool();
    return state;
}

void SettingsManager::writeWindowState(QSettings &settings, const WindowState &state)
{
    settings.setValue(keyName(UserDefaultsKeys::windowOriginX), state.windowOriginX);
    settings.setValue(keyName(UserDefaultsKeys::windowOriginY), state.windowOriginY);
    settings.setValue(keyName(UserDefaultsKeys::windowWidth), state.windowWidth);
    settings.setValue(keyName(UserDefaultsKeys::windowHeight), state.windowHeight);
    settings.setValue(keyName(UserDefaultsKeys::windowIsZoomed), state.isZoomed);
    settings.setValue(keyName(UserDefaultsKeys::windowIsMiniaturized), state.isMiniaturized);
    settings.setValue(keyName(UserDefaultsKeys::windowIsFullscreen), state.isFullscreen);
}
