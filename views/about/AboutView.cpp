#include "views/about/AboutView.h"

#include "views/common/LayoutMetrics.h"
#include "base/AppPaths.h"
#include "app/MenuCommandDispatcher.h"
#include "app/security/BookmarkSetupViewModel.h"
#include "views/about/ToolSDKInstallWizard.h"
#include "views/common/AppIcons.h"
#include "views/settings/BookmarkSetupView.h"

#include <QDialog>
#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

AboutView::AboutView(QWidget *parent) : DestinationScreen(parent)
{
    setObjectName(QStringLiteral("aboutView"));

    auto *icon = new QLabel(this);
    icon->setPixmap(AppIcons::applicationIcon().pixmap(QSize(112, 112)));
    icon->setAlignment(Qt::AlignCenter);

    auto *name = new QLabel(AppPaths::displayName(), this);
    name->setObjectName(QStringLiteral("aboutName"));
    QFont nameFont = name->font();
    nameFont.setPointSizeF(nameFont.pointSizeF() * 2.2);
    nameFont.setBold(true);
    name->setFont(nameFont);
    name->setAlignment(Qt::AlignCenter);

    auto *version = new QLabel(QStringLiteral("Version ") + AppPaths::version(), this);
    version->setObjectName(QStringLiteral("aboutVersion"));
    version->setAlignment(Qt::AlignCenter);
    version->setTextInteractionFlags(Qt::TextSelectableByMouse);

    auto *description = new QLabel(descriptionText(), this);
    description->setObjectName(QStringLiteral("aboutDescription"));
    description->setAlignment(Qt::AlignCenter);
    description->setWordWrap(true);
    description->setFixedWidth(520);
    description->setMinimumHeight(description->heightForWidth(520));

    auto *copyright = new QLabel(copyrightText(), this);
    copyright->setObjectName(QStringLiteral("aboutCopyright"));
    copyright->setAlignment(Qt::AlignCenter);
    copyright->setEnabled(false);

    m_scopes = new QPushButton(QStringLiteral("Security Scopes..."), this);
    m_scopes->setObjectName(QStringLiteral("securityScopesButton"));
    m_scopes->setToolTip(QStringLiteral("Choose the files and folders Kelvara's tools may use"));
    m_import = new QPushButton(QStringLiteral("Import configuration"), this);
    m_import->setObjectName(QStringLiteral("importConfigurationButton"));
    m_import->setToolTip(QStringLiteral("Add the tools, resources and prompts of the configuration that comes with Kelvara"));
    m_installSdk = new QPushButton(QStringLiteral("Install ToolSDK..."), this);
    m_installSdk->setObjectName(QStringLiteral("installToolSdkButton"));
    m_installSdk->setToolTip(QStringLiteral("Copy the kit for writing your own tools to a folder of your choice"));
    m_privacy = new QPushButton(QStringLiteral("Privacy"), this);
    m_privacy->setObjectName(QStringLiteral("privacyButton"));

    auto *buttons = new QHBoxLayout;
    buttons->setSpacing(10);
    buttons->addStretch();
    buttons->addWidget(m_scopes);
    buttons->addWidget(m_import);
    buttons->addWidget(m_installSdk);
    buttons->addWidget(m_privacy);
    buttons->addStretch();

    auto *layout = new QVBoxLayout(this);
    LayoutMetrics::applyToScreen(layout);
    layout->addStretch(3);
    layout->addWidget(icon, 0, Qt::AlignHCenter);
    layout->addSpacing(10);
    layout->addWidget(name, 0, Qt::AlignHCenter);
    layout->addWidget(version, 0, Qt::AlignHCenter);
    layout->addSpacing(12);
    layout->addWidget(description, 0, Qt::AlignHCenter);
    layout->addSpacing(24);
    layout->addLayout(buttons);
    layout->addStretch(4);
    layout->addWidget(copyright, 0, Qt::AlignHCenter);

    connect(m_scopes, &QPushButton::clicked, this, &AboutView::openSecurityScopesSheet);
    connect(m_privacy, &QPushButton::clicked, this, &AboutView::openPrivacySheet);
    connect(m_installSdk, &QPushButton::clicked, this, &AboutView::openToolSdkInstaller);
    connect(m_import, &QPushButton::clicked, this, [this] {
        MenuCommandContext context;
        context.destination = MenuDestination::menuAbout;
        context.window = window();
        MenuCommandDispatcher::shared()->perform(MenuCommand::ImportConfiguration, context);
    });
    connect(MenuCommandDispatcher::shared(), &MenuCommandDispatcher::handlersChanged, this,
            &AboutView::updateImportButton);
    updateImportButton();
}

QString AboutView::descriptionText()
{
    return QStringLiteral("A desktop studio for building, running and trying out a Model Context Protocol server "
                          "on your own machine.");
}

QString AboutView::copyrightText() { return QStringLiteral("Copyright © 2025 Tamsel. All rights reserved."); }

QString AboutView::privacyText()
{
    return QStringLiteral(
        "Kelvara keeps what you make on this computer: the tools, resources and prompts in its store under "
        "~/.local/share/Kelvara, and its settings under ~/.config/Kelvara.\n\n"
        "The MCP server listens on this computer only (127.0.0.1), unless you turn on \"Listen all interfaces\"; "
        "then anyone on your network who can reach the port can call your tools.\n\n"
        "Kelvara collects no usage data and sends nothing on its own. Data leaves this computer only when "
        "something you set up sends it: a tool or script that makes a web request, or the AI chat with a cloud "
        "provider you chose.\n\n"
        "Tools and scripts run with your account's file permissions: they can read and write what you can. The "
        "Security Scopes list records the files and folders you have chosen for them.");
}

void AboutView::screenDidAppear() { updateImportButton(); }

void AboutView::updateImportButton()
{
    m_import->setVisible(MenuCommandDispatcher::shared()->hasHandler(MenuCommand::ImportConfiguration));
}

QDialog *AboutView::openSecurityScopesSheet()
{
    if (m_sheet)
        m_sheet->close();
    auto *sheet = new QDialog(window());
    sheet->setObjectName(QStringLiteral("securityScopesSheet"));
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    sheet->setWindowTitle(QStringLiteral("Security Scopes"));
    sheet->resize(620, 420);
    auto *model = new BookmarkSetupViewModel(nullptr, sheet);
    auto *view = new BookmarkSetupView(model, true, sheet);
    auto *layout = new QVBoxLayout(sheet);
    layout->setContentsMargins(8, 8, 8, 8);
    layout->addWidget(view);
    connect(view, &BookmarkSetupView::closeRequested, sheet, &QDialog::accept);
    sheet->setWindowModality(Qt::WindowModal);
    sheet->open();
    m_sheet = sheet;
    return sheet;
}

QDialog *AboutView::openPrivacySheet()
{
    if (m_sheet)
        m_sheet->close();
    auto *sheet = new QDialog(window());
    sheet->setObjectName(QStringLiteral("privacySheet"));
    sheet->setAttribute(Qt::WA_DeleteOnClose);
    sheet->setWindowTitle(QStringLiteral("Privacy"));
    auto *text = new QLabel(privacyText(), sheet);
    text->setWordWrap(true);
    text->setTextInteractionFlags(Qt::TextSelectableByMouse);
    text->setMinimumWidth(460);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Ok, sheet);
    auto *layout = new QVBoxLayout(sheet);
    layout->setContentsMargins(20, 20, 20, 14);
    layout->addWidget(text);
    layout->addSpacing(8);
    layout->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::accepted, sheet, &QDialog::accept);
    sheet->setWindowModality(Qt::WindowModal);
    sheet->open();
    m_sheet = sheet;
    return sheet;
}

QDialog *AboutView::openToolSdkInstaller()
{
    if (m_sheet)
        m_sheet->close();
    auto *wizard = new ToolSDKInstallWizard(nullptr, window());
    wizard->setObjectName(QStringLiteral("toolSdkInstaller"));
    wizard->setAttribute(Qt::WA_DeleteOnClose);
    wizard->setWindowModality(Qt::WindowModal);
    wizard->open();
    m_sheet = wizard;
    return wizard;
}
