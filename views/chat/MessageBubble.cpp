#include "views/chat/MessageBubble.h"

#include "chat/appearance/AppearanceSettings.h"
#include "chat/markdown/AnswerTextCoordinator.h"
#include "chat/markdown/MarkdownRenderer.h"
#include "views/chat/MCPToolCallBubble.h"
#include "views/common/MarkdownBrowser.h"

#include <QClipboard>
#include <QCursor>
#include <QDragEnterEvent>
#include <QFile>
#include <QFileDialog>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QMimeData>
#include <QSaveFile>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

namespace {

void setTextColor(QWidget *widget, const QColor &color)
{
    QPalette palette = widget->palette();
    palette.setColor(QPalette::WindowText, color);
    palette.setColor(QPalette::Text, color);
    widget->setPalette(palette);
}

} // namespace

MessageBubble::MessageBubble(const TranscriptMessage &message, AppearanceSettings *appearance, QWidget *parent)
    : QFrame(parent), m_id(message.id), m_isUser(message.role == TranscriptMessage::Role::user)
{
    setObjectName(m_isUser ? QStringLiteral("userBubble") : QStringLiteral("assistantBubble"));
    setFrameShape(QFrame::StyledPanel);
    setAcceptDrops(!m_isUser);
    m_header = new QLabel(this);
    auto *copy = new QToolButton(this);
    copy->setText(QStringLiteral("Copy raw content"));
    copy->setAutoRaise(true);
    auto *save = new QToolButton(this);
    save->setText(QStringLiteral("Save raw content"));
    save->setAutoRaise(true);
    save->setVisible(!m_isUser);
    m_collapse = new QToolButton(this);
    m_collapse->setObjectName(QStringLiteral("collapse"));
    m_collapse->setText(QStringLiteral("Collapse"));
    m_collapse->setAutoRaise(true);
    m_collapse->setVisible(false);
    auto *head = new QHBoxLayout;
    head->addWidget(m_header, 1);
    head->addWidget(m_collapse);
    head->addWidget(copy);
    head->addWidget(save);

    m_calls = new QVBoxLayout;
    m_reasoningToggle = new QToolButton(this);
    m_reasoningToggle->setText(QStringLiteral("Reasoning"));
    m_reasoningToggle->setCheckable(true);
    m_reasoningToggle->setAutoRaise(true);
    m_reasoningToggle->setArrowType(Qt::RightArrow);
    m_reasoningToggle->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    m_reasoning = new QLabel(this);
    m_reasoning->setWordWrap(true);
    m_reasoning->setTextFormat(Qt::PlainText);
    m_reasoning->setVisible(false);
    // Its links act here: "Copy" copies, nothing of ours reaches the desktop's URL handler.
    m_body = new MarkdownBrowser(this);
    m_body->setObjectName(QStringLiteral("messageBody"));
    m_body->setFrameShape(QFrame::NoFrame);
    m_body->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_body->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_body->viewport()->setAutoFillBackground(false);
    m_body->viewport()->installEventFilter(this);  // its width decides the text's height
    m_stats = new QLabel(this);
    m_stats->setObjectName(QStringLiteral("messageStats"));
    applyAppearance(*appearance);
    if (!m_isUser)
        m_coordinator = std::make_unique<AnswerTextCoordinator>(m_body->document(), MarkdownRenderer(appearance->markdownStyle()));

    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(10, 6, 10, 6);
    layout->addLayout(head);
    layout->addLayout(m_calls);
    layout->addWidget(m_reasoningToggle);
    layout->addWidget(m_reasoning);
    layout->addWidget(m_body);
    layout->addWidget(m_stats);

    connect(m_reasoningToggle, &QToolButton::toggled, this, [this](bool open) {
        m_reasoning->setVisible(open);
        m_reasoningToggle->setArrowType(open ? Qt::DownArrow : Qt::RightArrow);
    });
    connect(copy, &QToolButton::clicked, this, [this] { QGuiApplication::clipboard()->setText(m_raw); });
    connect(m_body, &MarkdownBrowser::codeCopied, this,
            [this] { showCopied(m_body->viewport()->mapFromGlobal(QCursor::pos())); });
    connect(m_collapse, &QToolButton::clicked, this, [this] {
        m_collapsed = !m_collapsed;
        m_collapse->setText(m_collapsed ? QStringLiteral("Expand") : QStringLiteral("Collapse"));
        fitBody();
    });
    connect(save, &QToolButton::clicked, this, [this] {
        const QString path = QFileDialog::getSaveFileName(
            this, QStringLiteral("Save raw content"),
            QStringLiteral("assistant-") + m_id.toString(QUuid::WithoutBraces).left(8) + QStringLiteral(".txt"));
        if (path.isEmpty())
            return;
        QSaveFile file(path);
        if (file.open(QIODevice::WriteOnly)) {
            file.write(m_raw.toUtf8());
            file.commit();
        }
    });
    update(message);
}

MessageBubble::~MessageBubble() = default;

void MessageBubble::update(const TranscriptMessage &message)
{
    m_raw = message.content;
    m_header->setText(QStringLiteral("<b>%1</b>  <span style='color:gray'>%2</span>")
                          .arg(m_isUser ? QStringLiteral("You") : QStringLiteral("Assistant"),
                               message.timestamp.toLocalTime().toString(QStringLiteral("HH:mm"))));
    while (m_callBubbles.size() < message.toolCalls.size()) {
        auto *bubble = new MCPToolCallBubble(this);
        m_calls->addWidget(bubble);
        m_callBubbles.append(bubble);
    }
    for (qsizetype i = 0; i < message.toolCalls.size(); ++i)
        m_callBubbles[i]->update(message.toolCalls.at(i));
    const QString reasoning = message.reasoning.value_or(QString());
    m_reasoningToggle->setVisible(!reasoning.isEmpty());
    m_reasoning->setText(reasoning);

    if (m_isUser) {
        m_body->setPlainText(message.content);
    } else if (message.content.isEmpty() && message.toolCalls.isEmpty()) {
        // Nothing to render yet, or nothing at all: a line says which.
        m_body->setPlainText(message.isComplete ? emptyAnswerText() : QStringLiteral("In progress..."));
        m_showsPlaceholder = true;
    } else {
        if (std::exchange(m_showsPlaceholder, false))
            m_body->clear();
        m_coordinator->update(message.content, !message.isComplete, message.isComplete);
    }
    // Only figures the provider gave: a zero stands for "not reported".
    QStringList figures;
    if (message.stats && message.isComplete) {
        if (message.stats->totalOutputTokens > 0)
            figures.append(QStringLiteral("%1 tokens").arg(message.stats->totalOutputTokens));
        if (message.stats->tokensPerSecond > 0)
            figures.append(QStringLiteral("%1 tok/s").arg(message.stats->tokensPerSecond, 0, 'f', 0));
    }
    m_stats->setText(figures.join(QStringLiteral(" · ")));
    m_stats->setVisible(!figures.isEmpty());
    fitBody();
}

QString MessageBubble::emptyAnswerText()
{
    return QStringLiteral("The model sent an empty answer.");
}

void MessageBubble::applyAppearance(const AppearanceSettings &appearance)
{
    using Role = AppearanceSettings::ColorRole;
    // The bubble's own background; the text view lets it show through.
    setAutoFillBackground(true);
    QPalette own = palette();
    own.setColor(QPalette::Window, appearance.color(m_isUser ? Role::UserBubbleBackground : Role::AssistantBubbleBackground));
    setPalette(own);
    m_body->setFont(m_isUser ? appearance.userFont() : appearance.assistantFont());
    setTextColor(m_body, appearance.color(m_isUser ? Role::UserBubbleText : Role::AssistantTextPrimary));
    setTextColor(m_header, appearance.color(m_isUser ? Role::UserBubbleText : Role::AssistantTextSecondary));
    setTextColor(m_reasoning, appearance.color(Role::AssistantTextMuted));
    setTextColor(m_stats, appearance.color(Role::AssistantTextFaint));
}

void MessageBubble::showCopied(const QPoint &viewportPosition)
{
    // A small note at the click that goes by itself.
    auto *note = new QLabel(QStringLiteral("Kopiert"), m_body->viewport());
    note->setObjectName(QStringLiteral("copiedNote"));
    note->setStyleSheet(QStringLiteral("background: palette(tool-tip-base); color: palette(tool-tip-text);"
                                       " border: 1px solid palette(mid); border-radius: 4px; padding: 2px 6px;"));
    note->adjustSize();
    const QRect area = m_body->viewport()->rect();
    QPoint at = viewportPosition + QPoint(8, -note->height() - 4);
    at.setX(qBound(0, at.x(), qMax(0, area.width() - note->width())));
    at.setY(qBound(0, at.y(), qMax(0, area.height() - note->height())));
    note->move(at);
    note->show();
    QTimer::singleShot(1200, note, &QObject::deleteLater);
}

QString MessageBubble::shownText() const
{
    return m_body->toPlainText();
}

bool MessageBubble::isCollapsed() const
{
    return m_collapsed && m_collapse->isVisible();
}

QString MessageBubble::reasoningText() const
{
    return m_reasoning->text();
}

void MessageBubble::fitBody()
{
    // The text grows the bubble, never a scroll bar inside it. A new width lays the whole
    // document out again, so it is set only when it changes.
    const qreal width = m_body->viewport()->width() > 0 ? m_body->viewport()->width() : 400;
    if (!qFuzzyCompare(m_body->document()->textWidth(), width))
        m_body->document()->setTextWidth(width);
    // A long message may be folded to its first lines.
    constexpr int foldedHeight = 240;
    const int full = int(m_body->document()->size().height()) + 4;
    m_collapse->setVisible(full > 2 * foldedHeight);
    const int height = m_collapsed && full > 2 * foldedHeight ? foldedHeight : full;
    if (m_body->height() != height)
        m_body->setFixedHeight(height);
}

void MessageBubble::resizeEvent(QResizeEvent *event)
{
    QFrame::resizeEvent(event);
    fitBody();
}

bool MessageBubble::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_body->viewport() && event->type() == QEvent::Resize)
        fitBody();
    return QFrame::eventFilter(watched, event);
}

void MessageBubble::dragEnterEvent(QDragEnterEvent *event)
{
    if (event->mimeData()->hasUrls() || event->mimeData()->hasText())
        event->acceptProposedAction();
}

void MessageBubble::dropEvent(QDropEvent *event)
{
    const QMimeData *data = event->mimeData();
    if (data->hasUrls() && !data->urls().isEmpty())
        emit dropped(data->urls().constFirst().toLocalFile());
    else if (data->hasText())
        emit dropped(data->text());
}
