#include "chat/session/ChatAttachmentList.h"

#include "chat/session/XcodeBridgeService.h"

#include <QDir>
#include <QFileInfo>

void ChatAttachmentList::addFile(const QString &path)
{
    ChatAttachment attachment;
    attachment.path = QDir::cleanPath(QFileInfo(path).absoluteFilePath());
    appendUnique(attachment);
}

void ChatAttachmentList::addText(const QString &text)
{
    ChatAttachment attachment;
    attachment.text = text;
    appendUnique(attachment);
}

void ChatAttachmentList::appendUnique(const ChatAttachment &attachment)
{
    for (const ChatAttachment &existing : m_items) {
        if ((attachment.path && existing.path == attachment.path) || (attachment.text && existing.text == attachment.text))
            return;
    }
    m_items.append(attachment);
    emit changed();
}

void ChatAttachmentList::remove(const QUuid &id)
{
    m_items.removeIf([&](const ChatAttachment &attachment) { return attachment.id == id; });
    emit changed();
}

void ChatAttachmentList::clear()
{
    m_items.clear();
    emit changed();
}

void ChatAttachmentList::attachDropped(const QString &text, const std::optional<QString> &path)
{
    if (path) {
        addFile(*path);
        return;
    }
    const QString trimmed = text.trimmed();
    if (trimmed.startsWith(u'/'))
        addFile(trimmed);
}

QString ChatAttachmentList::block() const
{
    QStringList pieces;
    for (const ChatAttachment &attachment : m_items)
        pieces += attachment.pieces();
    return pieces.isEmpty() ? QString() : pieces.join(u'\n') + QStringLiteral("\n\n");
}

bool ChatAttachmentList::listenForBridgeRequests()
{
    return XcodeBridgeService::subscribe(QStringLiteral("request"), this, SLOT(receiveBridgeRequest()));
}

void ChatAttachmentList::receiveBridgeRequest()
{
    const QString text = XcodeBridgeService::normalisedRequest(XcodeBridgeService::readRequest());
    if (!text.isEmpty())
        addText(text);
}
