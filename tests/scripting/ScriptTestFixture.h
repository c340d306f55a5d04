#pragma once

#include "tests/support/LogLines.h"
#include "tools/scripting/PluginScripting.h"
#include "tools/security/BookmarkController.h"
#include "tools/results/JSONToolResult.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QJsonValue>
#include <QUuid>

// Writes scripts into a fresh folder, runs them through callScript and keeps the log
// lines they cause.
class ScriptTestFixture : public ::testing::Test {
protected:
    using Line = LogLines::Line;

    void SetUp() override
    {
        folder = TestSupport::makeTempDir(QStringLiteral("scripts"));
        // The host's file methods act only inside granted folders.
        BookmarkController::shared()->addBookmark(QUrl::fromLocalFile(folder));
    }

    QString writeScript(const QString &source, const QString &name = QStringLiteral("tool.js"), const QString &dir = QString())
    {
        return writeBytes(source.toUtf8(), name, dir);
    }

    // Any bytes, in the scripts' folder unless another is named.
    QString writeBytes(const QByteArray &bytes, const QString &name, const QString &dir = QString())
    {
        const QString target = dir.isEmpty() ? folder : dir;
        QDir().mkpath(target);
        const QString path = target + QLatin1Char('/') + name;
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(bytes);
        return path;
    }

    JSONToolResult run(const QString &source, const QString &json = QStringLiteral("{}"), const QString &sid = QString())
    {
        return call(writeScript(source), json, sid);
    }

    JSONToolResult call(const QString &path, const QString &json = QStringLiteral("{}"), const QString &sid = QString())
    {
        return PluginScripting::callScript(sid.isEmpty() ? QUuid::createUuid().toString(QUuid::WithoutBraces) : sid,
                                                      path, QStringLiteral("handler"), json);
    }

    static QJsonValue field(const JSONToolResult &result, const QString &key)
    {
        return result.structuredContent.value(key).toJson();
    }

    static QString text(const JSONToolResult &result)
    {
        return result.content.isEmpty() ? QString() : result.content.first().text;
    }

    QList<Line> linesWithCode(int code) { return log.withCode(code); }
    // Each line as "<level> <code> <message>", the level by its initial.
    static QStringList described(const QList<Line> &lines)
    {
        QStringList out;
        for (const Line &line : lines)
            out << QStringLiteral("CEWID").at(int(line.level)) + u' ' + QString::number(line.code) + u' ' + line.message;
        return out;
    }
    // The one line logged with that code, or a line with an empty message.
    Line onlyLine(int code)
    {
        const QList<Line> found = linesWithCode(code);
        EXPECT_EQ(found.size(), 1) << "code " << code;
        return found.size() == 1 ? found.first() : Line{MCPLogMessageType::Critical, code, QString()};
    }

    QString folder;
    LogLines log;
};
