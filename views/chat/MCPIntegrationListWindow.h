#pragma once

#include <QDialog>

class MCPIntegrationManager;
class QListWidget;
class QStackedWidget;

// The chat's MCP servers: each row with its kind and "Enable" or "Disable", "Edit" and
// "Remove"; "Add MCP Server" opens the editor.
class MCPIntegrationListWindow : public QDialog {
    Q_OBJECT

public:
    explicit MCPIntegrationListWindow(MCPIntegrationManager *manager, QWidget *parent = nullptr);
    QListWidget *list() const { return m_list; }
    void refresh();

private:
    MCPIntegrationManager *m_manager;
    QListWidget *m_list;
};
