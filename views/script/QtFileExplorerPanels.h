#pragma once

#include "workbench/FileExplorerPanels.h"

class QWidget;

// The explorer's questions as Qt dialogs over the script screen.
class QtFileExplorerPanels : public FileExplorerPanels {
public:
    explicit QtFileExplorerPanels(QWidget *parent) : m_parent(parent) {}
    std::optional<QString> chooseDirectory() override;
    std::optional<QString> chooseNewFile(const QString &folder, const QString &proposedName) override;
    std::optional<QString> askNewName(const QString &name) override;
    bool confirmDelete(const QString &name) override;
    std::optional<QString> chooseCopyTarget(const QString &folder, const QString &message, const QString &proposedName) override;
    std::optional<QString> chooseMoveFolder(const QString &folder, const QString &message) override;
    void alert(const QString &title, const QString &text) override;

private:
    QWidget *m_parent;
};
