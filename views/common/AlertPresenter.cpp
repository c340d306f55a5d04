#include "views/common/AlertPresenter.h"

#include "base/AbstractController.h"

#include <QApplication>
#include <QHash>
#include <QMessageBox>
#include <QPointer>
#include <QWidget>

namespace AlertPresenter {

namespace {

QHash<const AbstractController *, QPointer<QMessageBox>> &openBoxes()
{
    static QHash<const AbstractController *, QPointer<QMessageBox>> boxes;
    return boxes;
}

void present(AbstractController *controller, QWidget *view)
{
    if (!controller->shouldShowAlert())
        return;
    QPointer<QMessageBox> &box = openBoxes()[controller];
    if (box) {
        // A newer alert while one shows: the box tells the latest.
        box->setWindowTitle(controller->alertTitle());
        box->setText(controller->alertTitle());
        box->setInformativeText(controller->alertMessage());
        return;
    }
    // The bound view's window when it is on screen, else whatever window is in front.
    QWidget *parent = view && view->isVisible() ? view->window() : QApplication::activeWindow();
    auto *message = new QMessageBox(parent);
    message->setAttribute(Qt::WA_DeleteOnClose);
    message->setObjectName(QStringLiteral("controllerAlert"));
    const bool error = controller->alertTitle().contains(QLatin1String("Error"));
    message->setIcon(error ? QMessageBox::Warning : QMessageBox::Information);
    message->setWindowTitle(controller->alertTitle());
    message->setText(controller->alertTitle());
    message->setInformativeText(controller->alertMessage());
    message->setStandardButtons(QMessageBox::Ok);
    message->setWindowModality(parent ? Qt::WindowModal : Qt::ApplicationModal);
    QPointer<AbstractController> weak(controller);
    QObject::connect(message, &QMessageBox::finished, message, [weak] {
        if (weak)
            weak->setShouldShowAlert(false);
    });
    box = message;
    message->open();
}

}  // namespace

void bind(AbstractController *controller, QWidget *view)
{
    if (!controller || !view)
        return;
    QPointer<QWidget> weakView(view);
    QObject::connect(controller, &AbstractController::shouldShowAlertChanged, view, [controller, weakView] {
        // Only the first bound view that is on screen, or any when none is, presents.
        present(controller, weakView);
    });
    QObject::connect(controller, &QObject::destroyed, controller, [controller] { openBoxes().remove(controller); });
    // An alert raised before the view existed still shows.
    if (controller->shouldShowAlert())
        QMetaObject::invokeMethod(view, [controller, weakView] { present(controller, weakView); }, Qt::QueuedConnection);
}

}  // namespace AlertPresenter
