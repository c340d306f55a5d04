#include "views/plugins/PluginEnableWizard.h"

#include "app/plugins/PluginManagerController.h"
#include "app/plugins/PluginTexts.h"
#include "views/plugins/PluginSheetParts.h"

#include <QFontDatabase>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

PluginEnableWizard::PluginEnableWizard(PluginManagerController *controller, const Plugin &plugin, QWidget *parent)
    : QDialog(parent), m_controller(controller)
{
    setObjectName(QStringLiteral("pluginEnableWizard"));
    setWindowTitle(PluginTexts::wizardTitle);
    setMinimumWidth(520);

    auto *which = new QLabel(QStringLiteral("Plugin: <b>%1</b>").arg(plugin.displayName().toHtmlEscaped()), this);
    which->setObjectName(QStringLiteral("wizardPluginName"));
    auto *registered = new QLabel(plugin.path, this);
    registered->setObjectName(QStringLiteral("wizardPluginPath"));
    registered->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    registered->setTextInteractionFlags(Qt::TextSelectableByMouse);

    auto *model = new QFrame(this);
    model->setObjectName(QStringLiteral("wizardSecurityModel"));
    model->setFrameShape(QFrame::StyledPanel);
    auto *modelLayout = new QVBoxLayout(model);
    modelLayout->addWidget(PluginSheetParts::heading(PluginTexts::wizardModelTitle, model, 1.0));
    for (const QString &line : PluginTexts::wizardModelLines)
        modelLayout->addWidget(PluginSheetParts::wrapped(line, model));

    auto *warning = PluginSheetParts::wrapped(PluginTexts::inProcessWarning, this);
    warning->setObjectName(QStringLiteral("pluginWarning"));

    m_cancel = new QPushButton(QStringLiteral("Cancel"), this);
    m_cancel->setObjectName(QStringLiteral("cancelEnableButton"));
    m_cancel->setAutoDefault(false);
    m_choose = new QPushButton(PluginTexts::wizardChooseButton, this);
    m_choose->setObjectName(QStringLiteral("choosePluginFileButton"));
    m_choose->setDefault(true);
    auto *buttons = new QHBoxLayout;
    buttons->addStretch();
    buttons->addWidget(m_cancel);
    buttons->addWidget(m_choose);

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 18, 20, 16);
    layout->setSpacing(10);
    layout->addWidget(PluginSheetParts::heading(PluginTexts::wizardHeading, this));
    layout->addWidget(which);
    layout->addWidget(registered);
    layout->addWidget(model);
    layout->addWidget(warning);
    layout->addLayout(buttons);

    connect(m_choose, &QPushButton::clicked, controller, &PluginManagerController::chooseFileAndEnable);
    connect(m_cancel, &QPushButton::clicked, controller, &PluginManagerController::dismissEnableWizard);
}

void PluginEnableWizard::reject()
{
    m_controller->dismissEnableWizard();
}
