#include "views/chat/MCPIntegrationSettingsView.h"

#include "chat/integrations/MCPIntegrationManager.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QSet>
#include <QTableWidget>
#include <QVBoxLayout>

namespace {

QLabel *hint(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setWordWrap(true);
    label->setStyleSheet(QStringLiteral("color: gray;"));
    return label;
}

}  // namespace

MCPIntegrationSettingsView::MCPIntegrationSettingsView(MCPIntegrationManager *manager, std::optional<MCPIntegration> existing,
                                                       QWidget *parent)
    : QDialog(parent), m_manager(manager), m_draft(existing.value_or(MCPIntegration())), m_isNew(!existing)
{
    setObjectName(QStringLiteral("mcpIntegration"));
    setWindowTitle(QStringLiteral("MCP Integration"));
    resize(540, 720);
    if (m_isNew)
        m_draft.isEnabled = true;

    m_kind = new QComboBox(this);
    for (MCPIntegration::Kind kind : {MCPIntegration::Kind::ephemeral, MCPIntegration::Kind::plugin})
        m_kind->addItem(MCPIntegration::kindLabel(kind), int(kind));
    m_note = hint(QString(), this);
    m_label = new QLineEdit(m_draft.label, this);
    m_enabled = new QCheckBox(QStringLiteral("Include in chat requests"), this);
    m_enabled->setChecked(m_draft.isEnabled);

    // A remote server: its address, token and headers.
    m_remote = new QWidget(this);
    m_url = new QLineEdit(m_draft.url, m_remote);
    m_token = new QLineEdit(m_draft.remoteToken, m_remote);
    m_token->setEchoMode(QLineEdit::Password);
    m_headers = new QTableWidget(0, 2, m_remote);
    m_headers->setHorizontalHeaderLabels({QStringLiteral("Header-Name"), QStringLiteral("value")});
    m_headers->horizontalHeader()->setStretchLastSection(true);
    for (auto it = m_draft.headers.begin(); it != m_draft.headers.end(); ++it) {
        const int row = m_headers->rowCount();
        m_headers->insertRow(row);
        m_headers->setItem(row, 0, new QTableWidgetItem(it.key()));
        m_headers->setItem(row, 1, new QTableWidgetItem(it.value()));
    }
    auto *addHeader = new QPushButton(QStringLiteral("Add Header"), m_remote);
    auto *remoteForm = new QFormLayout(m_remote);
    remoteForm->setContentsMargins(0, 0, 0, 0);
    remoteForm->addRow(QStringLiteral("Server URL"), m_url);
    remoteForm->addRow(QString(), hint(QStringLiteral("The SSE endpoint exposed by the remote MCP server."), m_remote));
    remoteForm->addRow(QStringLiteral("Authentication Token (optional)"), m_token);
    remoteForm->addRow(QString(), hint(QStringLiteral("Bearer token sent to the remote MCP server. Leave blank for unauthenticated servers."), m_remote));
    remoteForm->addRow(QStringLiteral("Custom Headers (optional)"), m_headers);
    remoteForm->addRow(QString(), addHeader);

    // The application's own tools: a switch each.
    m_internal = new QWidget(this);
    m_tools = new QListWidget(m_internal);
    m_allowed = new QLineEdit(m_internal);
    m_allowed->setPlaceholderText(QStringLiteral("tool_a, tool_b  (empty = all tools)"));
    auto *internalLayout = new QVBoxLayout(m_internal);
    internalLayout->setContentsMargins(0, 0, 0, 0);
    internalLayout->addWidget(new QLabel(QStringLiteral("<b>Tool Integration</b>"), m_internal));
    internalLayout->addWidget(hint(QStringLiteral("Enable or disable internal tools exposed by this application."), m_internal));
    internalLayout->addWidget(m_tools, 1);
    internalLayout->addWidget(hint(QStringLiteral("Toggle which internal tools are exposed to the model."), m_internal));
    internalLayout->addWidget(new QLabel(QStringLiteral("Allowed Tools (optional)"), m_internal));
    internalLayout->addWidget(m_allowed);
    internalLayout->addWidget(hint(QStringLiteral("Comma-separated list. Leave empty to allow all tools from this server."), m_internal));

    auto *form = new QFormLayout;
    form->addRow(QStringLiteral("Integration Type"), m_kind);
    form->addRow(QString(), m_note);
    form->addRow(QStringLiteral("Label"), m_label);
    form->addRow(QString(), hint(QStringLiteral("Used as the server_label in LM Studio API requests."), this));
    form->addRow(QString(), m_enabled);
    auto *buttons = new QDialogButtonBox(this);
    buttons->addButton(QStringLiteral("Cancel"), QDialogButtonBox::RejectRole);
    buttons->addButton(QStringLiteral("Save"), QDialogButtonBox::AcceptRole)->setDefault(true);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(new QLabel(m_isNew ? QStringLiteral("<b>Add MCP Integration</b>") : QStringLiteral("<b>Edit MCP Integration</b>"), this));
    layout->addLayout(form);
    layout->addWidget(m_remote, 1);
    layout->addWidget(m_internal, 1);
    layout->addWidget(buttons);

    connect(m_kind, &QComboBox::currentIndexChanged, this, [this] {
        m_draft.kind = MCPIntegration::Kind(m_kind->currentData().toInt());
        refreshKind();
    });
    connect(addHeader, &QPushButton::clicked, this, [this] { m_headers->insertRow(m_headers->rowCount()); });
    // The switches and "Allowed Tools" are one choice: each follows the other at once.
    connect(m_tools, &QListWidget::itemChanged, this, [this](QListWidgetItem *item) {
        if (m_refreshing)
            return;
        m_draft.setToolEnabled(item->text(), item->checkState() == Qt::Checked);
        refreshAllowed();
    });
    connect(m_allowed, &QLineEdit::textEdited, this, [this](const QString &text) {
        // Exactly the names listed are switched on; an empty field switches all on.
        QSet<QString> names;
        for (const QString &piece : text.split(u',')) {
            if (!piece.trimmed().isEmpty())
                names.insert(piece.trimmed());
        }
        for (const ToolIntegration &tool : QList<ToolIntegration>(m_draft.integratedTools))
            m_draft.setToolEnabled(tool.name(), names.isEmpty() || names.contains(tool.name()));
        refreshTools();
        refreshPlaceholder();
    });
    connect(buttons, &QDialogButtonBox::accepted, this, &MCPIntegrationSettingsView::save);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    m_kind->setCurrentIndex(m_kind->findData(int(m_draft.kind)));
    refreshKind();
}

void MCPIntegrationSettingsView::refreshKind()
{
    const bool internal = m_draft.kind == MCPIntegration::Kind::plugin;
    m_remote->setVisible(!internal);
    m_internal->setVisible(internal);
    m_note->setText(internal ? QString() : QStringLiteral("Connect to any remote MCP endpoint on-the-fly via a URL."));
    if (internal) {
        m_manager->syncTools(m_draft);
        refreshAllowed();
        refreshTools();
    }
}

void MCPIntegrationSettingsView::refreshAllowed()
{
    QStringList names;
    for (const ToolIntegration &tool : m_draft.integratedTools)
        if (tool.isEnabled)
            names.append(tool.name());
    // All of them reads as the empty field, as the hint says.
    m_allowed->setText(names.size() == m_draft.integratedTools.size() ? QString() : names.join(QStringLiteral(", ")));
    refreshPlaceholder();
}

void MCPIntegrationSettingsView::refreshPlaceholder()
{
    const bool noneOn = !m_draft.integratedTools.isEmpty() && m_draft.enabledTools().isEmpty();
    m_allowed->setPlaceholderText(noneOn ? QStringLiteral("No tool is switched on")
                                         : QStringLiteral("tool_a, tool_b  (empty = all tools)"));
}

void MCPIntegrationSettingsView::refreshTools()
{
    m_refreshing = true;
    m_tools->clear();
    for (const ToolIntegration &tool : m_draft.integratedTools) {
        auto *item = new QListWidgetItem(tool.name(), m_tools);
        item->setFlags(Qt::ItemIsEnabled | Qt::ItemIsUserCheckable);
        item->setCheckState(tool.isEnabled ? Qt::Checked : Qt::Unchecked);
        item->setToolTip(tool.config.value(QStringLiteral("description")).toString());
    }
    if (m_draft.integratedTools.isEmpty())
        new QListWidgetItem(QStringLiteral("No internal tools discovered."), m_tools);
    m_refreshing = false;
}

void MCPIntegrationSettingsView::save()
{
    m_draft.label = m_label->text().trimmed();
    m_draft.url = m_url->text().trimmed();
    m_draft.remoteToken = m_token->text();
    m_draft.isEnabled = m_enabled->isChecked();
    m_draft.headers.clear();
    for (int row = 0; row < m_headers->rowCount(); ++row) {
        const QTableWidgetItem *name = m_headers->item(row, 0);
        const QTableWidgetItem *value = m_headers->item(row, 1);
        if (name && !name->text().trimmed().isEmpty())
            m_draft.headers.insert(name->text().trimmed(), value ? value->text() : QString());
    }
    if (m_isNew)
        m_manager->add(m_draft);
    else
        m_manager->update(m_draft);
    accept();
}
