#include "views/chat/MCPIntegrationListWindow.h"

#include "chat/integrations/MCPIntegrationManager.h"
#include "views/chat/MCPIntegrationSettingsView.h"

#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

MCPIntegrationListWindow::MCPIntegrationListWindow(MCPIntegrationManager *manager, QWidget *parent)
    : QDialog(parent), m_manager(manager)
{
    setObjectName(QStringLiteral("mcpIntegrations"));
    setWindowTitle(QStringLiteral("MCP Integrations"));
    resize(560, 420);
    m_list = new QListWidget(this);
    m_notice = new QLabel(this);
    m_notice->setObjectName(QStringLiteral("toolLimitNotice"));
    m_notice->setWordWrap(true);
    m_serveAll = new QPushButton(QStringLiteral("Serve All Tools"), this);
    m_serveAll->setToolTip(QStringLiteral("Switch on every internal tool, so the server serves all of them to every client."));
    auto *top = new QHBoxLayout;
    top->addWidget(m_notice, 1);
    top->addWidget(m_serveAll);
    auto *add = new QPushButton(QStringLiteral("Add MCP Server"), this);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    auto *bottom = new QHBoxLayout;
    bottom->addWidget(add);
    bottom->addStretch();
    bottom->addWidget(buttons);
    auto *layout = new QVBoxLayout(this);
    layout->addLayout(top);
    layout->addWidget(m_list, 1);
    layout->addLayout(bottom);
    connect(add, &QPushButton::clicked, this, [this] {
        MCPIntegrationSettingsView editor(m_manager, std::nullopt, this);
        if (editor.exec() == QDialog::Accepted)
            refresh();
    });
    connect(m_serveAll, &QPushButton::clicked, this, [this] {
        m_manager->serveAllTools();
        QTimer::singleShot(0, this, &MCPIntegrationListWindow::refresh);
    });
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    refresh();
}

void MCPIntegrationListWindow::refresh()
{
    const QString notice = m_manager->limitNotice();
    m_notice->setText(notice);
    m_notice->setVisible(!notice.isEmpty());
    m_serveAll->setVisible(!notice.isEmpty());
    m_list->clear();
    if (m_manager->servers().isEmpty()) {
        new QListWidgetItem(QStringLiteral("No MCP servers configured"), m_list);
        return;
    }
    for (const MCPIntegration &server : m_manager->servers()) {
        auto *item = new QListWidgetItem(m_list);
        auto *row = new QWidget(m_list);
        auto *layout = new QHBoxLayout(row);
        layout->setContentsMargins(6, 2, 6, 2);
        const QString label = server.label.isEmpty() ? MCPIntegration::kindLabel(server.kind) : server.label;
        layout->addWidget(new QLabel(QStringLiteral("<b>%1</b>  <span style='color:gray'>%2 · %3 tool(s) on</span>")
                                         .arg(label.toHtmlEscaped(), MCPIntegration::kindLabel(server.kind))
                                         .arg(server.enabledTools().size()),
                                     row),
                          1);
        auto *toggle = new QPushButton(server.isEnabled ? QStringLiteral("Disable") : QStringLiteral("Enable"), row);
        auto *edit = new QPushButton(QStringLiteral("Edit"), row);
        auto *remove = new QPushButton(QStringLiteral("Remove"), row);
        layout->addWidget(toggle);
        layout->addWidget(edit);
        layout->addWidget(remove);
        const QUuid id = server.id;
        // The list is rebuilt after the click has been handled, not inside it.
        connect(toggle, &QPushButton::clicked, this, [this, id] {
            m_manager->toggleEnabled(id);
            QTimer::singleShot(0, this, &MCPIntegrationListWindow::refresh);
        });
        connect(remove, &QPushButton::clicked, this, [this, id] {
            m_manager->remove(id);
            QTimer::singleShot(0, this, &MCPIntegrationListWindow::refresh);
        });
        connect(edit, &QPushButton::clicked, this, [this, server] {
            MCPIntegrationSettingsView editor(m_manager, server, this);
            if (editor.exec() == QDialog::Accepted)
                QTimer::singleShot(0, this, &MCPIntegrationListWindow::refresh);
        });
        item->setSizeHint(row->sizeHint());
        m_list->setItemWidget(item, row);
    }
}
