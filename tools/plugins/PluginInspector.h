#pragma once

#include "base/Result.h"
#include "tools/plugins/ToolDescriptor.h"

#include <QString>
#include <optional>

// Reads a plug-in's descriptor before the user has agreed to run its code. Loading a library
// runs its constructors, so an inspector that loads it somewhere else (a short-lived child
// process) keeps them out of Kelvara's process until the user approves. With no inspector set,
// the library is loaded in this process, as it always was.
//
// inspect may be called from any thread; it blocks until the descriptor is read.
class PluginInspector {
public:
    virtual ~PluginInspector() = default;
    // The descriptor, or the loader's own words (empty for another interface version).
    virtual Result<ToolDescriptor> inspect(const QString &path, int pluginType) = 0;

    // The inspector of the process (owned by its caller), or nullptr.
    static PluginInspector *shared();
    static void setShared(PluginInspector *inspector);

    // The descriptor as the line a child process prints, and back.
    static QByteArray toJson(const ToolDescriptor &descriptor);
    static std::optional<ToolDescriptor> fromJson(const QByteArray &json);
};
