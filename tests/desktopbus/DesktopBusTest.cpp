#include "app/DesktopInstance.h"
#include "base/DesktopNotifier.h"
#include "chat/session/ChatViewModel.h"
#include "chat/session/XcodeBridgeService.h"
#include "tests/support/TestSupport.h"

#include <gtest/gtest.h>

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>

#include <future>

namespace {

// Stands in for the desktop's notification service and records what it is asked to show.
class FakeNotifications : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    struct Shown {
        uint replacesId;
        QString summary;
        QString body;
        QStringList actions;
    };
    QList<Shown> shown;

public slots:
    uint Notify(const QString &, uint replacesId, const QString &, const QString &summary, const QString &body,
                const QStringList &actions, const QVariantMap &, int)
    {
        shown.append({replacesId, summary, body, actions});
        return uint(100 + shown.size());
    }
};

// Each test runs in a process of its own, so the process-wide session connection is made
// after the private bus is up and its address is in the environment.
class DesktopBusTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        const QString daemon = QStandardPaths::findExecutable(QStringLiteral("dbus-daemon"));
        ASSERT_FALSE(daemon.isEmpty()) << "dbus-daemon is not installed";
        m_daemon.start(daemon, {QStringLiteral("--session"), QStringLiteral("--nofork"), QStringLiteral("--print-address=1")});
        ASSERT_TRUE(m_daemon.waitForStarted(5000));
        ASSERT_TRUE(TestSupport::waitUntil([&] { return m_daemon.canReadLine(); }, 5000));
        const QByteArray address = m_daemon.readLine().trimmed();
        qputenv("DBUS_SESSION_BUS_ADDRESS", address);
        m_service = std::make_unique<QDBusConnection>(QDBusConnection::connectToBus(QString::fromUtf8(address), QStringLiteral("service")));
        ASSERT_TRUE(m_service->isConnected());
        ASSERT_TRUE(QDBusConnection::sessionBus().isConnected());
    }

    void TearDown() override
    {
        m_service.reset();
        QDBusConnection::disconnectFromBus(QStringLiteral("service"));
        m_daemon.kill();
        m_daemon.waitForFinished(5000);
    }

    QDBusConnection &service() { return *m_service; }

private:
    QProcess m_daemon;
    std::unique_ptr<QDBusConnection> m_service;
};

TEST_F(DesktopBusTest, EachNotificationTakesThePlaceOfTheOneBefore)
{
    FakeNotifications notifications;
    ASSERT_TRUE(service().registerService(QStringLiteral("org.freedesktop.Notifications")));
    ASSERT_TRUE(service().registerObject(QStringLiteral("/org/freedesktop/Notifications"), &notifications,
                                         QDBusConnection::ExportAllSlots));

    DesktopNotifier notifier;
    notifier.notify(QStringLiteral("Kelvara"), QStringLiteral("MCP Server running"), QStringLiteral("View"));
    ASSERT_TRUE(TestSupport::waitUntil([&] { return notifications.shown.size() == 1; }));
    // The answer carries the id the next notification replaces; let it arrive.
    TestSupport::spin(300);
    notifier.notify(QStringLiteral("Kelvara"), QStringLiteral("MCP Server stopped"));
    ASSERT_TRUE(TestSupport::waitUntil([&] { return notifications.shown.size() == 2; }));

    EXPECT_EQ(notifications.shown[0].replacesId, 0u);
    EXPECT_EQ(notifications.shown[0].body, QStringLiteral("MCP Server running"));
    EXPECT_EQ(notifications.shown[0].actions, (QStringList{QStringLiteral("default"), QStringLiteral("View")}));
    EXPECT_EQ(notifications.shown[1].replacesId, 101u);
    EXPECT_EQ(notifications.shown[1].summary, QStringLiteral("Kelvara"));
    EXPECT_TRUE(notifications.shown[1].actions.isEmpty());
}

TEST_F(DesktopBusTest, TheFirstInstanceOwnsTheNameAndALaterStartHandsItsArgumentsOver)
{
    DesktopInstance first;
    ASSERT_EQ(first.claim(), DesktopInstance::Role::Primary);
    QSignalSpy activations(&first, &DesktopInstance::activationRequested);

    // A later start has a connection of its own: the name is taken, so it forwards.
    QDBusConnection later = QDBusConnection::connectToBus(qEnvironmentVariable("DBUS_SESSION_BUS_ADDRESS"),
                                                          QStringLiteral("later"));
    ASSERT_TRUE(later.isConnected());
    const auto reply = later.interface()->registerService(DesktopInstance::serviceName,
                                                          QDBusConnectionInterface::DontQueueService,
                                                          QDBusConnectionInterface::DontAllowReplacement);
    ASSERT_TRUE(reply.isValid());
    EXPECT_EQ(reply.value(), QDBusConnectionInterface::ServiceNotRegistered);

    QDBusConnection::disconnectFromBus(QStringLiteral("later"));

    // forward() blocks until the owner has taken the arguments; the owner answers on this
    // thread's event loop, so the call is made from another thread.
    const QStringList arguments{QStringLiteral("kelvara"), QStringLiteral("--new-window")};
    std::future<bool> forwarded = std::async(std::launch::async, [&] { return DesktopInstance::forward(arguments); });
    ASSERT_TRUE(TestSupport::waitUntil(
        [&] { return forwarded.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }, 8000));
    EXPECT_TRUE(forwarded.get());
    ASSERT_EQ(activations.size(), 1);
    EXPECT_EQ(activations.first().first().toStringList(), arguments);
}

}  // namespace

#include "DesktopBusTest.moc"

// The editor bridge end to end over the bus: the companion's "send" becomes a text attachment
// of the chat, and "send --wait" prints the answer the chat writes back.
TEST_F(DesktopBusTest, TheEditorBridgeCarriesRequestsAndAnswers)
{
    ChatViewModel chat;
    chat.attachments().clear();
    ASSERT_TRUE(chat.attachments().listenForBridgeRequests());
    QProcess send;
    send.start(QStringLiteral(KELVARA_EDITOR_BRIDGE), {QStringLiteral("send")});
    ASSERT_TRUE(send.waitForStarted(5000));
    send.write("int x;\r\n\n  \nint y;\n");
    send.closeWriteChannel();
    ASSERT_TRUE(send.waitForFinished(10000));
    EXPECT_EQ(send.exitCode(), 0) << send.readAllStandardError().toStdString();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return chat.attachments().items().size() == 1; }));
    EXPECT_EQ(chat.attachments().items().at(0).text, "int x;\r\n\n\nint y;");

    QProcess waiting;
    waiting.start(QStringLiteral(KELVARA_EDITOR_BRIDGE), {QStringLiteral("send"), QStringLiteral("--wait")});
    ASSERT_TRUE(waiting.waitForStarted(5000));
    waiting.write("What does it do?");
    waiting.closeWriteChannel();
    ASSERT_TRUE(TestSupport::waitUntil([&] { return chat.attachments().items().size() == 2; }, 10000));
    XcodeBridgeService::writeResponse(QStringLiteral("It declares two integers."));
    ASSERT_TRUE(waiting.waitForFinished(10000));
    EXPECT_EQ(waiting.exitCode(), 0) << waiting.readAllStandardError().toStdString();
    EXPECT_EQ(waiting.readAllStandardOutput(), "It declares two integers.\n");
}
