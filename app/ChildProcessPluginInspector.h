#pragma once

#include "tools/plugins/PluginInspector.h"

// Reads a plug-in's descriptor by running "kelvara plugin inspect" (this executable) as a
// short-lived child: the library is loaded there, and its constructors run there, before the
// user has said yes. The child prints the descriptor as one JSON line, or the loader's error.
class ChildProcessPluginInspector : public PluginInspector {
public:
    // executable: the kelvara program to run; timeoutMs: how long the child may take.
    explicit ChildProcessPluginInspector(QString executable, int timeoutMs = 15000);

    Result<ToolDescriptor> inspect(const QString &path, int pluginType) override;

    // The child's side: loads the plug-in in this process and prints what inspect reads.
    // The exit code is 0 with a descriptor, 1 without.
    static int runChild(const QString &path, int pluginType);

private:
    QString m_executable;
    int m_timeoutMs;
};
