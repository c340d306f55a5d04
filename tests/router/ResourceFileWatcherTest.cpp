#include "engine/MCPStdioTransport.h"
#include "engine/bridge/MCPServerBridge.h"
#include "tests/support/TestSupport.h"
#include "tools/router/ResourceFileWatcher.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QThread>
#include <QUrl>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <functional>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

// Runs the event loop until the condition holds or a generous while has passed.
bool spinUntil(const std::function<bool()> &condition)
{
    for (int i = 0; i < 2000 && !condition(); ++i) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        QThread::msleep(5);
    }
    return condition();
}

void overwrite(const QString &path, const QByteArray &data)
{
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(data);
}

}  // namespace

TEST(ResourceFileWatcherTest, ASubscribedFileThatChangesIsToldToItsSessionUntilUnsubscribed)
{
    const QString folder = TestSupport::makeTempDir(u"watched"_s);
    const QString path = folder + u"/notes.txt"_s;
    overwrite(path, "one");
    const QString uri = QUrl::fromLocalFile(path).toString();

    int in[2];
    int out[2];
    ASSERT_EQ(::pipe2(in, O_CLOEXEC), 0);
    ASSERT_EQ(::pipe2(out, O_CLOEXEC | O_NONBLOCK), 0);
    MCPServerBridge bridge;
    bridge.setTransport(std::make_unique<MCP::MCPStdioTransport>(in[0], out[1]));
    ResourceFileWatcher watcher(&bridge);
    bridge.registerResource({{"uri", uri}, {"name", "notes"}, {"type", "file"}, {"mimeType", "text/plain"}},
                            [](const QVariantMap &) { return ResourceReading(u"x"_s); });
    bridge.registerResource({{"uri", u"memo://live"_s}, {"name", "live"}, {"type", "memo"}, {"mimeType", "text/plain"}},
                            [](const QVariantMap &) { return ResourceReading(u"x"_s); });
    ASSERT_TRUE(bridge.startOnPort(0, false, nullptr));

    std::string output;
    auto send = [&](const std::string &line) {
        const std::string sent = line + "\n";
        ASSERT_EQ(::write(in[1], sent.data(), sent.size()), ssize_t(sent.size()));
    };
    // Spins until the output holds the text; what came before it is dropped.
    auto heard = [&](const std::string &text) {
        const bool found = spinUntil([&] {
            char chunk[4096];
            for (ssize_t n; (n = ::read(out[0], chunk, sizeof chunk)) > 0;)
                output.append(chunk, size_t(n));
            return output.find(text) != std::string::npos;
        });
        const std::string before = found ? output.substr(0, output.find(text)) : output;
        if (found)
            output.erase(0, output.find(text) + text.size());
        return found ? before : "<not heard: " + output + ">";
    };
    const std::string updated = R"("method":"notifications/resources/updated","params":{"uri": ")" + uri.toStdString() + "\"}";

    send(R"({"jsonrpc":"2.0","id":1,"method":"resources/subscribe","params":{"uri":")" + uri.toStdString() + "\"}}");
    send(R"({"jsonrpc":"2.0","id":2,"method":"resources/subscribe","params":{"uri":"memo://live"}})");
    heard("\"id\": 2");
    ASSERT_TRUE(spinUntil([&] { return watcher.watchedPaths() == QStringList{ResourceFileWatcher::pathOf(uri)}; }));

    // A while to spin: waits that let late events in, and no more.
    auto settle = [] {
        for (int i = 0; i < 40; ++i)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 5), QThread::msleep(5);
    };
    overwrite(path, "two");
    EXPECT_EQ(heard(updated).find("<not heard"), std::string::npos);
    // A write may be told twice (truncation, then the data): what it told goes before the ping's answer.
    settle();
    send(R"({"jsonrpc":"2.0","id":10,"method":"ping"})");
    heard("\"id\": 10");
    // A save by rename replaces the file; the new one is watched as well.
    overwrite(folder + u"/next.txt"_s, "three");
    ASSERT_TRUE(QFile::remove(path) && QFile::rename(folder + u"/next.txt"_s, path));
    EXPECT_EQ(heard(updated).find("<not heard"), std::string::npos);
    settle();
    send(R"({"jsonrpc":"2.0","id":11,"method":"ping"})");
    heard("\"id\": 11");
    overwrite(path, "after the rename");
    EXPECT_EQ(heard(updated).find("<not heard"), std::string::npos);
    // A resource of another kind says "changed" through the bridge.
    bridge.resourceChanged(u"memo://live"_s);
    EXPECT_EQ(heard(R"("params":{"uri": "memo://live"})").find("<not heard"), std::string::npos);

    // Unsubscribed: the watch ends and a change is not told; the next line is the ping's answer.
    send(R"({"jsonrpc":"2.0","id":3,"method":"resources/unsubscribe","params":{"uri":")" + uri.toStdString() + "\"}}");
    heard("\"id\": 3");
    ASSERT_TRUE(spinUntil([&] { return watcher.watchedPaths().isEmpty(); }));
    overwrite(path, "four");
    settle();  // a change that must not be told has its chance
    send(R"({"jsonrpc":"2.0","id":4,"method":"ping"})");
    EXPECT_EQ(heard("\"id\": 4").find("updated"), std::string::npos);

    bridge.stop();
    for (int fd : {in[0], in[1], out[0], out[1]})
        ::close(fd);
}

TEST(ResourceFileWatcherTest, PathsAreThoseTheResourcesAreReadFrom)
{
    EXPECT_EQ(ResourceFileWatcher::pathOf(u"file:///tmp/a/../b.txt"_s), u"/tmp/b.txt"_s);
    // Another scheme is read as a path below the working folder.
    EXPECT_EQ(ResourceFileWatcher::pathOf(u"test://static-text"_s), QDir::currentPath() + u"/test:/static-text"_s);
}
