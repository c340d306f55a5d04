#pragma once

#include <QMetaType>
#include <QString>

// The work the splash shows while the application gets ready.
struct StartupJob {
    QString id = QStringLiteral("startup");
    QString title = QStringLiteral("Load application");
    QString message = QStringLiteral("Waiting...");
    double progress = 0;  // 0 to 1

    // The progress as the splash prints it: a whole percentage followed by "%".
    QString percentText() const;

    bool operator==(const StartupJob &) const = default;
};

Q_DECLARE_METATYPE(StartupJob)
