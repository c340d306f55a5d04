#pragma once

#include <QObject>

class ConfigClipboard;
class PromptConfigController;
class ResourceConfigController;
class StoreContext;
class ToolsConfigController;

// The one set of configuration controllers of the application (tools, resources, prompts),
// made by the composition root (ApplicationServices).
// Every window's screens are handed these, so that a record being added, the selection and
// the pending marks are the same in each window over the one store context.
//
// Main thread only.
class ConfigControllers : public QObject {
    Q_OBJECT

public:
    ConfigControllers(StoreContext *context, ConfigClipboard *clipboard, QObject *parent = nullptr);

    ToolsConfigController *tools() const { return m_tools; }
    ResourceConfigController *resources() const { return m_resources; }
    PromptConfigController *prompts() const { return m_prompts; }

private:
    ToolsConfigController *m_tools;
    ResourceConfigController *m_resources;
    PromptConfigController *m_prompts;
};
