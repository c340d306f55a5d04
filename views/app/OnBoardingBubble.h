#pragma once

#include "app/OnBoardingController.h"

#include <QFrame>
#include <QPointer>
#include <QRect>
#include <functional>
#include <optional>

class QLabel;
class QToolButton;

// The tour's bubble: lies over its window beside the control the current step points at,
// with the header "Preview", the step's text and the back, forward and close controls.
// Escape closes it (the tour is done), Enter goes on (on the last step it closes). Where the
// step's control is not to be found, the bubble stands in the window's middle; with no
// current step it says "Invalid onboarding".
class OnBoardingBubble : public QFrame {
    Q_OBJECT

public:
    // Gives the rectangle, in the window's coordinates, of the control a step index names.
    using AnchorResolver = std::function<std::optional<QRect>(int index)>;

    OnBoardingBubble(QWidget *window, AnchorResolver resolver);

    // The tour shown; nullptr hides the bubble.
    void setController(OnBoardingController *controller);
    OnBoardingController *controller() const { return m_controller; }

    QLabel *textLabel() const { return m_text; }
    QToolButton *backButton() const { return m_back; }
    QToolButton *forwardButton() const { return m_forward; }
    QToolButton *closeButton() const { return m_close; }

    // Places the bubble again (the window was resized, a screen changed).
    void reposition();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;

private:
    void refresh();

    AnchorResolver m_resolver;
    QPointer<OnBoardingController> m_controller;
    QMetaObject::Connection m_connection;
    QLabel *m_text;
    QToolButton *m_back;
    QToolButton *m_forward;
    QToolButton *m_close;
};
