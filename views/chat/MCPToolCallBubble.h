#pragma once

#include "chat/session/MCPToolCall.h"

#include <QFrame>

class QLabel;
class QVBoxLayout;

// One tool call inside an answer: the tool and its server with a state mark, the parameters,
// the result blocks or the error, each cut for display; "Copy raw content" copies them whole.
class MCPToolCallBubble : public QFrame {
    Q_OBJECT

public:
    explicit MCPToolCallBubble(QWidget *parent = nullptr);
    void update(const MCPToolCall &call);
    QString headText() const;
    QString bodyText() const;

private:
    QLabel *m_head;
    QLabel *m_body;
    QString m_raw;
};
