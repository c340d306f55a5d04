#include "views/plugins/PluginSecurityInfoDialog.h"

#include "app/plugins/PluginManagerController.h"
#include "app/plugins/PluginTexts.h"
#include "views/plugins/PluginSheetParts.h"

#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

PluginSecurityInfoDialog::PluginSecurityInfoDialog(PluginManagerController *controller, const Plugin &plugin, QWidget *parent)
    : QDialog(parent), m_controller(controller)
{
    setObjectName(QStringLiteral("pluginSecurityInfoDialog"));
    setWindowTitle(PluginTexts::securityTitle);
    setMinimumWidth(520);

    auto *points = new QVBoxLayout;
    points->setSpacing(4);
    for (const QString &point : PluginTexts::securityPoints)
        points->addWidget(PluginSheetParts::wrapped(QStringLiteral("\u2022 ") + point, this));

    auto *details = new QGroupBox(PluginTexts::approvalInformation, this);
    details->setLayout(PluginSheetParts::descriptorLayout(plugin, details, true));

    m_done = new QPushButton(QStringLiteral("Done"), this);
    m_done->setObjectName(QStringLiteral("securityInfoDoneButton"));
    m_done->setDefault(true);
    auto *buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(m_done);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 18, 20, 16);
    layout->setSpacing(10);
    layout->addWidget(PluginSheetParts::heading(PluginTexts::securityTitle, this));
    layout->addWidget(PluginSheetParts::wrapped(PluginTexts::securitySubtitle, this));
    layout->addLayout(points);
    layout->addWidget(details);
    layout->addLayout(buttons);

    connect(m_done, &QPushButton::clicked, controller, &PluginManagerController::dismissSecurityInfo);
}

void PluginSecurityInfoDialog::reject()
{
    m_controller->dismissSecurityInfo();
}
