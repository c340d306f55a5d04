#pragma once

#include "resources/ToolSDK/include/KelvaraToolSDK.h"

#include <QString>

// The application's copy of what a native plug-in says about itself. The plug-in's own
// structure is read once, at load time, and never touched again, so the plug-in may keep it
// in static storage.
class ToolDescriptor
{
public:
    ToolDescriptor() = default;
    // Copies every text of descriptor at once; a null text counts as "", and a null
    // descriptor gives a record with empty fields.
    ToolDescriptor(const KelvaraToolDescriptor *descriptor, int pluginType, const QString &fullPath);

    static ToolDescriptor toolDescriptorWithCDescriptor(const KelvaraToolDescriptor *descriptor, int pluginType,
                                                        const QString &fullPath);

    qint64 abiVersion = 0;
    qint64 toolVersion = 0;
    QString name;
    QString version;
    QString author;
    QString toolDescription;
    QString toolEntryPoint;
    QString toolIdentifier;
    QString capabilitiesJSON;
    // Added by the application: where the plug-in was loaded from and in which form.
    QString fullPathName;
    int pluginType = 0;

    bool operator==(const ToolDescriptor &) const = default;
};
