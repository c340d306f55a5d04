#pragma once

#include "chat/session/TranscriptMessage.h"

#include <QFrame>
#include <memory>

class AnswerTextCoordinator;
class AppearanceSettings;
class MCPToolCallBubble;
class MarkdownBrowser;
class QLabel;
class QToolButton;
class QVBoxLayout;

// One message of the transcript: the question as it was typed, or the answer with its tool
// calls, its folded reasoning, its Markdown (appended plainly while it streams, rendered when
// complete) and its figures, with "Copy raw content" and "Save raw content". A code block's
// "Copy" puts that code on the clipboard and shows "Kopiert" where it was clicked. Fonts, sizes
// and colours come from the appearance settings as they are when the bubble is made.
class MessageBubble : public QFrame {
    Q_OBJECT

public:
    MessageBubble(const TranscriptMessage &message, AppearanceSettings *appearance, QWidget *parent = nullptr);
    ~MessageBubble() override;

    void update(const TranscriptMessage &message);
    QUuid messageId() const { return m_id; }
    QString shownText() const;
    MarkdownBrowser *body() const { return m_body; }
    QLabel *statsLabel() const { return m_stats; }
    // The text an empty complete answer shows.
    static QString emptyAnswerText();
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
    void applyAppearance(const AppearanceSettings &appearance);
    void showCopied(const QPoint &viewportPosition);

    QUuid m_id;
    bool m_isUser;
    QString m_raw;
    QLabel *m_header;
    QVBoxLayout *m_calls;
    QList<MCPToolCallBubble *> m_callBubbles;
    QToolButton *m_reasoningToggle;
    QLabel *m_reasoning;
    MarkdownBrowser *m_body;
    QLabel *m_stats;
    QToolButton *m_collapse;
    bool m_collapsed = false;
    bool m_showsPlaceholder = false;  // "In progress..." or the empty answer's line stands in the body
    std::unique_ptr<AnswerTextCoordinator> m_coordinator;
};
