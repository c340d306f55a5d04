#pragma once

#include <QLoggingCategory>
#include <QMutex>
#include <QMutexLocker>
#include <QStringList>

#include <cstring>

// Collects the lines written to the system log (category "kelvara.system") while alive.
class SystemLogCapture
{
public:
    SystemLogCapture()
    {
        {
            QMutexLocker locker(&mutex());
            lines().clear();
        }
        QLoggingCategory::setFilterRules(QStringLiteral("kelvara.system.info=true"));
        previous() = qInstallMessageHandler(&SystemLogCapture::handle);
    }
    ~SystemLogCapture()
    {
        qInstallMessageHandler(previous());
        QLoggingCategory::setFilterRules(QString());
    }

    QStringList captured() const
    {
        QMutexLocker locker(&mutex());
        return lines();
    }
    bool contains(const QString &line) const { return captured().contains(line); }

private:
    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &message)
    {
        if (context.category && std::strcmp(context.category, "kelvara.system") == 0) {
            QMutexLocker locker(&mutex());
            lines().append(message);
            return;
        }
        if (previous())
            previous()(type, context, message);
    }
    static QMutex &mutex()
    {
        static QMutex m;
        return m;
    }
    static QStringList &lines()
    {
        static QStringList l;
        return l;
    }
    static QtMessageHandler &previous()
    {
        static QtMessageHandler h = nullptr;
        return h;
    }
};
