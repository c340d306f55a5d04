#include "chat/session/ChatViewModel.h"

#include <QFileInfo>

ChatViewModel::ChatViewModel(MCPIntegrationManager *mcp, QObject *parent)
    : QObject(parent), m_connection(m_status), m_session(m_connection, m_status, m_attachments, mcp)
{
    QObject::connect(&m_status, &ChatStatus::changed, this, &ChatViewModel::changed);
    QObject::connect(&m_connection, &ProviderConnection::changed, this, &ChatViewModel::changed);
    QObject::connect(&m_attachments, &ChatAttachmentList::changed, this, &ChatViewModel::changed);
    QObject::connect(&m_session, &ChatSession::changed, this, &ChatViewModel::changed);
    QObject::connect(&m_session, &ChatSession::messageChanged, this, &ChatViewModel::messageChanged);
    QObject::connect(&m_session, &ChatSession::transcriptReset, this, &ChatViewModel::transcriptReset);
}

void ChatViewModel::setPrompt(const QString &text)
{
    m_prompt = text;
    emit promptChanged();
}

bool ChatViewModel::readyToAsk() const
{
    return !m_status.isBusy() && m_connection.canAsk();
}

bool ChatViewModel::canSend() const
{
    return readyToAsk() && !m_prompt.trimmed().isEmpty();
}

void ChatViewModel::sendPrompt(bool clearAfter)
{
    m_session.send(m_prompt, [this, clearAfter] {
        if (!clearAfter)
            return;
        m_attachments.clear();
        setPrompt(QString());
    });
}

void ChatViewModel::insertDroppedText(const QString &text)
{
    QString prompt = m_prompt;
    if (prompt.contains(QStringLiteral("$%")))
        prompt.replace(QStringLiteral("$%"), text.startsWith(u'/') ? QFileInfo(text).fileName() : text);
    else if (prompt.contains(QStringLiteral("$$")))
        prompt.replace(QStringLiteral("$$"), text);
    else if (text.startsWith(u'/'))
        prompt += u'\n' + text;
    else
        prompt += (prompt.isEmpty() ? QString() : QStringLiteral(" ")) + text;
    setPrompt(prompt);
}

void ChatViewModel::insertPickedText(const QString &text)
{
    setPrompt(m_prompt.isEmpty() ? text : m_prompt + u'\n' + text);
}
