#include "views/app/StartupQuestions.h"

#include "app/AuthorizedNotifier.h"
#include "app/PrivacyAccessController.h"
#include "tools/security/BookmarkController.h"
#include "views/app/AppMainWindow.h"
#include "views/app/SplashScreenView.h"

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

namespace {

// The first start shows one thing at a time: the launch sheet, then each question in turn,
// then the home folder notice, and only then the tour. Each step runs the rest when done.
using Then = std::function<void()>;

void afterSheet(AppMainWindow *window, Then then)
{
    SplashScreenView *sheet = window->splash();
    if (sheet && sheet->isVisible())
        QObject::connect(sheet, &SplashScreenView::dismissed, window, then, Qt::SingleShotConnection);
    else
        QTimer::singleShot(0, window, then);
}

}  // namespace

// One question per kind not yet decided, each asked when the one before it is answered.
void askPrivacy(QPointer<AppMainWindow> window, QList<PrivacyAccess::Kind> kinds, std::function<void()> then)
{
    if (!window)
        return;
    if (kinds.isEmpty()) {
        if (then)
            then();
        return;
    }
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
    QObject::connect(box, &QMessageBox::finished, window, [window, kinds, kind, box, allow, then] {
        PrivacyAccessController().answer(kind, box->clickedButton() == allow);
        askPrivacy(window, kinds, then);
    });
    box->setWindowModality(Qt::WindowModal);
    box->open();
}

void ask(AppMainWindow *window)
{
    // Whether the desktop shows notifications; until it answers they are dropped.
    AuthorizedNotifier::requestAuthorization();

    // The data the built-in tools reach, and whether the home folder can be read: asked
    // once, when the first window appears.
    static bool asked = false;
    if (asked)
        return;
    asked = true;
    const QList<PrivacyAccess::Kind> kinds = PrivacyAccessController::undecided();
    const std::optional<HomeFolderAccessNotice> notice = BookmarkController::checkHomeFolderAccess();
    if (kinds.isEmpty() && !notice)
        return;
    window->holdTour();
    QPointer<AppMainWindow> weak(window);
    auto release = [weak] {
        if (weak)
            weak->releaseTour();
    };
    auto homeNotice = [weak, notice, release] {
        if (!weak)
            return;
        if (!notice) {
            release();
            return;
        }
        QMessageBox *box = showHomeFolderNotice(weak, *notice);
        QObject::connect(box, &QMessageBox::finished, weak, release);
    };
    afterSheet(window, [weak, kinds, homeNotice] { askPrivacy(weak, kinds, homeNotice); });
}

}  // namespace StartupQuestions
