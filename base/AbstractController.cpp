#include "base/AbstractController.h"

#include <QMetaObject>

AbstractController::AbstractController(QObject *parent) : QObject(parent) {}

AbstractController::~AbstractController() = default;

bool AbstractController::canAdd() const { return false; }
bool AbstractController::canSave() const { return false; }
bool AbstractController::canCopy() const { return false; }
bool AbstractController::canPaste() const { return false; }
bool AbstractController::canDelete() const { return false; }

void AbstractController::copySelectedItem() {}
void AbstractController::pasteItem() {}
void AbstractController::triggerDelete() {}
void AbstractController::reload() {}

void AbstractController::showAlert(const QString &title, const QString &message)
{
    // Always a later step, even on the main thread: callers raise alerts from inside
    // their own state changes and expect those to finish first. Queuing on this object
    // drops the step if the controller is gone by then.
    QMetaObject::invokeMethod(
        this, [this, title, message] { applyAlert(title, message); }, Qt::QueuedConnection);
}

void AbstractController::notifyChange() { emit changed(); }

void AbstractController::setShouldShowAlert(bool show)
{
    if (m_shouldShowAlert == show)
        return;
    m_shouldShowAlert = show;
    emit shouldShowAlertChanged();
    emit changed();
}

void AbstractController::applyAlert(const QString &title, const QString &message)
{
    if (m_alertTitle != title) {
        m_alertTitle = title;
        emit alertTitleChanged();
    }
    if (m_alertMessage != message) {
        m_alertMessage = message;
        emit alertMessageChanged();
    }
    // A second alert while one is showing still counts as news for the screen.
    m_shouldShowAlert = true;
    emit shouldShowAlertChanged();
    emit changed();
}
