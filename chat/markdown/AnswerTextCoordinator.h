#pragma once

#include "chat/markdown/MarkdownRenderer.h"

#include <QString>

class QTextDocument;

// Keeps an answer's text document in step with its content while it streams: new text is
// appended plainly, at the cost of the new text alone, and the Markdown is rendered once,
// when the answer is complete (or whenever the content no longer continues what is shown).
// Main thread; the document is the caller's and must outlive the coordinator.
class AnswerTextCoordinator {
public:
    AnswerTextCoordinator(QTextDocument *document, MarkdownRenderer renderer);

    // One update of the view: the answer's content so far and its state.
    void update(const QString &content, bool isStreaming, bool isComplete);

    const QString &renderedContent() const { return m_rendered; }
    bool lastRenderWasFinal() const { return m_lastFinal; }
    // The document positions of the text the last streaming update appended (empty after a render).
    int lastInsertedStart() const { return m_insertedStart; }
    int lastInsertedLength() const { return m_insertedLength; }
    // Work done so far, for tests and the benchmark: full renders, and characters appended
    // plainly by streaming updates.
    int fullRenders() const { return m_fullRenders; }
    qsizetype appendedCharacters() const { return m_appended; }

private:
    void renderFully(const QString &content, bool final);

    QTextDocument *m_document;
    MarkdownRenderer m_renderer;
    QString m_rendered;
    bool m_lastFinal = false;
    int m_insertedStart = 0;
    int m_insertedLength = 0;
    int m_fullRenders = 0;
    qsizetype m_appended = 0;
};
