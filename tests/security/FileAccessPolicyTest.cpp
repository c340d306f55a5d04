#include "base/AppPaths.h"
#include "base/UserDefaults.h"
#include "tests/support/TestSupport.h"
#include "tools/security/BookmarkController.h"
#include "tools/security/FileAccessPolicy.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace {

using P = FileAccessPolicy;
using Intent = FileAccessPolicy::Intent;

void touch(const QString &path)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write("x");
}

QString grantHint(const QString &folder)
{
    return QStringLiteral(" is not granted. Grant its folder in Settings ▸ Security Scopes, or run: kelvara access grant folder ")
           + folder;
}

class FileAccessPolicyTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        auto defaults = UserDefaults::standard();
        defaults->remove(BookmarkController::bookmarkDataKey);
        defaults->remove(BookmarkController::bookmarkInfoKey);
        defaults->sync();
        // Canonical, so that the texts below name the paths as the policy resolves them.
        root = QFileInfo(TestSupport::makeTempDir(QStringLiteral("policy"))).canonicalFilePath();
        scopes = std::make_unique<BookmarkController>();
    }

    P::Decision check(const QString &path, Intent intent, P::Caller caller = P::Caller::fileTool) const
    {
        return P::check(scopes.get(), path, intent, caller);
    }
    bool allowed(const QString &path, Intent intent, P::Caller caller = P::Caller::fileTool) const
    {
        return check(path, intent, caller).allowed();
    }

    QString root;
    std::unique_ptr<BookmarkController> scopes;
};

TEST_F(FileAccessPolicyTest, PathsResolveTheWayTheSystemFollowsThem)
{
    QDir().mkpath(root + "/a/deep");
    ASSERT_TRUE(QFile::link("a/deep", root + "/jump"));
    ASSERT_TRUE(QFile::link("/nonexistent-kelvara/target", root + "/dangling"));
    ASSERT_TRUE(QFile::link(root + "/loop2", root + "/loop1"));
    ASSERT_TRUE(QFile::link(root + "/loop1", root + "/loop2"));

    // ".." after a link climbs from where the link leads, not from the name.
    EXPECT_EQ(P::resolvedPath(root + "/jump/../file"), root + "/a/file");
    // What does not exist yet is taken as written, below its nearest existing parent...
    EXPECT_EQ(P::resolvedPath(root + "/new/sub/../x.txt"), root + "/new/x.txt");
    // ...until ".." climbs back to where things exist: links there are followed again.
    EXPECT_EQ(P::resolvedPath(root + "/nope/../jump/f"), root + "/a/deep/f");
    // A dangling link leads where a write would create its target.
    EXPECT_EQ(P::resolvedPath(root + "/dangling"), "/nonexistent-kelvara/target");
    // The link itself, unless a final "/" asks for where it leads.
    EXPECT_EQ(P::resolvedPath(root + "/jump", false), root + "/jump");
    EXPECT_EQ(P::resolvedPath(root + "/jump/", false), root + "/a/deep");
    // A loop ends the resolution rather than running for ever.
    EXPECT_TRUE(P::isWithin(P::resolvedPath(root + "/loop1/x"), root));

    const QString before = QDir::currentPath();
    ASSERT_TRUE(QDir::setCurrent(root + "/a"));
    EXPECT_EQ(P::resolvedPath("deep/../x"), root + "/a/x");
    QDir::setCurrent(before);

    EXPECT_TRUE(P::isWithin("/a/b/c", "/a/b"));
    EXPECT_TRUE(P::isWithin("/a/b", "/a/b"));
    EXPECT_FALSE(P::isWithin("/a/bc", "/a/b"));
    EXPECT_TRUE(P::isWithin("/x", "/"));
    EXPECT_EQ(P::grantCommand("/etc"), "kelvara access grant folder /etc");
    EXPECT_EQ(P::grantCommand("/tmp/it's mine"), "kelvara access grant folder '/tmp/it'\\''s mine'");
}

TEST_F(FileAccessPolicyTest, OnlyGrantedLocationsAreReachedAndTheDenialSaysHowToGrant)
{
    QDir().mkpath(root + "/granted/sub");
    touch(root + "/outside/secret");
    ASSERT_TRUE(scopes->addBookmark(QUrl::fromLocalFile(root + "/granted")));

    EXPECT_EQ(check("/etc/shadow", Intent::read).denial, "Access to '/etc/shadow'" + grantHint("/etc"));
    EXPECT_TRUE(allowed(root + "/granted", Intent::read));
    EXPECT_TRUE(allowed(root + "/granted/sub/new.txt", Intent::write));
    // A new folder outside names the nearest folder that exists.
    EXPECT_EQ(check(root + "/granted2/x", Intent::write).denial, "Access to '" + root + "/granted2/x'" + grantHint(root));

    // Out by ".." or by a link: judged by where the path leads, and the text says so.
    EXPECT_EQ(check(root + "/granted/../outside/secret", Intent::read).denial,
              "Access to '" + root + "/granted/../outside/secret' (which leads to '" + root + "/outside/secret')"
                  + grantHint(root + "/outside"));
    ASSERT_TRUE(QFile::link(root + "/outside/secret", root + "/granted/link"));
    EXPECT_FALSE(allowed(root + "/granted/link", Intent::read));
    EXPECT_FALSE(allowed(root + "/granted/link", Intent::write));
    // Removing the link removes only the link, which lies inside.
    EXPECT_TRUE(allowed(root + "/granted/link", Intent::remove));

    // A link from outside into the grant: what it leads to may be read and written, the link
    // itself may not be replaced.
    ASSERT_TRUE(QFile::link(root + "/granted/sub", root + "/outside/in"));
    EXPECT_TRUE(allowed(root + "/outside/in/f.txt", Intent::read));
    EXPECT_TRUE(allowed(root + "/outside/in/f.txt", Intent::write));
    EXPECT_FALSE(allowed(root + "/outside/in", Intent::write));

    // A single granted file: itself, not its neighbours (its backup among them).
    ASSERT_TRUE(scopes->addBookmark(QUrl::fromLocalFile(root + "/outside/secret")));
    EXPECT_TRUE(allowed(root + "/outside/secret", Intent::write));
    EXPECT_FALSE(allowed(root + "/outside/secret.backup", Intent::write));

    // A grant stored through a link covers where the link leads.
    ASSERT_TRUE(QFile::link(root + "/granted", root + "/alias"));
    scopes->removeBookmark(QUrl::fromLocalFile(root + "/granted"));
    EXPECT_FALSE(allowed(root + "/granted/sub/x", Intent::read));
    ASSERT_TRUE(scopes->addBookmark(QUrl::fromLocalFile(root + "/alias")));
    EXPECT_TRUE(allowed(root + "/granted/sub/x", Intent::read));

    EXPECT_FALSE(P::check(nullptr, root + "/granted/sub/x", Intent::read).allowed());
    EXPECT_EQ(check(QString(), Intent::read).denial, "'' is not a valid path.");
    EXPECT_FALSE(allowed(root + QChar(0) + "/x", Intent::read));
}

TEST_F(FileAccessPolicyTest, KelvarasOwnFilesAreNeverWrittenWhateverIsGranted)
{
    // The sandbox holds the XDG data and config folders: granting it grants their parent.
    const QString sandbox = QFileInfo(TestSupport::sandboxDir()).canonicalFilePath();
    ASSERT_TRUE(scopes->addBookmark(QUrl::fromLocalFile(sandbox)));
    const QString config = P::resolvedPath(AppPaths::configDir());
    const QString data = P::resolvedPath(AppPaths::dataDir());

    const P::Decision settings = check(config + "/Kelvara.conf", Intent::write);
    EXPECT_EQ(settings.denial, "'" + config + "/Kelvara.conf' lies in Kelvara's configuration ('" + config
                                   + "'), which the tools never change, whatever is granted.");
    for (const QString &path : {data + "/Kelvara.sqlite", data + "/Kelvara.sqlite-wal", data + "/Preferences/Tools/x.json",
                                data + "/Scripts/tool.js", UserDefaults::groupSuite()->fileName()}) {
        EXPECT_FALSE(allowed(path, Intent::write)) << path;
        EXPECT_FALSE(allowed(path, Intent::remove)) << path;
    }
    // Nor through a link planted in a granted folder.
    ASSERT_TRUE(QFile::link(config + "/Kelvara.conf", root + "/settings"));
    EXPECT_FALSE(allowed(root + "/settings", Intent::write));
    // Nor by removing a folder above them.
    const P::Decision above = check(sandbox + "/data", Intent::remove);
    EXPECT_EQ(above.denial, "'" + sandbox + "/data' holds Kelvara's store and exported configuration ('" + data
                                + "'), which the tools never change, whatever is granted.");
    EXPECT_FALSE(allowed(sandbox, Intent::remove));

    // The store and the bundle may be read where granted; the configuration, which holds the
    // server's token and the chat's keys, is not read.
    EXPECT_TRUE(allowed(data + "/Preferences/Tools/x.json", Intent::read));
    EXPECT_EQ(check(config + "/Kelvara.conf", Intent::read).denial,
              "'" + config + "/Kelvara.conf' lies in Kelvara's configuration ('" + config
                  + "'), which the tools never read or change.");
    EXPECT_FALSE(allowed(root + "/settings", Intent::read));

    // The resources (the SDK's bootstrap among them): never written; scripts read them
    // without a grant, the file tools do not.
    const QString bootstrap = AppPaths::toolSdkDir() + "/Scripts/bootstrap.js";
    EXPECT_FALSE(allowed(bootstrap, Intent::write, P::Caller::scriptHost));
    EXPECT_TRUE(allowed(bootstrap, Intent::read, P::Caller::scriptHost));
    EXPECT_FALSE(allowed(bootstrap, Intent::read, P::Caller::fileTool));
}

TEST_F(FileAccessPolicyTest, ScriptSourcesStayAsTheyAreAndScriptsStillLoadTheirModules)
{
    const QString scripts = root + "/bundle/Scripts";
    touch(scripts + "/tool.js");
    touch(scripts + "/lib/helper.js");
    touch(scripts + "/data.txt");
    P::addScriptSource(scripts + "/tool.js");
    ASSERT_TRUE(scopes->addBookmark(QUrl::fromLocalFile(root)));

    EXPECT_EQ(check(scripts + "/tool.js", Intent::write).denial,
              "'" + scripts + "/tool.js' may hold code of Kelvara's script tools (their sources lie in '" + scripts
                  + "'); the tools never change it, whatever is granted.");
    EXPECT_FALSE(allowed(scripts + "/lib/helper.js", Intent::write));
    EXPECT_FALSE(allowed(scripts + "/lib/new.JSON", Intent::write));
    EXPECT_FALSE(allowed(scripts + "/tool.js", Intent::remove));
    EXPECT_FALSE(allowed(scripts, Intent::remove));
    EXPECT_FALSE(allowed(root + "/bundle", Intent::remove));
    // What a script cannot load stays an ordinary granted file.
    EXPECT_TRUE(allowed(scripts + "/data.txt", Intent::write));
    EXPECT_TRUE(allowed(scripts + "/out", Intent::write));

    // Without any grant a script still loads the modules beside its source; the file tools
    // read nothing there, and scripts nothing else.
    scopes->removeBookmark(QUrl::fromLocalFile(root));
    EXPECT_TRUE(allowed(scripts + "/lib/helper.js", Intent::read, P::Caller::scriptHost));
    EXPECT_FALSE(allowed(scripts + "/data.txt", Intent::read, P::Caller::scriptHost));
    EXPECT_FALSE(allowed(scripts + "/lib/helper.js", Intent::read, P::Caller::fileTool));
}

TEST_F(FileAccessPolicyTest, ARegisteredPluginsCodeIsNeverWritten)
{
    // A library in a granted folder, and a bundle reached through a link.
    const QString plugins = root + "/plugins";
    touch(plugins + "/Stats.so");
    touch(plugins + "/Tool.bundle/Contents/Linux/Tool.so");
    touch(plugins + "/notes.txt");
    ASSERT_TRUE(QFile::link(plugins + "/Tool.bundle", root + "/alias.bundle"));
    P::addProtectedCode(plugins + "/Stats.so");
    P::addProtectedCode(root + "/alias.bundle");
    ASSERT_TRUE(scopes->addBookmark(QUrl::fromLocalFile(root)));

    EXPECT_EQ(check(plugins + "/Stats.so", Intent::write).denial,
              "'" + plugins + "/Stats.so' is code of a registered plug-in ('" + plugins +
                  "/Stats.so'); the tools never change it, whatever is granted.");
    EXPECT_FALSE(allowed(plugins + "/Tool.bundle/Contents/Linux/Tool.so", Intent::write));
    EXPECT_FALSE(allowed(root + "/alias.bundle/Contents/Linux/Tool.so", Intent::write));
    EXPECT_FALSE(allowed(plugins, Intent::remove));
    // Reading it, and writing beside it, stay as granted.
    EXPECT_TRUE(allowed(plugins + "/Stats.so", Intent::read));
    EXPECT_TRUE(allowed(plugins + "/notes.txt", Intent::write));
}

}  // namespace
