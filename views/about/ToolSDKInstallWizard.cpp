#include "views/about/ToolSDKInstallWizard.h"

#include "app/InstallWizardViewModel.h"
#include "views/common/AlertPresenter.h"

#include <QDesktopServices>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QStackedWidget>
#include <QUrl>
#include <QVBoxLayout>

namespace {

QLabel *heading(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    QFont font = label->font();
    font.setBold(true);
    font.setPointSizeF(font.pointSizeF() * 1.25);
    label->setFont(font);
    return label;
}

QLabel *paragraph(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setWordWrap(true);
    return label;
}

QWidget *page(QWidget *parent, const QList<QWidget *> &widgets)
{
    auto *page = new QWidget(parent);
    auto *layout = new QVBoxLayout(page);
    for (QWidget *widget : widgets)
        layout->addWidget(widget);
    layout->addStretch();
    return page;
}

}  // namespace

ToolSDKInstallWizard::ToolSDKInstallWizard(InstallWizardViewModel *model, QWidget *parent)
    : QDialog(parent), m_model(model ? model : new InstallWizardViewModel(QString(), this))
{
    setWindowTitle(QStringLiteral("Install ToolSDK"));
    setMinimumSize(560, 380);
    m_pages = new QStackedWidget(this);

    // 0: welcome
    m_pages->addWidget(page(this, {
        paragraph(QStringLiteral("This wizard will help you install the Kelvara ToolSDK to your chosen location."), this),
        paragraph(QStringLiteral("The ToolSDK includes:"), this),
        paragraph(QStringLiteral("• Complete documentation and guides\n• Header files for custom tool development\n"
                                 "• Sample plugin with dylib and bundle examples\n• JavaScript example scripts\n"
                                 "• JSON utilities"), this),
        paragraph(QStringLiteral("Click 'Next' to choose your installation directory."), this)}));
    // 1: folder
    m_choose = new QPushButton(QStringLiteral("Choose..."), this);
    m_choose->setObjectName(QStringLiteral("chooseDestinationButton"));
    m_folderPath = paragraph(QString(), this);
    m_existsWarning = paragraph(
        QStringLiteral("A ToolSDK directory already exists at this location. Installation will overwrite existing files."), this);
    m_pages->addWidget(page(this, {
        heading(QStringLiteral("Choose Installation Directory"), this),
        paragraph(QStringLiteral("Select where you want to install the ToolSDK. A new folder named 'ToolSDK' will be "
                                 "created in your chosen location."), this),
        m_choose, m_folderPath, m_existsWarning,
        paragraph(QStringLiteral("Click 'Next' to review your installation settings."), this)}));
    // 2: review
    m_reviewPath = paragraph(QString(), this);
    m_reviewWarning = paragraph(QStringLiteral("Existing ToolSDK directory will be replaced."), this);
    m_pages->addWidget(page(this, {
        heading(QStringLiteral("Review Installation"), this),
        paragraph(QStringLiteral("Please review the installation details before proceeding:"), this),
        m_reviewPath,
        paragraph(QStringLiteral("ToolSDK Version: ") + InstallWizardViewModel::versionText, this),
        paragraph(QStringLiteral("Components: ") + InstallWizardViewModel::componentsText, this),
        m_reviewWarning,
        paragraph(QStringLiteral("Click 'Install' to begin the installation process."), this)}));
    // 3: progress
    m_copying = paragraph(QString(), this);
    m_progress = new QProgressBar(this);
    m_progress->setRange(0, 1000);
    m_pages->addWidget(page(this, {heading(QStringLiteral("Installing ToolSDK..."), this), m_copying, m_progress}));
    // 4: completion
    m_getStarted = new QPushButton(QStringLiteral("Get started"), this);
    m_getStarted->setObjectName(QStringLiteral("getStartedButton"));
    m_pages->addWidget(page(this, {heading(QStringLiteral("Installation Complete!"), this),
                                   paragraph(QStringLiteral("The ToolSDK has been successfully installed."), this),
                                   m_getStarted}));

    m_back = new QPushButton(QStringLiteral("Back"), this);
    m_back->setObjectName(QStringLiteral("backButton"));
    m_next = new QPushButton(QStringLiteral("Next"), this);
    m_next->setObjectName(QStringLiteral("nextButton"));
    m_next->setDefault(true);
    auto *buttons = new QHBoxLayout;
    buttons->addWidget(m_back);
    buttons->addStretch();
    buttons->addWidget(m_next);
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(m_pages, 1);
    layout->addLayout(buttons);

    connect(m_choose, &QPushButton::clicked, this, &ToolSDKInstallWizard::chooseDestination);
    connect(m_back, &QPushButton::clicked, m_model, &InstallWizardViewModel::previousPage);
    connect(m_next, &QPushButton::clicked, this, &ToolSDKInstallWizard::next);
    connect(m_getStarted, &QPushButton::clicked, this, [this] {
        QDesktopServices::openUrl(QUrl::fromLocalFile(m_model->readmePath(InstallWizardViewModel::READMEType::samplePlugin)));
    });
    connect(m_model, &AbstractController::changed, this, &ToolSDKInstallWizard::refresh);
    AlertPresenter::bind(m_model, this);
    refresh();
}

void ToolSDKInstallWizard::chooseDestination()
{
    QString folder;
    if (m_chooser) {
        folder = m_chooser();
    } else {
        QFileDialog panel(this, QStringLiteral("Choose where to install the ToolSDK"));
        panel.setFileMode(QFileDialog::Directory);
        panel.setOption(QFileDialog::ShowDirsOnly);
        panel.setLabelText(QFileDialog::Accept, QStringLiteral("Select"));
        if (panel.exec() == QDialog::Accepted && !panel.selectedFiles().isEmpty())
            folder = panel.selectedFiles().first();
    }
    if (!folder.isEmpty())
        m_model->setSelectedDestination(folder);
}

void ToolSDKInstallWizard::next()
{
    if (m_model->installationComplete()) {
        accept();
        return;
    }
    if (m_model->currentPage() == 2)
        m_model->startInstall();
    else
        m_model->nextPage();
}

void ToolSDKInstallWizard::refresh()
{
    const InstallWizardViewModel &model = *m_model;
    const QString where = model.selectedDestination().value_or(QString());
    m_folderPath->setText(where.isEmpty() ? QString() : QStringLiteral("Selected: ") + where);
    m_reviewPath->setText(QStringLiteral("Installation Directory: ") + (where.isEmpty() ? QStringLiteral("Not selected") : where));
    m_existsWarning->setVisible(model.destinationExists());
    m_reviewWarning->setVisible(model.destinationExists());
    m_copying->setText(QStringLiteral("Copying: ") + model.currentCopyingFile().value_or(QString()));
    m_progress->setValue(int(model.copyProgress() * 1000));

    if (model.installationComplete())
        m_pages->setCurrentIndex(4);
    else if (model.showingCopyProgress())
        m_pages->setCurrentIndex(3);
    else
        m_pages->setCurrentIndex(model.currentPage());

    const bool working = model.isInstalling();
    m_back->setVisible(!model.installationComplete());
    m_back->setEnabled(model.currentPage() > 0 && !working);
    if (model.installationComplete()) {
        m_next->setText(QStringLiteral("Finish"));
        m_next->setToolTip(QStringLiteral("Close"));
        m_next->setEnabled(true);
    } else if (model.currentPage() == 2) {
        m_next->setText(QStringLiteral("Install"));
        m_next->setToolTip(QStringLiteral("Install SDK"));
        m_next->setEnabled(model.canProceed() && !working);
    } else {
        m_next->setText(QStringLiteral("Next"));
        m_next->setToolTip(QStringLiteral("Go to next page"));
        m_next->setEnabled(model.canProceed() && !working);
    }
}
