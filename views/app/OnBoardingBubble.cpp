#include "views/app/OnBoardingBubble.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QToolButton>
#include <QVBoxLayout>

OnBoardingBubble::OnBoardingBubble(QWidget *window, AnchorResolver resolver)
    : QFrame(window), m_resolver(std::move(resolver))
{
    setObjectName(QStringLiteral("onboardingBubble"));
    setFrameShape(QFrame::StyledPanel);
    setAutoFillBackground(true);
    setFocusPolicy(Qt::StrongFocus);
    setStyleSheet(QStringLiteral(
        "#onboardingBubble { background: palette(window); border: 1px solid palette(highlight); border-radius: 8px; }"));

    auto *header = new QLabel(QStringLiteral("Preview"), this);
    QFont bold = header->font();
    bold.setBold(true);
    header->setFont(bold);
    m_close = new QToolButton(this);
    m_close->setObjectName(QStringLiteral("onboardingClose"));
    m_close->setText(QStringLiteral("✕"));
    m_close->setToolTip(QStringLiteral("Skip onboarding"));
    m_text = new QLabel(this);
    m_text->setObjectName(QStringLiteral("onboardingText"));
    m_text->setWordWrap(true);
    m_text->setMinimumWidth(240);
    m_text->setMaximumWidth(320);
    m_back = new QToolButton(this);
    m_back->setObjectName(QStringLiteral("onboardingBack"));
    m_back->setArrowType(Qt::LeftArrow);
    m_back->setToolTip(QStringLiteral("Go to previous onboarding step"));
    m_forward = new QToolButton(this);
    m_forward->setObjectName(QStringLiteral("onboardingForward"));
    m_forward->setArrowType(Qt::RightArrow);
    m_forward->setToolTip(QStringLiteral("Go to next onboarding step"));

    auto *top = new QHBoxLayout;
    top->addWidget(header);
    top->addStretch();
    top->addWidget(m_close);
    auto *bottom = new QHBoxLayout;
    bottom->addWidget(m_back);
    bottom->addStretch();
    bottom->addWidget(m_forward);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(12, 8, 12, 8);
    layout->addLayout(top);
    layout->addWidget(m_text);
    layout->addLayout(bottom);

    connect(m_back, &QToolButton::clicked, this, [this] {
        if (m_controller)
            m_controller->back();
    });
    connect(m_forward, &QToolButton::clicked, this, [this] {
        if (m_controller)
            m_controller->forward();
    });
    connect(m_close, &QToolButton::clicked, this, [this] {
        hide();
        if (m_controller)
            m_controller->finish();
    });
    window->installEventFilter(this);
    hide();
}

void OnBoardingBubble::setController(OnBoardingController *controller)
{
    disconnect(m_connection);
    m_controller = controller;
    if (controller)
        m_connection = connect(controller, &OnBoardingController::changed, this, &OnBoardingBubble::refresh);
    refresh();
}

void OnBoardingBubble::refresh()
{
    if (!m_controller || !m_controller->isActive()) {
        hide();
        return;
    }
    const std::optional<OnBoardingStep> step = m_controller->currentStep();
    m_text->setText(step ? step->text : QStringLiteral("Invalid onboarding"));
    m_back->setVisible(step && !m_controller->isFirst());
    m_forward->setVisible(step && !m_controller->isLast());
    adjustSize();
    show();
    raise();
    setFocus(Qt::OtherFocusReason);
    reposition();
}

void OnBoardingBubble::reposition()
{
    QWidget *window = parentWidget();
    if (!window || !isVisible())
        return;
    const QSize size = sizeHint();
    const QRect area = window->rect();
    QPoint at((area.width() - size.width()) / 2, (area.height() - size.height()) / 2);
    const std::optional<OnBoardingStep> step = m_controller ? m_controller->currentStep() : std::nullopt;
    const std::optional<QRect> anchor = step && m_resolver ? m_resolver(step->index) : std::nullopt;
    if (anchor && area.intersects(*anchor)) {
        constexpr int gap = 8;
        switch (step->position) {
        case OnBoardingStep::Position::top:
            at = {anchor->center().x() - size.width() / 2, anchor->top() - size.height() - gap};
            break;
        case OnBoardingStep::Position::bottom:
            at = {anchor->center().x() - size.width() / 2, anchor->bottom() + gap};
            break;
        case OnBoardingStep::Position::leading:
            at = {anchor->left() - size.width() - gap, anchor->center().y() - size.height() / 2};
            break;
        case OnBoardingStep::Position::trailing:
            at = {anchor->right() + gap, anchor->center().y() - size.height() / 2};
            break;
        case OnBoardingStep::Position::center:
            at = {anchor->center().x() - size.width() / 2, anchor->center().y() - size.height() / 2};
            break;
        }
    }
    // Always wholly inside the window.
    at.setX(std::clamp(at.x(), 0, std::max(0, area.width() - size.width())));
    at.setY(std::clamp(at.y(), 0, std::max(0, area.height() - size.height())));
    setGeometry(QRect(at, size));
}

bool OnBoardingBubble::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == parentWidget() && (event->type() == QEvent::Resize || event->type() == QEvent::LayoutRequest))
        reposition();
    return QFrame::eventFilter(watched, event);
}

void OnBoardingBubble::keyPressEvent(QKeyEvent *event)
{
    if (!m_controller) {
        QFrame::keyPressEvent(event);
        return;
    }
    if (event->key() == Qt::Key_Escape) {
        m_close->click();
    } else if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
        if (m_controller->isLast())
            m_close->click();
        else
            m_controller->forward();
    } else {
        QFrame::keyPressEvent(event);
    }
}
