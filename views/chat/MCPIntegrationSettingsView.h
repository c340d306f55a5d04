#pragma once

#include "chat/integrations/MCPIntegration.h"

#include <QDialog>

class MCPIntegrationManager;
class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QListWidget;
class QTableWidget;
class QWidget;

// "MCP Integration": one integration in the editing, a remote server by URL with its token
// and headers, or the application's own tools with a switch each. "Save" adds it to the
// manager (or updates it), which stores the list and applies it to the running server.
class MCPIntegrationSettingsView : public QDialog {
    Q_OBJECT

public:
    // existing: the integration to edit; nothing for a new one.
    MCPIntegrationSettingsView(MCPIntegrationManager *manager, std::optional<MCPIntegration> existing,
                               QWidget *parent = nullptr);

    const MCPIntegration &draft() const { return m_draft; }
    QComboBox *kindField() const { return m_kind; }
    QLineEdit *labelField() const { return m_label; }
    QLineEdit *urlField() const { return m_url; }
    QLineEdit *allowedToolsField() const { return m_allowed; }
    QListWidget *toolList() const { return m_tools; }
    void save();

private:
    void refreshKind();
    void refreshTools();
    void refreshAllowed();
    void refreshPlaceholder();

    MCPIntegrationManager *m_manager;
    MCPIntegration m_draft;
    bool m_isNew;
    QComboBox *m_kind;
    QLineEdit *m_label;
    QLineEdit *m_url;
    QLineEdit *m_token;
    QTableWidget *m_headers;
    QCheckBox *m_enabled;
    QWidget *m_remote;
    QWidget *m_internal;
    QListWidget *m_tools;
    QLineEdit *m_allowed;
    QLabel *m_note;
    bool m_refreshing = false;
};
