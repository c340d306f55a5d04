#include "views/app/ServerScreenshotStep.h"

#include "store/ServerConfig.h"
#include "app/config/ServerConfigController.h"
#include "tools/http/HttpClient.h"
#include "views/app/AppMainWindow.h"
#include "views/server/ServerConfigView.h"

#include <QPointer>
#include <QThreadPool>

#include <atomic>
#include <memory>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace ServerScreenshotStep {

namespace {

// A port below 32768 that nothing listens on, so that the tour never meets a running
// server of the user's.
int freePort()
{
    for (int port = 28080; port < 28180; ++port) {
        const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        addr.sin_port = htons(uint16_t(port));
        const bool free = ::bind(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) == 0;
        ::close(fd);
        if (free)
            return port;
    }
    return 0;
}

// Polls cond every 50 ms for at most tries times, then runs next.
void waitFor(ScreenshotTour *tour, std::function<bool()> cond, int tries, std::function<void()> next)
{
    if (cond() || tries <= 0) {
        next();
        return;
    }
    tour->after(50, [tour, cond, tries, next] { waitFor(tour, cond, tries - 1, next); });
}

}  // namespace

ScreenshotTour::Step step()
{
    return [](ScreenshotTour *tour, AppMainWindow *window, std::function<void()> done) {
        window->navigate(MenuDestination::menuServerConfig);
        auto *view = qobject_cast<ServerConfigView *>(window->currentScreen());
        if (!view) {
            done();
            return;
        }
        ServerConfigController *controller = view->controller();
        waitFor(tour, [controller] { return controller->serverConfig() != nullptr; }, 40, [=] {
            if (const int port = freePort())
                controller->setPort(QString::number(port));
            controller->save();
            controller->start();
            waitFor(tour, [controller] { return controller->isServerRunning(); }, 100, [=] {
                if (!controller->isServerRunning()) {
                    tour->grab(window, QStringLiteral("30-server-failed"));
                    done();
                    return;
                }
                // A client's first steps, sent from a worker: the server answers on its own threads.
                const QString url = QStringLiteral("http://127.0.0.1:%1/mcp").arg(controller->serverConfig()->port());
                auto sent = std::make_shared<std::atomic<bool>>(false);
                QThreadPool::globalInstance()->start([url, sent] {
                    const QString headers = QStringLiteral("{\"Content-Type\":\"application/json\"}");
                    const char *bodies[] = {
                        R"({"jsonrpc":"2.0","id":1,"method":"initialize","params":{"protocolVersion":"2025-06-18","capabilities":{},"clientInfo":{"name":"screenshot","version":"1.0"}}})",
                        R"({"jsonrpc":"2.0","method":"notifications/initialized"})",
                        R"({"jsonrpc":"2.0","id":2,"method":"tools/list"})",
                        R"({"jsonrpc":"2.0","id":3,"method":"ping"})",
                    };
                    for (const char *body : bodies)
                        HttpClient::shared().post(url, QString::fromUtf8(body), headers);
                    sent->store(true);
                });
                waitFor(tour, [sent] { return sent->load(); }, 100, [=] {
                    tour->after(400, [=] {
                        tour->grab(window, QStringLiteral("30-server-running"));
                        controller->stop();
                        tour->after(300, done);
                    });
                });
            });
        });
    };
}

}  // namespace ServerScreenshotStep
