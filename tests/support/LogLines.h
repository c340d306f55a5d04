#pragma once

#include "diagnostics/LogController.h"
#include "tests/support/TestSupport.h"

#include <QMutex>

// Collects what a log controller hands its handler while alive, from any thread, and puts
// the previous handler back at the end. The look-ups first let queued lines arrive.
class LogLines
{
public:
    struct Line {
        MCPLogMessageType level;
        int code;
        QString message;
    };

    explicit LogLines(LogController *log = LogController::shared()) : m_log(log), m_previous(log->logHandler())
    {
        log->setLogHandler([this](MCPLogMessageType level, int code, const QString &message) {
            QMutexLocker lock(&m_mutex);
            m_lines.append({level, code, message});
        });
    }
    ~LogLines()
    {
        // Lines queued from worker threads still name this handler: let them arrive first.
        TestSupport::spin(30);
        m_log->setLogHandler(m_previous);
    }
    LogLines(const LogLines &) = delete;
    LogLines &operator=(const LogLines &) = delete;

    // The handler that was there before, which writes to the log itself.
    const LogController::LogHandler &previous() const { return m_previous; }

    QList<Line> all()
    {
        TestSupport::spin(20);
        QMutexLocker lock(&m_mutex);
        return m_lines;
    }
    QList<Line> withCode(int code)
    {
        QList<Line> found;
        for (const Line &line : all())
            if (line.code == code)
                found.append(line);
        return found;
    }
    bool contains(const QString &message)
    {
        for (const Line &line : all())
            if (line.message == message)
                return true;
        return false;
    }
    bool contains(int code, const QString &message)
    {
        for (const Line &line : all())
            if (line.code == code && line.message == message)
                return true;
        return false;
    }
    bool contains(MCPLogMessageType level, int code, const QString &message)
    {
        for (const Line &line : all())
            if (line.level == level && line.code == code && line.message == message)
                return true;
        return false;
    }

private:
    LogController *m_log;
    LogController::LogHandler m_previous;
    QMutex m_mutex;
    QList<Line> m_lines;
};
