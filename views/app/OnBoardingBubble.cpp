#include "views/app/OnBoardingBubble.h"

#include <QEvent>
#include <algorithm>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>

namespace {

constexpr int arrowLength = 9;
constexpr int arrowHalfWidth = 8;
constexpr int gap = 2;  // between the arrow's tip and the control
const QMargins bodyMargins(12, 8, 12, 8);

}  // namespace

OnBoardingBubble::OnBoardingBubble(QWidget *window, AnchorResolver resolver)
    : QFrame(window), m_resolver(std::move(resolver))
{
    setObjectName(QStringLiteral("onboardingBubble"));
    // Drawn by paintEvent: the rounded body and its arrow; the corners stay see-through.
    setFrameShape(QFrame::NoFrame);
    setAutoFillBackground(false);
    setFocusPolicy(Qt::StrongFocus);

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
    m_done = new QPushButton(QStringLiteral("Done"), this);
    m_done->setObjectName(QStringLiteral("onboardingDone"));
    m_done->setAutoDefault(false);

    auto *top = new QHBoxLayout;
    top->addWidget(header);
    top->addStretch();
    top->addWidget(m_close);
    auto *bottom = new QHBoxLayout;
    bottom->addWidget(m_back);
    bottom->addStretch();
    bottom->addWidget(m_forward);
    bottom->addWidget(m_done);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(bodyMargins);
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
    connect(m_done, &QPushButton::clicked, m_close, &QToolButton::click);
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
    m_done->setVisible(step && m_controller->isLast());
    adjustSize();
    show();
    raise();
    setFocus(Qt::OtherFocusReason);
    reposition();
}

void OnBoardingBubble::setArrow(ArrowSide side, int offset)
{
    m_arrow = side;
    m_arrowOffset = offset;
    QMargins margins = bodyMargins;
    switch (side) {
    case ArrowSide::left: margins.setLeft(margins.left() + arrowLength); break;
    case ArrowSide::right: margins.setRight(margins.right() + arrowLength); break;
    case ArrowSide::top: margins.setTop(margins.top() + arrowLength); break;
    case ArrowSide::bottom: margins.setBottom(margins.bottom() + arrowLength); break;
    case ArrowSide::none: break;
    }
    if (layout()->contentsMargins() != margins) {
        layout()->setContentsMargins(margins);
        layout()->activate();
    }
}

void OnBoardingBubble::reposition()
{
    QWidget *window = parentWidget();
    if (!window || !isVisible())
        return;
    const QRect area = window->rect();
    auto inside = [&area](QRect rect) {
        rect.moveLeft(std::clamp(rect.left(), 0, std::max(0, area.width() - rect.width())));
        rect.moveTop(std::clamp(rect.top(), 0, std::max(0, area.height() - rect.height())));
        return rect;
    };
    const std::optional<OnBoardingStep> step = m_controller ? m_controller->currentStep() : std::nullopt;
    const std::optional<QRect> anchor = step && m_resolver ? m_resolver(step->index) : std::nullopt;

    // A whole panel, or nothing to point at: in the middle, without an arrow.
    if (!anchor || !area.intersects(*anchor) || step->position == OnBoardingStep::Position::center) {
        setArrow(ArrowSide::none, 0);
        const QSize size = sizeHint();
        const QPoint middle = anchor && area.intersects(*anchor) ? anchor->center() : area.center();
        setGeometry(inside(QRect(middle - QPoint(size.width() / 2, size.height() / 2), size)));
        return;
    }

    // The step's own side first, then the others; the first where the bubble, kept inside
    // the window, leaves the control free.
    using P = OnBoardingStep::Position;
    QList<P> sides{step->position};
    for (P side : {P::trailing, P::bottom, P::top, P::leading})
        if (!sides.contains(side))
            sides.append(side);
    const QRect target = *anchor;
    for (P side : sides) {
        const ArrowSide arrow = side == P::trailing ? ArrowSide::left
                                : side == P::leading ? ArrowSide::right
                                : side == P::top     ? ArrowSide::bottom
                                                     : ArrowSide::top;
        setArrow(arrow, 0);
        const QSize size = sizeHint();
        QPoint at;
        switch (side) {
        case P::top: at = {target.center().x() - size.width() / 2, target.top() - gap - size.height()}; break;
        case P::bottom: at = {target.center().x() - size.width() / 2, target.bottom() + 1 + gap}; break;
        case P::leading: at = {target.left() - gap - size.width(), target.center().y() - size.height() / 2}; break;
        default: at = {target.right() + 1 + gap, target.center().y() - size.height() / 2}; break;
        }
        const QRect placed = inside(QRect(at, size));
        if (placed.intersects(target))
            continue;
        // The arrow points at the control's middle, as far as the bubble's edge reaches.
        const bool vertical = arrow == ArrowSide::left || arrow == ArrowSide::right;
        const int along = vertical ? target.center().y() - placed.top() : target.center().x() - placed.left();
        const int length = vertical ? placed.height() : placed.width();
        setArrow(arrow, std::clamp(along, arrowHalfWidth + 8, std::max(arrowHalfWidth + 8, length - arrowHalfWidth - 8)));
        setGeometry(placed);
        update();
        return;
    }
    // No side has room (a tiny window): the window's corner away from the control.
    setArrow(ArrowSide::none, 0);
    const QSize size = sizeHint();
    const bool rightHalf = target.center().x() > area.center().x();
    setGeometry(inside(QRect(QPoint(rightHalf ? 0 : area.width() - size.width(), 0), size)));
}

void OnBoardingBubble::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QRectF body = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    switch (m_arrow) {
    case ArrowSide::left: body.setLeft(body.left() + arrowLength); break;
    case ArrowSide::right: body.setRight(body.right() - arrowLength); break;
    case ArrowSide::top: body.setTop(body.top() + arrowLength); break;
    case ArrowSide::bottom: body.setBottom(body.bottom() - arrowLength); break;
    case ArrowSide::none: break;
    }
    QPainterPath path;
    path.addRoundedRect(body, 8, 8);
    const qreal o = m_arrowOffset;
    QPolygonF arrow;
    switch (m_arrow) {
    case ArrowSide::left:
        arrow << QPointF(body.left() + 1, o - arrowHalfWidth) << QPointF(0.5, o) << QPointF(body.left() + 1, o + arrowHalfWidth);
        break;
    case ArrowSide::right:
        arrow << QPointF(body.right() - 1, o - arrowHalfWidth) << QPointF(width() - 0.5, o)
              << QPointF(body.right() - 1, o + arrowHalfWidth);
        break;
    case ArrowSide::top:
        arrow << QPointF(o - arrowHalfWidth, body.top() + 1) << QPointF(o, 0.5) << QPointF(o + arrowHalfWidth, body.top() + 1);
        break;
    case ArrowSide::bottom:
        arrow << QPointF(o - arrowHalfWidth, body.bottom() - 1) << QPointF(o, height() - 0.5)
              << QPointF(o + arrowHalfWidth, body.bottom() - 1);
        break;
    case ArrowSide::none:
        break;
    }
    if (!arrow.isEmpty()) {
        QPainterPath tip;
        tip.addPolygon(arrow);
        tip.closeSubpath();
        path = path.united(tip);
    }
    painter.setPen(QPen(palette().color(QPalette::Highlight), 1));
    painter.setBrush(palette().color(QPalette::Window));
    painter.drawPath(path);
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
