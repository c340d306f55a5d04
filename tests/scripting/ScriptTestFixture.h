#pragma once

#include "diagnostics/LogController.h"
#include "tests/support/TestSupport.h"
#include "tools/plugins/PluginController.h"
#include "tools/router/JSONToolResult.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QJsonValue>
#include <QMutex>
#include <QUuid>

// Writes scripts into a fresh folder, runs them through callScript and keeps the log
// lines they cause.
class ScriptTestFixture : public ::testing::Test {
protected:
    struct Line {
        MCPLogMessageType level;
        int code;
        QString message;
    };

    void SetUp() override
    {
        folder = TestSupport::makeTempDir(QStringLiteral("scripts"));
        auto *log = LogController::shared();
        previousHandler = log->logHandler();
        log->setLogHandler([this](MCPLogMessageType level, int code, const QString &message) {
            QMutexLocker lock(&linesMutex);
            lines.append({level, code, message});
        });
    }

    void TearDown() override
    {
        // Lines queued from worker threads still name this fixture's handler: let them
        // arrive before the fixture goes.
        TestSupport::spin(30);
        LogController::shared()->setLogHandler(previousHandler);
    }

    QString writeScript(const QString &source, const QString &name = QStringLiteral("tool.js"), const QString &dir = QString())
    {
        const QString target = dir.isEmpty() ? folder : dir;
        QDir().mkpath(target);
        const QString path = target + QLatin1Char('/') + name;
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(source.toUtf8());
        return path;
    }

    JSONToolResult run(const QString &source, const QString &json = QStringLiteral("{}"), const QString &sid = QString())
    {
        return call(writeScript(source), json, sid);
    }

    JSONToolResult call(const QString &path, const QString &json = QStringLiteral("{}"), const QString &sid = QString())
    {
        return PluginController::shared()->callScript(sid.isEmpty() ? QUuid::createUuid().toString(QUuid::WithoutBraces) : sid,
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

    QList<Line> linesWithCode(int code)
    {
        TestSupport::spin(20);
        QMutexLocker lock(&linesMutex);
        QList<Line> found;
        for (const Line &line : std::as_const(lines)) {
            if (line.code == code)
                found.append(line);
        }
        return found;
    }

    QString folder;
    QMutex linesMutex;
    QList<Line> lines;
    LogController::LogHandler previousHandler;
};
