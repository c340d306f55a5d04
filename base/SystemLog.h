#pragma once

#include <QLoggingCategory>
#include <QString>

// The platform's system log: diagnostic lines that do not belong in the application's log
// view (loader traces, bridge warnings). They go to the "kelvara.system" logging category,
// which is silent unless enabled, e.g. QT_LOGGING_RULES="kelvara.system=true".
Q_DECLARE_LOGGING_CATEGORY(lcSystemLog)

namespace SystemLog {
void write(const QString &line);
}
