#include "tools/plugins/ToolDescriptor.h"

namespace {
QString copyText(const char *text)
{
    return text ? QString::fromUtf8(text) : QString();
}
}  // namespace

ToolDescriptor::ToolDescriptor(const KelvaraToolDescriptor *descriptor, int pluginType, const QString &fullPath)
{
    if (!descriptor)
        return;
    fullPathName = fullPath;
    this->pluginType = pluginType;
    abiVersion = descriptor->abiVersion;
    toolVersion = descriptor->toolVersion;
    name = copyText(descriptor->name);
    version = copyText(descriptor->version);
    author = copyText(descriptor->author);
    toolDescription = copyText(descriptor->toolDescription);
    toolEntryPoint = copyText(descriptor->toolEntryPoint);
    toolIdentifier = copyText(descriptor->toolIdentifier);
    capabilitiesJSON = copyText(descriptor->capabilitiesJSON);
}

ToolDescriptor ToolDescriptor::toolDescriptorWithCDescriptor(const KelvaraToolDescriptor *descriptor, int pluginType,
                                                             const QString &fullPath)
{
    return ToolDescriptor(descriptor, pluginType, fullPath);
}
