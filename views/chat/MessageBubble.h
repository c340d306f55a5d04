#pragma once

#include "chat/session/TranscriptMessage.h"

#include <QFrame>
#include <memory>

class AnswerTextCoordinator;
class AppearanceSettings;
class MCPToolCallBubble;
class QLabel;
class QTextBrowser;
class QToolButton;
class QVBoxLayout;

// One message of the transcript: the question as it was typed, or the answer with its tool
// calls, its folded reasoning, its Markdown (appended plainly while it streams, rendered when
// complete) and its figures, with "Copy raw content" and "Save raw content".
class MessageBubble : public QFrame {
    Q_OBJECT

public:
    MessageBubble(const TranscriptMessage &message, AppearanceSettings *appearance, QWidget *parent = nullptr);
    ~MessageBubble() override;

    void update(const TranscriptMessage &message);
    QUuid messageId() const { return m_id; }
    QString shownText() const;
    QList<MCPToolCallBubble *> toolCallBubbles() const { return m_callBubbles; }
    QString reasoningText() const;
    QToolButton *collapseButton() const { return m_collapse; }
    bool isCollapsed() const;

signals:
    // Text or a file path dropped on an answer, to be sent at once.
    void dropped(const QString &text);

protected:
    void resizeEvent(QResizeEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dropEvent(QDropEvent *event) override;

private:
    void fitBody();

    QUuid m_id;
    bool m_isUser;
    QString m_raw;
    QLabel *m_header;
    QVBoxLayout *m_calls;
    QList<MCPToolCallBubble *> m_callBubbles;
    QToolButton *m_reasoningToggle;
    QLabel *m_reasoning;
    QTextBrowser *m_body;
    QLabel *m_stats;
    QToolButton *m_collapse;
    bool m_collapsed = false;
    bool m_showsPlaceholder = false;  // "In progress..." stands where the answer will
    std::unique_ptr<AnswerTextCoordinator> m_coordinator;
};
