#include "app/InstallWizardViewModel.h"

#include "base/AppPaths.h"

#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QPointer>
#include <QThreadPool>
#include <QTimer>

#include <cstdio>
#include <filesystem>
#include <system_error>

namespace {

// The target is replaced as a whole: removed when present, then the source copied into it.
// Gives the regular files below the source, in listing order, or the error.
std::optional<QStringList> copyTree(const QString &source, const QString &target, QString *error)
{
    namespace fs = std::filesystem;
    std::error_code code;
    const fs::path from = QFile::encodeName(source).toStdString();
    const fs::path to = QFile::encodeName(target).toStdString();
    if (fs::exists(fs::symlink_status(to, code))) {
        fs::remove_all(to, code);
        if (code) {
            *error = QStringLiteral("'%1' could not be removed: %2").arg(target, QString::fromStdString(code.message()));
            return std::nullopt;
        }
    }
    QStringList files;
    QDirIterator it(source, QDir::Files | QDir::Hidden | QDir::NoSymLinks, QDirIterator::Subdirectories);
    while (it.hasNext())
        files.append(it.next());
    files.sort();
    fs::copy(from, to, fs::copy_options::recursive, code);
    if (code) {
        *error = QStringLiteral("'%1' could not be copied to '%2': %3").arg(source, target, QString::fromStdString(code.message()));
        return std::nullopt;
    }
    return files;
}

}  // namespace

InstallWizardViewModel::InstallWizardViewModel(QString source, QObject *parent)
    : AbstractController(parent), m_source(source.isEmpty() ? AppPaths::toolSdkDir() : std::move(source))
{
}

void InstallWizardViewModel::setCurrentREADME(READMEType type)
{
    m_currentREADME = type;
    emit changed();
}

bool InstallWizardViewModel::canProceed() const
{
    if (m_currentPage == 0)
        return true;
    if (m_currentPage == 1 || m_currentPage == 2)
        return m_destination.has_value();
    return false;
}

void InstallWizardViewModel::nextPage()
{
    if (m_currentPage < 2) {
        ++m_currentPage;
        emit changed();
    }
}

void InstallWizardViewModel::previousPage()
{
    if (m_currentPage >= 1) {
        --m_currentPage;
        emit changed();
    }
}

void InstallWizardViewModel::setSelectedDestination(const QString &folder)
{
    m_destination = folder;
    checkDestination();
}

void InstallWizardViewModel::checkDestination()
{
    m_destinationExists = m_destination && QFileInfo::exists(QDir(*m_destination).filePath(QStringLiteral("ToolSDK")));
    emit changed();
}

QString InstallWizardViewModel::readmeFileName(READMEType type)
{
    switch (type) {
    case READMEType::main: return QStringLiteral("README.md");
    case READMEType::mcpServer: return QStringLiteral("README-MCPServer.md");
    case READMEType::scripting: return QStringLiteral("README-Scripting.md");
    case READMEType::samplePlugin: return QStringLiteral("README-SamplePlugin.md");
    }
    return QStringLiteral("README.md");
}

QString InstallWizardViewModel::readmePath(READMEType type) const
{
    if (!m_destination)
        return noReadmeText;
    return QDir(*m_destination).filePath(QStringLiteral("ToolSDK/") + readmeFileName(type));
}

void InstallWizardViewModel::startInstall()
{
    if (!m_destination || m_isInstalling)
        return;
    m_isInstalling = true;
    m_showingCopyProgress = true;
    m_installationComplete = false;
    m_copyProgress = 0;
    m_currentCopyingFile.reset();
    emit changed();

    if (m_source.isEmpty() || !QFileInfo(m_source).isDir()) {
        std::fputs("Error: Could not find app bundle resource path\n", stdout);
        fail(QStringLiteral("no ToolSDK folder at '%1'").arg(m_source));
        return;
    }
    const QString source = m_source;
    const QString target = QDir(*m_destination).filePath(QStringLiteral("ToolSDK"));
    // The copy on a worker; its outcome comes back to this object on the main thread.
    QPointer<InstallWizardViewModel> self(this);
    QThreadPool::globalInstance()->start([self, source, target] {
        QString error;
        const std::optional<QStringList> files = copyTree(source, target, &error);
        QMetaObject::invokeMethod(
            qApp,
            [self, files, error] {
                if (!self)
                    return;
                if (!files) {
                    self->fail(error);
                    return;
                }
                self->m_copiedFiles = *files;
                self->m_shown = 0;
                self->showNextFile();
            },
            Qt::QueuedConnection);
    });
}

void InstallWizardViewModel::showNextFile()
{
    // One file each 10 ms at most: the progress follows the finished copy at a pace a person
    // can see.
    if (m_shown < m_copiedFiles.size()) {
        m_currentCopyingFile = QFileInfo(m_copiedFiles.at(m_shown)).fileName();
        ++m_shown;
        m_copyProgress = double(m_shown) / double(m_copiedFiles.size());
        emit changed();
        QTimer::singleShot(10, this, &InstallWizardViewModel::showNextFile);
        return;
    }
    m_isInstalling = false;
    m_showingCopyProgress = false;
    m_installationComplete = true;
    checkDestination();
    emit installFinished(true);
}

void InstallWizardViewModel::fail(const QString &error)
{
    std::fprintf(stdout, "Installation error: %s\n", error.toLocal8Bit().constData());
    std::fflush(stdout);
    m_isInstalling = false;
    m_showingCopyProgress = false;
    emit changed();
    showAlert(failedTitle, failedText);
    emit installFinished(false);
}
