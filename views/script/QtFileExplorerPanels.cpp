#include "views/script/QtFileExplorerPanels.h"

#include <QDir>
#include <QFileDialog>
#include <QFileInfo>
#include <QInputDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>

namespace {

std::optional<QString> runDialog(QFileDialog &dialog)
{
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
        return std::nullopt;
    return dialog.selectedFiles().constFirst();
}

}  // namespace

std::optional<QString> QtFileExplorerPanels::chooseDirectory()
{
    QFileDialog dialog(m_parent, QStringLiteral("Select Directory"));
    dialog.setFileMode(QFileDialog::Directory);
    dialog.setOption(QFileDialog::ShowDirsOnly);
    dialog.setLabelText(QFileDialog::Accept, QStringLiteral("Select"));
    return runDialog(dialog);
}

std::optional<QString> QtFileExplorerPanels::chooseNewFile(const QString &folder, const QString &proposedName)
{
    QFileDialog dialog(m_parent, QStringLiteral("Create file"), folder);
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    const QString extension = QFileInfo(proposedName).suffix();
    if (!extension.isEmpty()) {
        dialog.setNameFilters({QStringLiteral("*.%1 files (*.%1)").arg(extension), QStringLiteral("All files (*)")});
        dialog.setDefaultSuffix(extension);
    }
    dialog.selectFile(proposedName);
    return runDialog(dialog);
}

std::optional<QString> QtFileExplorerPanels::askNewName(const QString &name)
{
    QInputDialog dialog(m_parent);
    dialog.setWindowTitle(QStringLiteral("Rename \"%1\"").arg(name));
    dialog.setLabelText(QStringLiteral("Rename \"%1\"").arg(name));
    dialog.setTextValue(name);
    dialog.setOkButtonText(QStringLiteral("Rename"));
    dialog.setCancelButtonText(QStringLiteral("Cancel"));
    if (dialog.exec() != QDialog::Accepted)
        return std::nullopt;
    return dialog.textValue();
}

bool QtFileExplorerPanels::confirmDelete(const QString &name)
{
    QMessageBox box(QMessageBox::Warning, QStringLiteral("Delete \"%1\"").arg(name), QStringLiteral("Delete \"%1\"").arg(name),
                    QMessageBox::NoButton, m_parent);
    box.setInformativeText(QStringLiteral("This action cannot be undone."));
    QPushButton *remove = box.addButton(QStringLiteral("Delete"), QMessageBox::DestructiveRole);
    box.setDefaultButton(box.addButton(QStringLiteral("Cancel"), QMessageBox::RejectRole));
    box.exec();
    return box.clickedButton() == remove;
}

std::optional<QString> QtFileExplorerPanels::chooseCopyTarget(const QString &folder, const QString &message, const QString &proposedName)
{
    QFileDialog dialog(m_parent, message, folder);
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setLabelText(QFileDialog::Accept, QStringLiteral("Copy"));
    dialog.selectFile(proposedName);
    return runDialog(dialog);
}

std::optional<QString> QtFileExplorerPanels::chooseMoveFolder(const QString &folder, const QString &message)
{
    QFileDialog dialog(m_parent, message, folder);
    dialog.setFileMode(QFileDialog::Directory);
    dialog.setOption(QFileDialog::ShowDirsOnly);
    dialog.setLabelText(QFileDialog::Accept, QStringLiteral("Move"));
    return runDialog(dialog);
}

void QtFileExplorerPanels::alert(const QString &title, const QString &text)
{
    QMessageBox box(QMessageBox::Information, title, text, QMessageBox::Ok, m_parent);
    box.exec();
}
