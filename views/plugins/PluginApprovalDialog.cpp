#include "views/plugins/PluginApprovalDialog.h"

#include "app/plugins/PluginManagerController.h"
#include "app/plugins/PluginTexts.h"
#include "views/plugins/PluginSheetParts.h"

#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

PluginApprovalDialog::PluginApprovalDialog(PluginManagerController *controller, const Plugin &plugin, QWidget *parent)
    : QDialog(parent), m_controller(controller)
{
    setObjectName(QStringLiteral("pluginApprovalDialog"));
    setWindowTitle(PluginTexts::approvalInformation);
    setMinimumWidth(520);

    auto *information = new QGroupBox(PluginTexts::approvalInformation, this);
    information->setLayout(PluginSheetParts::descriptorLayout(plugin, information));

    auto *warning = PluginSheetParts::wrapped(PluginTexts::inProcessWarning, this);
    warning->setObjectName(QStringLiteral("pluginWarning"));

    m_deny = new QPushButton(PluginTexts::denyButton, this);
    m_deny->setObjectName(QStringLiteral("denyPluginButton"));
    m_deny->setAutoDefault(false);
    // "&" would mark a mnemonic; doubled it shows as itself.
    m_approve = new QPushButton(QString(PluginTexts::approveButton).replace(QLatin1Char('&'), QStringLiteral("&&")), this);
    m_approve->setObjectName(QStringLiteral("approvePluginButton"));
    m_approve->setAutoDefault(false);
    auto *buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(m_deny);
    buttons->addWidget(m_approve);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 18, 20, 16);
    layout->setSpacing(12);
    layout->addWidget(PluginSheetParts::heading(PluginTexts::approvalTitle, this));
    layout->addWidget(information);
    layout->addWidget(warning);
    layout->addLayout(buttons);

    // The answers go to the controller; its flag decides when the sheet goes.
    connect(m_approve, &QPushButton::clicked, controller, &PluginManagerController::approve);
    connect(m_deny, &QPushButton::clicked, controller, &PluginManagerController::deny);
}

void PluginApprovalDialog::reject()
{
    m_controller->deny();
}
