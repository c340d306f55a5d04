#pragma once

#include <QString>
#include <functional>

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

}  // namespace TestSupport
