#pragma once

#include <QString>
#include <QStringList>
#include <QUuid>
#include <optional>

// One item above the chat's input field: a file embedded at send time, or text (from the
// editor bridge) embedded as it stands.
struct ChatAttachment {
    QUuid id = QUuid::createUuid();
    std::optional<QString> path;
    std::optional<QString> text;

    // The file's last path component, or "Editor Text".
    QString label() const;
    // The piece of the attachments block: the file in a <file> tag (or the binary mark), then
    // the text.
    QStringList pieces() const;
};
