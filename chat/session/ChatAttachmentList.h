#pragma once

#include "chat/session/ChatAttachment.h"

#include <QList>
#include <QObject>
#include <optional>

// The items above the chat's input field: files to embed at send time and texts an editor
// handed over through the bridge. A file is kept once by its cleaned absolute path, a text
// once by its words. Main thread.
class ChatAttachmentList : public QObject {
    Q_OBJECT

public:
    explicit ChatAttachmentList(QObject *parent = nullptr) : QObject(parent) {}

    const QList<ChatAttachment> &items() const { return m_items; }

    void addFile(const QString &path);
    void addText(const QString &text);
    void remove(const QUuid &id);
    void clear();
    // The drop menu's "Attach": the dropped file, or text that is an absolute path.
    void attachDropped(const QString &text, const std::optional<QString> &path);
    // What goes ahead of the question: each attachment's pieces, one a line, and a blank
    // line; "" without attachments.
    QString block() const;

    // Subscribes to the editor bridge's "request" signal on the session bus; false (and the
    // chat goes on without the bridge) when there is no bus.
    bool listenForBridgeRequests();

public slots:
    // An editor's request from the bridge: normalised, and attached unless blank.
    void receiveBridgeRequest();

signals:
    void changed();

private:
    void appendUnique(const ChatAttachment &attachment);

    QList<ChatAttachment> m_items;
};
