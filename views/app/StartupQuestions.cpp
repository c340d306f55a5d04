#include "views/app/StartupQuestions.h"

#include "app/AuthorizedNotifier.h"
#include "app/PrivacyAccessController.h"
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

// One question per kind not yet decided, each asked when the one before it is answered.
void askPrivacy(QPointer<AppMainWindow> window, QList<PrivacyAccess::Kind> kinds)
{
    if (!window || kinds.isEmpty())
        return;
    const PrivacyAccess::Kind kind = kinds.takeFirst();
    auto *box = new QMessageBox(window);
    box->setObjectName(QStringLiteral("privacyQuestion.") + PrivacyAccess::word(kind));
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setIcon(QMessageBox::Question);
    box->setWindowTitle(PrivacyAccessController::questionTitle(kind));
    box->setText(PrivacyAccessController::questionTitle(kind));
    box->setInformativeText(PrivacyAccessController::questionText(kind));
    QPushButton *allow = box->addButton(QStringLiteral("Allow"), QMessageBox::AcceptRole);
    box->addButton(QStringLiteral("Don't Allow"), QMessageBox::RejectRole);
    box->setDefaultButton(allow);
    QObject::connect(box, &QMessageBox::finished, window, [window, kinds, kind, box, allow] {
        PrivacyAccessController().answer(kind, box->clickedButton() == allow);
        askPrivacy(window, kinds);
    });
    box->setWindowModality(Qt::WindowModal);
    box->open();
}

void ask(AppMainWindow *window)
{
    // The data the built-in tools reach: asked once, when the first window appears.
    static bool privacyAsked = false;
    if (!privacyAsked) {
        privacyAsked = true;
        const QList<PrivacyAccess::Kind> kinds = PrivacyAccessController::undecided();
        if (!kinds.isEmpty()) {
            QPointer<AppMainWindow> weak(window);
            QTimer::singleShot(0, window, [weak, kinds] { askPrivacy(weak, kinds); });
        }
    }

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
