#pragma once

#include <QDialog>

class InstallWizardViewModel;
class QLabel;
class QProgressBar;
class QPushButton;
class QStackedWidget;

// The paged dialog of the ToolSDK installer: welcome, folder, review, then the copy's progress
// and its completion. Every decision is the view model's; the dialog shows its pages and
// sends the buttons on.
class ToolSDKInstallWizard : public QDialog {
    Q_OBJECT

public:
    // model: owned by the caller; nullptr makes one over the application's ToolSDK.
    explicit ToolSDKInstallWizard(InstallWizardViewModel *model = nullptr, QWidget *parent = nullptr);

    InstallWizardViewModel *model() const { return m_model; }
    QPushButton *backButton() const { return m_back; }
    QPushButton *nextButton() const { return m_next; }
    QPushButton *chooseButton() const { return m_choose; }
    QPushButton *getStartedButton() const { return m_getStarted; }
    QStackedWidget *pages() const { return m_pages; }
    QLabel *existsWarning() const { return m_existsWarning; }
    QLabel *copyingLabel() const { return m_copying; }
    QProgressBar *progressBar() const { return m_progress; }

    // The folder panel ("Select", "Choose where to install the ToolSDK"); for tests a
    // chooser may stand in for it.
    void chooseDestination();
    void setFolderChooser(std::function<QString()> chooser) { m_chooser = std::move(chooser); }

private:
    void refresh();
    void next();

    InstallWizardViewModel *m_model;
    std::function<QString()> m_chooser;
    QStackedWidget *m_pages;
    QLabel *m_folderPath;
    QLabel *m_existsWarning;
    QLabel *m_reviewPath;
    QLabel *m_reviewWarning;
    QLabel *m_copying;
    QProgressBar *m_progress;
    QPushButton *m_choose;
    QPushButton *m_back;
    QPushButton *m_next;
    QPushButton *m_getStarted;
};
