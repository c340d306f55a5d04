#pragma once

#include "workbench/ScriptFilePanels.h"

class QWidget;

// The save question and the save panel as Qt dialogs over the script screen.
class QtScriptFilePanels : public ScriptFilePanels {
public:
    explicit QtScriptFilePanels(QWidget *parent) : m_parent(parent) {}
    SaveAnswer askToSave(const QString &title, const QString &text) override;
    std::optional<QString> chooseSaveLocation(const QString &proposedName) override;

private:
    QWidget *m_parent;
};
