#pragma once

#include <QByteArray>
#include <QString>

// What an application gives for a resource read: its text, or its bytes for binary
// content, or why it could not be read (the client then gets an error, not content).
struct ResourceReading {
    QString text;
    QByteArray bytes;
    bool binary = false;
    QString error;

    ResourceReading() = default;
    // A text is the common case, so a provider may simply return one.
    ResourceReading(const QString &content) : text(content) {}

    static ResourceReading ofBytes(const QByteArray &data)
    {
        ResourceReading reading;
        reading.bytes = data;
        reading.binary = true;
        return reading;
    }
    static ResourceReading failure(const QString &reason)
    {
        ResourceReading reading;
        reading.error = reason;
        return reading;
    }
};
