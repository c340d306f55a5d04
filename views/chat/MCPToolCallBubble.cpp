#include "views/chat/MCPToolCallBubble.h"

#include "chat/session/ToolCallDisplay.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QStringList>
#include <QToolButton>
#include <QVBoxLayout>

MCPToolCallBubble::MCPToolCallBubble(QWidget *parent) : QFrame(parent)
{
    setObjectName(QStringLiteral("toolCallBubble"));
    setFrameShape(QFrame::StyledPanel);
    m_head = new QLabel(this);
    m_body = new QLabel(this);
    m_body->setWordWrap(true);
    m_body->setTextFormat(Qt::PlainText);
    m_body->setTextInteractionFlags(Qt::TextSelectableByMouse);
    auto *copy = new QToolButton(this);
    copy->setText(QStringLiteral("Copy raw content"));
    copy->setAutoRaise(true);
    auto *head = new QHBoxLayout;
    head->addWidget(m_head, 1);
    head->addWidget(copy);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(8, 6, 8, 6);
    layout->addLayout(head);
    layout->addWidget(m_body);
    connect(copy, &QToolButton::clicked, this, [this] { QGuiApplication::clipboard()->setText(m_raw); });
}

void MCPToolCallBubble::update(const MCPToolCall &call)
{
    const QString mark = call.error ? QStringLiteral("⚠") : call.isCompleted ? QStringLiteral("✓") : QStringLiteral("…");
    m_head->setText(QStringLiteral("%1  <b>%2</b>  <span style='color:gray'>%3</span>")
                        .arg(mark, call.tool.toHtmlEscaped(), call.serverLabel.toHtmlEscaped()));
    QStringList lines;
    QStringList raw;
    const QList<ToolCallDisplay::KVPair> parameters = ToolCallDisplay::parameters(call);
    if (!parameters.isEmpty()) {
        lines.append(QStringLiteral("Parameters"));
        for (const auto &pair : parameters) {
            lines.append(QStringLiteral("  %1: %2").arg(pair.key, ToolCallDisplay::cut(pair.value)));
            raw.append(pair.key + QStringLiteral(": ") + pair.value);
        }
    }
    if (call.output) {
        lines.append(QStringLiteral("Result"));
        for (const auto &block : ToolCallDisplay::results(*call.output))
            lines.append(QStringLiteral("  [%1] %2").arg(block.type, ToolCallDisplay::cut(block.text)));
        raw.append(*call.output);
    }
    if (call.error) {
        lines.append(QStringLiteral("Error"));
        lines.append(QStringLiteral("  ") + ToolCallDisplay::cut(*call.error));
        raw.append(*call.error);
    }
    if (!call.output && !call.error)
        lines.append(QStringLiteral("Waiting for result..."));
    m_body->setText(lines.join(u'\n'));
    m_raw = raw.join(u'\n');
}

QString MCPToolCallBubble::headText() const
{
    return m_head->text();
}

QString MCPToolCallBubble::bodyText() const
{
    return m_body->text();
}
