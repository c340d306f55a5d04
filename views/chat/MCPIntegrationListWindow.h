#pragma once

#include <QDialog>

class MCPIntegrationManager;
class QLabel;
class QListWidget;
class QPushButton;
class QStackedWidget;

// The chat's MCP servers: each row with its kind and "Enable" or "Disable", "Edit" and
// "Remove"; "Add MCP Server" opens the editor. Above the list, when the integrations leave the
// running server fewer tools than the store has, a line says so with "Serve All Tools".
class MCPIntegrationListWindow : public QDialog {
    Q_OBJECT

public:
    explicit MCPIntegrationListWindow(MCPIntegrationManager *manager, QWidget *parent = nullptr);
    QListWidget *list() const { return m_list; }
    QLabel *limitNotice() const { return m_notice; }
    QPushButton *serveAllButton() const { return m_serveAll; }
    void refresh();

private:
    MCPIntegrationManager *m_manager;
    QListWidget *m_list;
    QLabel *m_notice;
    QPushButton *m_serveAll;
};
