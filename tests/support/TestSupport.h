#pragma once

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QString>
#include <functional>
#include <ostream>

namespace TestSupport {

// Runs the Qt event loop until pred holds or timeoutMs passes; tells whether pred held.
bool waitUntil(const std::function<bool()> &pred, int timeoutMs = 5000);
// Runs the event loop for about ms milliseconds.
void spin(int ms);
// The temporary folder this test process runs in (its XDG folders are inside it).
QString sandboxDir();
// A new empty folder inside the sandbox.
QString makeTempDir(const QString &prefix = QStringLiteral("dir"));
// A free TCP port on 127.0.0.1.
int freePort();
// A free TCP port on 127.0.0.1 below 32768, for the server row's signed 16-bit port.
int freeLowPort();

}  // namespace TestSupport

// Qt strings and JSON in failure messages: printed values and EXPECT_...() << text.
inline void PrintTo(const QString &text, std::ostream *out)
{
    *out << '"' << text.toStdString() << '"';
}
inline std::ostream &operator<<(std::ostream &out, const QString &text)
{
    return out << text.toStdString();
}
inline void PrintTo(const QJsonObject &object, std::ostream *out)
{
    *out << QJsonDocument(object).toJson(QJsonDocument::Compact).toStdString();
}
inline void PrintTo(const QJsonArray &array, std::ostream *out)
{
    *out << QJsonDocument(array).toJson(QJsonDocument::Compact).toStdString();
}
