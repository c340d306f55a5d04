#pragma once

#include "app/plugins/PluginManagerController.h"
#include "base/UserDefaults.h"
#include "diagnostics/LogController.h"
#include "tests/support/TestSupport.h"
#include "tools/plugins/PluginController.h"
#include "tools/security/BookmarkController.h"

#include <QDir>
#include <QFile>
#include <QString>
#include <QUrl>
#include <memory>

namespace PluginTestSupport {

// A plug-in built for the tests: "reply_echo.so", "reply_echo.bundle", "fixture_good.so"...
inline QString fixture(const QString &name)
{
    return QStringLiteral(KELVARA_TEST_PLUGIN_DIR "/") + name;
}

inline QUrl fixtureUrl(const QString &name)
{
    return QUrl::fromLocalFile(fixture(name));
}

// A copy of a library plug-in under another name, in a fresh folder.
inline QString copyOf(const QString &name, const QString &asName)
{
    const QString path = TestSupport::makeTempDir(QStringLiteral("plugin")) + QLatin1Char('/') + asName;
    QFile::copy(fixture(name), path);
    return path;
}

// A registry over its own security scopes and log, with the Plugin Manager's controller
// over it, on user defaults emptied first. A second world() over the same defaults stands
// for the next start of the application.
struct World {
    std::unique_ptr<BookmarkController> security;
    std::unique_ptr<LogController> logger;
    std::unique_ptr<PluginController> controller;
    std::unique_ptr<PluginManagerController> screen;

    PluginController *operator->() const { return controller.get(); }
};

inline void clearDefaults()
{
    auto defaults = UserDefaults::standard();
    defaults->clear();
    defaults->sync();
}

inline World world()
{
    World w;
    w.security = std::make_unique<BookmarkController>();
    w.logger = std::make_unique<LogController>();
    w.controller = std::make_unique<PluginController>(w.security.get(), w.logger.get());
    w.screen = std::make_unique<PluginManagerController>(w.controller.get());
    return w;
}

// The alert the controller raised (queued on its thread), or "" after a short wait.
inline QString alertOf(PluginManagerController *controller, int timeoutMs = 2000)
{
    TestSupport::waitUntil([controller] { return controller->shouldShowAlert(); }, timeoutMs);
    if (!controller->shouldShowAlert())
        return QString();
    const QString message = controller->alertMessage();
    controller->setShouldShowAlert(false);
    return message;
}

// Adds and approves a plug-in file; gives the registered record.
inline std::optional<Plugin> registerFile(PluginManagerController *controller, const QString &path)
{
    controller->addPlugin(QUrl::fromLocalFile(path));
    if (!controller->pendingPlugin())
        return std::nullopt;
    const QUuid id = controller->pendingPlugin()->id;
    controller->approve();
    return controller->plugin(id);
}

}  // namespace PluginTestSupport
