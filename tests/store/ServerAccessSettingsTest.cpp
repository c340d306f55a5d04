#include "base/AppPaths.h"
#include "base/UserDefaults.h"
#include "store/ServerAccessSettings.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <sys/stat.h>

namespace {

class ServerAccessSettingsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        for (const QString &key : {ServerAccessSettings::allowedOriginsKey, ServerAccessSettings::tokenKey,
                                   ServerAccessSettings::requireTokenKey, ServerAccessSettings::tokenOnLoopbackKey,
                                   ServerAccessSettings::receiveTimeoutKey, ServerAccessSettings::maxConnectionsKey,
                                   ServerAccessSettings::maxBodyBytesKey, ServerAccessSettings::maxConnectionsPerPeerKey,
                                   ServerAccessSettings::maxBufferedBytesKey, ServerAccessSettings::sessionIdleTimeoutKey})
            UserDefaults::standard()->remove(key);
    }
};

}  // namespace

TEST_F(ServerAccessSettingsTest, SafeDefaultsAndWhoIsAskedForTheToken)
{
    // Loopback asks for the token as well: other users of this computer reach 127.0.0.1.
    const QVariantMap loopback = ServerAccessSettings::policy(false);
    EXPECT_EQ(loopback.value("bearerToken").toString(), ServerAccessSettings::token());
    EXPECT_EQ(ServerAccessSettings::policy(false, {}, false).value("bearerToken").toString(), "");
    EXPECT_EQ(loopback.value("receiveTimeout").toDouble(), 30.0);
    EXPECT_EQ(loopback.value("maxBodyBytes").toLongLong(), 32 << 20);
    EXPECT_EQ(loopback.value("maxConnections").toLongLong(), 0);
    EXPECT_EQ(loopback.value("maxConnectionsPerPeer").toLongLong(), 0);
    EXPECT_EQ(loopback.value("maxBufferedBytes").toLongLong(), qint64(256) << 20);
    EXPECT_EQ(loopback.value("sessionIdleTimeout").toDouble(), 1800.0);
    EXPECT_TRUE(loopback.value("allowedOrigins").toStringList().isEmpty());

    // The token is made once and kept; all interfaces ask for it unless told not to.
    const QString token = ServerAccessSettings::token();
    EXPECT_EQ(ServerAccessSettings::token(), token);
    EXPECT_EQ(ServerAccessSettings::policy(true).value("bearerToken").toString(), token);
    EXPECT_EQ(ServerAccessSettings::policy(true, {}, false).value("bearerToken").toString(), "");
    EXPECT_EQ(ServerAccessSettings::policy(false, {}, true).value("bearerToken").toString(), token);
    ServerAccessSettings::setRequireToken(false);
    EXPECT_FALSE(ServerAccessSettings::tokenRequired(true));
    ServerAccessSettings::setTokenOnLoopback(false);
    EXPECT_FALSE(ServerAccessSettings::tokenRequired(false));
    EXPECT_EQ(ServerAccessSettings::policy(false).value("bearerToken").toString(), "");
    ServerAccessSettings::setTokenOnLoopback(true);
    EXPECT_TRUE(ServerAccessSettings::tokenRequired(false));
    EXPECT_NE(ServerAccessSettings::renewToken(), token);

    // Stored limits and a run's extra origins.
    UserDefaults::standard()->setValue(ServerAccessSettings::receiveTimeoutKey, 0);
    UserDefaults::standard()->setValue(ServerAccessSettings::maxBodyBytesKey, "nonsense");
    UserDefaults::standard()->setValue(ServerAccessSettings::maxBufferedBytesKey, -5);
    UserDefaults::standard()->setValue(ServerAccessSettings::maxConnectionsPerPeerKey, 12);
    UserDefaults::standard()->setValue(ServerAccessSettings::sessionIdleTimeoutKey, 0);
    ServerAccessSettings::setAllowedOrigins({"https://a.example/", " ", "HTTPS://A.example", "http://b.example"});
    const QVariantMap stored = ServerAccessSettings::policy(false, {"http://c.example/"});
    EXPECT_EQ(stored.value("receiveTimeout").toDouble(), 0.0);
    EXPECT_EQ(stored.value("maxBodyBytes").toLongLong(), 32 << 20);
    EXPECT_EQ(stored.value("maxBufferedBytes").toLongLong(), qint64(256) << 20);
    EXPECT_EQ(stored.value("maxConnectionsPerPeer").toLongLong(), 12);
    EXPECT_EQ(stored.value("sessionIdleTimeout").toDouble(), 0.0);  // sessions that never expire
    UserDefaults::standard()->setValue(ServerAccessSettings::sessionIdleTimeoutKey, -1);
    EXPECT_EQ(ServerAccessSettings::policy(false).value("sessionIdleTimeout").toDouble(), 1800.0);
    EXPECT_EQ(stored.value("allowedOrigins").toStringList(),
              (QStringList{"https://a.example", "http://b.example", "http://c.example"}));
}

TEST_F(ServerAccessSettingsTest, OnlyOriginsAsBrowsersSendThemAreAccepted)
{
    for (const char *origin : {"https://app.example:3000", "http://localhost", "http://192.168.1.4:8080/", "*"})
        EXPECT_EQ(ServerAccessSettings::originProblem(QString::fromLatin1(origin)), std::nullopt) << origin;
    for (const char *origin : {"app.example", "ftp://files.example", "https://app.example/path", "https://app.example?q",
                               "https://user@app.example", "https://"})
        EXPECT_NE(ServerAccessSettings::originProblem(QString::fromLatin1(origin)), std::nullopt) << origin;
}

TEST_F(ServerAccessSettingsTest, TheFileThatHoldsTheTokenIsReadableByItsOwnerOnly)
{
    // What an earlier version left behind: a 0644 file in a 0755 folder, in a configuration
    // home of its own so that this process has not used it yet.
    QTemporaryDir home;
    ASSERT_TRUE(home.isValid());
    const QByteArray previous = qgetenv("XDG_CONFIG_HOME");
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(home.path()));
    const QString folder = AppPaths::configDir();
    const QString file = folder + QStringLiteral("/Kelvara.conf");
    ASSERT_TRUE(QDir().mkpath(folder));
    {
        QFile old(file);
        ASSERT_TRUE(old.open(QIODevice::WriteOnly));
        old.write("[General]\nmcp.server.token=old\n");
    }
    ::chmod(QFile::encodeName(file).constData(), 0644);
    ::chmod(QFile::encodeName(folder).constData(), 0755);

    EXPECT_EQ(ServerAccessSettings::token(), "old");
    struct stat info = {};
    ASSERT_EQ(::stat(QFile::encodeName(file).constData(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    ASSERT_EQ(::stat(QFile::encodeName(folder).constData(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0700u);

    // A renewed token is written by replacing the file, which keeps the permissions.
    const QString renewed = ServerAccessSettings::renewToken();
    UserDefaults::standard()->sync();
    ASSERT_EQ(::stat(QFile::encodeName(file).constData(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    QFile written(file);
    ASSERT_TRUE(written.open(QIODevice::ReadOnly));
    EXPECT_TRUE(written.readAll().contains(renewed.toLatin1()));
    qputenv("XDG_CONFIG_HOME", previous);
}
