#include "views/app/StartupQuestions.h"

#include "app/AuthorizedNotifier.h"
#include "tools/security/BookmarkController.h"
#include "views/app/AppMainWindow.h"

#include <QApplication>
#include <QClipboard>
#include <QMessageBox>
#include <QPushButton>
#include <QTimer>

namespace StartupQuestions {

QMessageBox *showHomeFolderNotice(QWidget *parent, const HomeFolderAccessNotice &notice)
{
    auto *box = new QMessageBox(parent);
    box->setObjectName(QStringLiteral("homeFolderNotice"));
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setIcon(QMessageBox::Warning);
    box->setWindowTitle(notice.title);
    box->setText(notice.title);
    box->setInformativeText(notice.text);
    box->setTextInteractionFlags(Qt::TextSelectableByMouse);
    QPushButton *copy = box->addButton(notice.confirmButton, QMessageBox::AcceptRole);
    box->addButton(notice.cancelButton, QMessageBox::RejectRole);
    box->setDefaultButton(copy);
    const QString command = notice.command;
    QObject::connect(copy, &QPushButton::clicked, box, [command] {
        QClipboard *clipboard = QApplication::clipboard();
        clipboard->clear();
        clipboard->setText(command);
    });
    box->setWindowModality(Qt::WindowModal);
    box->open();
    return box;
}

void ask(AppMainWindow *window)
{
    // Whether the desktop shows notifications; until it answers they are dropped.
    AuthorizedNotifier::requestAuthorization();

    static bool homeChecked = false;
    if (!homeChecked) {
        homeChecked = true;
        if (const auto notice = BookmarkController::checkHomeFolderAccess()) {
            const HomeFolderAccessNotice shown = *notice;
            QPointer<AppMainWindow> weak(window);
            // After the window has taken its destination, as a later step.
            QTimer::singleShot(0, window, [weak, shown] {
                if (weak)
                    showHomeFolderNotice(weak, shown);
            });
        }
    }
}

}  // namespace StartupQuestions
