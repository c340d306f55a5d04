#pragma once

#include "app/OnBoardingController.h"

#include <QFrame>
#include <QPointer>
#include <QRect>
#include <functional>
#include <optional>

class QLabel;
class QPushButton;
class QToolButton;

// The tour's bubble: lies over its window beside the control the current step points at,
// never over it, with an arrow to it; the header "Preview", the step's text and the back,
// forward and close controls, and "Done" on the last step. Escape closes it (the tour is
// done), Enter goes on (on the last step it closes). A step that points at a whole panel
// stands in the panel's middle; with no current step it says "Invalid onboarding".
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
    QPushButton *doneButton() const { return m_done; }

    // The side of the bubble its arrow is on, towards the control; none when centred.
    enum class ArrowSide { none, left, right, top, bottom };
    ArrowSide arrowSide() const { return m_arrow; }

    // Places the bubble again (the window was resized, a screen changed).
    void reposition();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    void refresh();
    void setArrow(ArrowSide side, int offset);

    AnchorResolver m_resolver;
    QPointer<OnBoardingController> m_controller;
    QMetaObject::Connection m_connection;
    QLabel *m_text;
    QToolButton *m_back;
    QToolButton *m_forward;
    QToolButton *m_close;
    QPushButton *m_done;
    ArrowSide m_arrow = ArrowSide::none;
    int m_arrowOffset = 0;  // along the arrow's side, from the bubble's top or left
};
