#pragma once

#include "base/AbstractController.h"

#include <QString>
#include <QStringList>
#include <optional>

// The logic of the ToolSDK installer: three pages before the copy (welcome, folder, review),
// then the copy of the application's ToolSDK folder into "<chosen folder>/ToolSDK" with its
// progress, then completion. Main thread; the copy itself runs on a worker thread, and the
// progress follows it one file each 10 ms at most, so the progress page keeps drawing.
class InstallWizardViewModel : public AbstractController {
    Q_OBJECT
    Q_PROPERTY(int currentPage READ currentPage NOTIFY changed)
    Q_PROPERTY(bool destinationExists READ destinationExists NOTIFY changed)
    Q_PROPERTY(bool isInstalling READ isInstalling NOTIFY changed)
    Q_PROPERTY(bool installationComplete READ installationComplete NOTIFY changed)
    Q_PROPERTY(bool showingCopyProgress READ showingCopyProgress NOTIFY changed)
    Q_PROPERTY(double copyProgress READ copyProgress NOTIFY changed)

public:
    enum class READMEType { main, mcpServer, scripting, samplePlugin };

    static constexpr int totalPages = 3;
    static inline const QString failedTitle = QStringLiteral("Installation Failed");
    static inline const QString failedText = QStringLiteral("An error occurred while installing the ToolSDK. Please try again.");
    static inline const QString noReadmeText = QStringLiteral("Can't find README file");
    static inline const QString versionText = QStringLiteral("Kelvara ToolSDK 1.0");
    static inline const QString componentsText = QStringLiteral("Documentation, Headers, Samples, Scripts, Utilities");

    // source: the ToolSDK folder to copy; empty for the application's own.
    explicit InstallWizardViewModel(QString source = QString(), QObject *parent = nullptr);

    int currentPage() const { return m_currentPage; }
    std::optional<QString> selectedDestination() const { return m_destination; }
    bool destinationExists() const { return m_destinationExists; }
    bool isInstalling() const { return m_isInstalling; }
    bool installationComplete() const { return m_installationComplete; }
    bool showingCopyProgress() const { return m_showingCopyProgress; }
    double copyProgress() const { return m_copyProgress; }
    std::optional<QString> currentCopyingFile() const { return m_currentCopyingFile; }
    READMEType currentREADME() const { return m_currentREADME; }
    void setCurrentREADME(READMEType type);

    // Page 0: true. Pages 1 and 2: a destination is chosen. Others: false.
    bool canProceed() const;
    void nextPage();
    void previousPage();
    // What the folder panel gives on "Select": the parent folder; then checkDestination.
    void setSelectedDestination(const QString &folder);
    void checkDestination();
    // The copy, as described above; nothing without a destination or while one runs.
    void startInstall();
    // The file of that document in the installed folder, or "Can't find README file".
    QString readmePath(READMEType type) const;
    static QString readmeFileName(READMEType type);

signals:
    // The copy ended, well or not.
    void installFinished(bool succeeded);

private:
    void fail(const QString &error);
    void showNextFile();

    QString m_source;
    int m_currentPage = 0;
    std::optional<QString> m_destination;
    bool m_destinationExists = false;
    bool m_isInstalling = false;
    bool m_installationComplete = false;
    bool m_showingCopyProgress = false;
    double m_copyProgress = 0;
    std::optional<QString> m_currentCopyingFile;
    READMEType m_currentREADME = READMEType::main;
    QStringList m_copiedFiles;
    qsizetype m_shown = 0;
};
