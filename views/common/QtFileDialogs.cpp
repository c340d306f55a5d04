#include "views/common/QtFileDialogs.h"

#include <QApplication>
#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QStandardPaths>

namespace {

FileDialogs *g_current = nullptr;

QWidget *dialogParent(QWidget *parent) { return parent ? parent->window() : QApplication::activeWindow(); }

QString documentsFolder()
{
    const QString documents = QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation);
    return QFileInfo(documents).isDir() ? documents : QDir::homePath();
}

// A panel that accepts a file or a folder: Qt's own dialog takes only one kind, so a
// chosen file is accepted here before the folder mode refuses it.
class FileOrFolderDialog : public QFileDialog {
public:
    using QFileDialog::QFileDialog;
    QString chosen;
    QStringList packageExtensions;  // folders with these extensions count as single items

    void accept() override
    {
        const QStringList files = selectedFiles();
        const QFileInfo info(files.value(0));
        const bool package = info.isDir() && packageExtensions.contains(info.suffix().toLower());
        if (files.size() == 1 && (info.isFile() || package)) {
            chosen = files.first();
            QDialog::accept();
            return;
        }
        QFileDialog::accept();
        if (result() == QDialog::Accepted && chosen.isEmpty() && !selectedFiles().isEmpty())
            chosen = selectedFiles().first();
    }
};

}  // namespace

FileDialogs *FileDialogs::current() { return g_current ? g_current : QtFileDialogs::instance(); }

void FileDialogs::setCurrent(FileDialogs *dialogs) { g_current = dialogs; }

QtFileDialogs *QtFileDialogs::instance()
{
    static QtFileDialogs dialogs;
    return &dialogs;
}

void QtFileDialogs::chooseSaveFile(QWidget *parent, const SaveRequest &request, Completion completion)
{
    QFileDialog dialog(dialogParent(parent), request.title);
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setFileMode(QFileDialog::AnyFile);
    dialog.setDirectory(request.directory.isEmpty() ? documentsFolder() : request.directory);
    if (!request.nameFilter.isEmpty())
        dialog.setNameFilter(request.nameFilter);
    dialog.setDefaultSuffix(QStringLiteral("txt"));
    dialog.selectFile(request.suggestedName);
    dialog.setWindowModality(Qt::WindowModal);
    const bool accepted = dialog.exec() == QDialog::Accepted && !dialog.selectedFiles().isEmpty();
    completion(accepted ? dialog.selectedFiles().first() : QString());
}

void QtFileDialogs::chooseFolder(QWidget *parent, const FolderRequest &request, Completion completion)
{
    QFileDialog dialog(dialogParent(parent), request.title);
    dialog.setFileMode(QFileDialog::Directory);
    dialog.setOption(QFileDialog::ShowDirsOnly, true);
    dialog.setDirectory(request.directory.isEmpty() ? QDir::homePath() : request.directory);
    if (!request.prompt.isEmpty())
        dialog.setLabelText(QFileDialog::Accept, request.prompt);
    dialog.setWindowModality(Qt::WindowModal);
    const bool accepted = dialog.exec() == QDialog::Accepted && !dialog.selectedFiles().isEmpty();
    completion(accepted ? dialog.selectedFiles().first() : QString());
}

void QtFileDialogs::present(const OpenPanelRequest &request, std::function<void(const QUrl &chosen)> completion)
{
    FileOrFolderDialog dialog(QApplication::activeWindow(), request.message);
    const bool both = request.canChooseFiles && request.canChooseDirectories;
    if (both) {
        // Qt's own dialog, since only it lets the accept step above take a file too.
        dialog.setOption(QFileDialog::DontUseNativeDialog, true);
        dialog.setFileMode(QFileDialog::Directory);
        dialog.setOption(QFileDialog::ShowDirsOnly, false);
    } else if (request.canChooseDirectories) {
        dialog.setFileMode(QFileDialog::Directory);
        dialog.setOption(QFileDialog::ShowDirsOnly, true);
    } else {
        dialog.setFileMode(QFileDialog::ExistingFile);
    }
    if (!request.allowedExtensions.isEmpty()) {
        QStringList patterns;
        for (const QString &extension : request.allowedExtensions)
            patterns.append(QStringLiteral("*.") + extension);
        dialog.setNameFilter(QStringLiteral("Allowed files (%1)").arg(patterns.join(QLatin1Char(' '))));
    }
    if (request.treatsPackagesAsFiles && !request.canChooseDirectories) {
        // Plug-in bundles are folders: let the accept step above take a folder whose name
        // carries an allowed extension.
        dialog.setOption(QFileDialog::DontUseNativeDialog, true);
        dialog.packageExtensions = request.allowedExtensions;
    }
    dialog.setDirectory(request.directory.isEmpty() ? QDir::homePath() : request.directory);
    if (!request.fileName.isEmpty())
        dialog.selectFile(request.fileName);
    dialog.setLabelText(QFileDialog::Accept, request.prompt);
    dialog.setOption(QFileDialog::ReadOnly, true);
    dialog.setWindowModality(Qt::ApplicationModal);
    if (dialog.exec() != QDialog::Accepted) {
        completion(QUrl());
        return;
    }
    QString path = dialog.chosen;
    if (path.isEmpty() && !dialog.selectedFiles().isEmpty())
        path = dialog.selectedFiles().first();
    completion(path.isEmpty() ? QUrl() : QUrl::fromLocalFile(path));
}
