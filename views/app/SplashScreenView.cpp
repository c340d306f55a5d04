#include "views/app/SplashScreenView.h"

#include "app/AppLaunchViewModel.h"
#include "views/common/AppIcons.h"

#include <QEvent>
#include <QGraphicsOpacityEffect>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QProgressBar>
#include <QPropertyAnimation>
#include <QVBoxLayout>

SplashScreenView::SplashScreenView(AppLaunchViewModel *model, QWidget *parent) : QWidget(parent), m_model(model)
{
    setObjectName(QStringLiteral("splashScreen"));
    setAttribute(Qt::WA_StyledBackground, false);

    m_card = new QWidget(this);
    m_card->setObjectName(QStringLiteral("splashCard"));
    m_card->setFixedWidth(380);

    auto *icon = new QLabel(m_card);
    icon->setPixmap(AppIcons::applicationIcon().pixmap(QSize(48, 48)));
    m_title = new QLabel(m_card);
    m_title->setObjectName(QStringLiteral("splashTitle"));
    QFont titleFont = m_title->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.3);
    titleFont.setBold(true);
    m_title->setFont(titleFont);
    m_preparing = new QLabel(QStringLiteral("Preparing startup..."), m_card);
    m_message = new QLabel(m_card);
    m_message->setObjectName(QStringLiteral("splashMessage"));
    m_message->setEnabled(false);
    m_progress = new QProgressBar(m_card);
    m_progress->setRange(0, 100);
    m_progress->setTextVisible(false);
    m_progress->setFixedHeight(8);
    m_percent = new QLabel(m_card);
    m_percent->setObjectName(QStringLiteral("splashPercent"));
    m_percent->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    m_percent->setMinimumWidth(QFontMetrics(m_percent->font()).horizontalAdvance(QStringLiteral("100%")));

    auto *heading = new QVBoxLayout;
    heading->setSpacing(2);
    heading->addWidget(m_title);
    heading->addWidget(m_preparing);
    auto *top = new QHBoxLayout;
    top->setSpacing(14);
    top->addWidget(icon, 0, Qt::AlignTop);
    top->addLayout(heading, 1);
    auto *bar = new QHBoxLayout;
    bar->setSpacing(10);
    bar->addWidget(m_progress, 1);
    bar->addWidget(m_percent);
    auto *layout = new QVBoxLayout(m_card);
    layout->setContentsMargins(22, 20, 22, 20);
    layout->setSpacing(10);
    layout->addLayout(top);
    layout->addSpacing(4);
    layout->addWidget(m_message);
    layout->addLayout(bar);

    connect(m_model, &AppLaunchViewModel::jobChanged, this, &SplashScreenView::refresh);
    parent->installEventFilter(this);
    setGeometry(parent->rect());
    refresh();
}

QString SplashScreenView::titleText() const { return m_title->text(); }
QString SplashScreenView::messageText() const { return m_message->text(); }
QString SplashScreenView::percentText() const { return m_percent->text(); }
int SplashScreenView::progressValue() const { return m_progress->value(); }

void SplashScreenView::refresh()
{
    const StartupJob job = m_model->job();
    m_title->setText(job.title);
    m_message->setText(job.message);
    m_progress->setValue(int(job.progress * 100 + 0.5));
    m_percent->setText(job.percentText());
    m_card->adjustSize();
    m_card->move((width() - m_card->width()) / 2, (height() - m_card->height()) / 2);
    QWidget::update();
}

void SplashScreenView::dismiss()
{
    if (isHidden()) {
        emit dismissed();
        return;
    }
    auto *effect = new QGraphicsOpacityEffect(this);
    setGraphicsEffect(effect);
    auto *fade = new QPropertyAnimation(effect, "opacity", this);
    fade->setDuration(150);
    fade->setStartValue(1.0);
    fade->setEndValue(0.0);
    fade->setEasingCurve(QEasingCurve::InOutQuad);
    connect(fade, &QPropertyAnimation::finished, this, [this] {
        hide();
        emit dismissed();
    });
    fade->start(QAbstractAnimation::DeleteWhenStopped);
}

bool SplashScreenView::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == parent() && event->type() == QEvent::Resize) {
        setGeometry(parentWidget()->rect());
        refresh();
    }
    return QWidget::eventFilter(watched, event);
}

void SplashScreenView::paintEvent(QPaintEvent *)
{
    // A veil over the window, so that the sheet reads as in front of it.
    QPainter painter(this);
    QColor veil = palette().color(QPalette::Window);
    veil.setAlpha(235);
    painter.fillRect(rect(), veil);
    // The card: a soft shadow, then a rounded panel with a hairline border.
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF card = QRectF(m_card->geometry()).adjusted(0.5, 0.5, -0.5, -0.5);
    for (int i = 1; i <= 6; ++i) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(QColor(0, 0, 0, 10));
        painter.drawRoundedRect(card.adjusted(-i, -i + 3, i, i + 3), 10 + i, 10 + i);
    }
    painter.setBrush(palette().color(QPalette::Base));
    painter.setPen(palette().color(QPalette::Mid));
    painter.drawRoundedRect(card, 10, 10);
}
