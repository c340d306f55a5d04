#pragma once

#include <QString>

// An error value with a domain, a code and a readable description: what the application
// layer hands around where a caller may show the failure to the user.
struct AppError {
    QString domain;
    int code = 0;
    QString description;

    QString toString() const
    {
        return QStringLiteral("Error Domain=%1 Code=%2 \"%3\"").arg(domain).arg(code).arg(description);
    }
};
