#include "views/script/QtScriptFilePanels.h"

#include <QDir>
#include <QFileDialog>
#include <QMessageBox>
#include <QPushButton>

ScriptFilePanels::SaveAnswer QtScriptFilePanels::askToSave(const QString &title, const QString &text)
{
    QMessageBox box(QMessageBox::Warning, title, title, QMessageBox::NoButton, m_parent);
    box.setObjectName(QStringLiteral("scriptSaveQuestion"));
    box.setInformativeText(text);
    QPushButton *save = box.addButton(QStringLiteral("Save"), QMessageBox::AcceptRole);
    QPushButton *discard = box.addButton(QStringLiteral("Don't Save"), QMessageBox::DestructiveRole);
    box.addButton(QStringLiteral("Cancel"), QMessageBox::RejectRole);
    box.exec();
    if (box.clickedButton() == save)
        return SaveAnswer::Save;
    if (box.clickedButton() == discard)
        return SaveAnswer::DontSave;
    return SaveAnswer::Cancel;
}

std::optional<QString> QtScriptFilePanels::chooseSaveLocation(const QString &proposedName)
{
    const QString path = QFileDialog::getSaveFileName(m_parent, QStringLiteral("Save Script"),
                                                      QDir::home().filePath(proposedName),
                                                      QStringLiteral("JavaScript files (*.js)"));
    if (path.isEmpty())
        return std::nullopt;
    return path.endsWith(QLatin1String(".js")) ? path : path + QStringLiteral(".js");
}
