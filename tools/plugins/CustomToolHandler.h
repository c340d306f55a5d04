#pragma once

#include "base/AppError.h"
#include "resources/ToolSDK/include/KelvaraToolSDK.h"
#include "tools/plugins/ToolDescriptor.h"

#include <QString>
#include <optional>

// Loads one native tool plug-in and calls into it.
//
// Forms, by the ending of the name: a ".so" library (type 1), opened with dlopen and closed
// again by unloadPlugin or the destructor; a ".bundle" (2) or ".plugin" (3) directory that
// holds Contents/Linux/<name>.so, which stays loaded for the life of the process. Every
// symbol must be defined in the plug-in's own file: one that the loader finds only in a
// library the plug-in depends on counts as missing, so a plug-in can't hand us libc's puts
// as its entry.
//
// A handler holds no lock. Several handlers may be loaded over the same image and called
// from several threads at once; the plug-in itself must cope with that.
class CustomToolHandler
{
public:
    enum PluginType {
        Framework = 0,       // refused
        DynamicLibrary = 1,  // ".so"
        LoadableBundle = 2,  // ".bundle"
        LoadablePlugin = 3,  // ".plugin"
    };

    static QString errorDomain() { return QStringLiteral("CustomToolHandler"); }
    // The form told by a file name's ending: 1 ".so", 2 ".bundle", 3 ".plugin", else 0.
    static int pluginTypeForPath(const QString &path);

    CustomToolHandler() = default;
    ~CustomToolHandler();
    CustomToolHandler(const CustomToolHandler &) = delete;
    CustomToolHandler &operator=(const CustomToolHandler &) = delete;

    // Loads the plug-in at path; on failure the handler is left empty. error, when given,
    // receives the cause where there is one: a library with another abiVersion fails
    // without a cause.
    bool loadToolAtPath(const QString &path, int pluginType, AppError *error = nullptr);
    // Closes the library handle, if any. A bundle stays loaded and usable.
    void unloadPlugin();
    std::optional<ToolDescriptor> getToolDescriptor() const;
    // Calls the entry function. Gives nothing when there is no entry, when the plug-in
    // stored no result, or when the result is not valid UTF-8. The result buffer is
    // released with free().
    std::optional<QString> callToolWithSID(const QString &sid, const QString &toolName, const QString &json) const;
    std::optional<QString> invokeSID(const QString &sid, const QString &tool, const QString &json) const;

    void *pluginHandle() const { return m_pluginHandle; }
    KelvaraToolEntryFunc toolEntryFunc() const { return m_toolEntryFunc; }
    const std::optional<ToolDescriptor> &toolDescriptor() const { return m_toolDescriptor; }

private:
    bool loadLibrary(const QString &path, AppError *error);
    bool loadBundle(const QString &path, AppError *error);
    bool negotiateToolABI(AppError *error, int pluginType, const QString &fullPath);
    bool resolveToolEntry(AppError *error);
    void reset();

    void *m_pluginHandle = nullptr;
    QString m_imageFile;  // the library file behind m_pluginHandle
    KelvaraToolEntryFunc m_toolEntryFunc = nullptr;
    std::optional<ToolDescriptor> m_toolDescriptor;
};
