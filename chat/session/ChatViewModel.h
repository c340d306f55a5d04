#pragma once

#include "chat/session/ChatAttachmentList.h"
#include "chat/session/ChatSession.h"
#include "chat/session/ChatStatus.h"
#include "chat/session/ProviderConnection.h"

#include <QObject>
#include <QString>
#include <functional>
#include <optional>

class MCPIntegrationManager;

// The state of the chat window, in parts: the status line, the provider connection, the
// attachments and the session with its transcript; here the prompt being written and what
// joins the parts (whether a send may start, the send of the prompt, the drop and picker
// insertions). One lives as long as its window. Main thread.
class ChatViewModel : public QObject {
    Q_OBJECT

public:
    using ConnectionState = ProviderConnection::State;

    // mcp: the integrations whose tools a local model may call; may be null.
    explicit ChatViewModel(MCPIntegrationManager *mcp = nullptr, QObject *parent = nullptr);

    ChatStatus &status() { return m_status; }
    const ChatStatus &status() const { return m_status; }
    ProviderConnection &connection() { return m_connection; }
    const ProviderConnection &connection() const { return m_connection; }
    ChatAttachmentList &attachments() { return m_attachments; }
    const ChatAttachmentList &attachments() const { return m_attachments; }
    ChatSession &session() { return m_session; }
    const ChatSession &session() const { return m_session; }

    // The input field's text; setting it emits promptChanged.
    const QString &prompt() const { return m_prompt; }
    void setPrompt(const QString &text);

    // Nothing running, and a connected provider with a model chosen: an answer may be asked.
    bool readyToAsk() const;
    // readyToAsk, with a prompt that is not blank.
    bool canSend() const;
    // Sends the prompt; with clearAfter the prompt and the attachments are emptied once the
    // answer has ended, failed or been aborted (or at once when nothing was sent).
    void sendPrompt(bool clearAfter);

    // The drop menu's "Insert Text": "$%" takes a path's file name (or the text), else "$$"
    // the whole text, else a path goes on a new line and other text after a blank.
    void insertDroppedText(const QString &text);
    // What a picker inserts: the prompt itself when empty, else on a new line.
    void insertPickedText(const QString &text);

signals:
    // Any part's state changed (the status, the connection, the attachments, the session).
    void changed();
    void promptChanged();
    void messageChanged(const QUuid &id);
    void transcriptReset();

private:
    // Made in this order: each part needs those above it.
    ChatStatus m_status;
    ProviderConnection m_connection;
    ChatAttachmentList m_attachments;
    ChatSession m_session;
    QString m_prompt;
};
