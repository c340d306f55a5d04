#include "chat/session/ChatAttachment.h"

#include <QFile>
#include <QFileInfo>
#include <QStringConverter>
#include <QStringDecoder>
#include <QStringList>

QString ChatAttachment::label() const
{
    return path ? QFileInfo(*path).fileName() : QStringLiteral("Editor Text");
}

QStringList ChatAttachment::pieces() const
{
    QStringList result;
    if (path) {
        const QString open = QStringLiteral("<file name=\"%1\">").arg(QFileInfo(*path).fileName());
        QFile file(*path);
        QByteArray bytes;
        bool read = file.open(QIODevice::ReadOnly);
        if (read)
            bytes = file.readAll();
        QStringDecoder decoder(QStringConverter::Utf8);
        const QString text = decoder.decode(bytes);
        if (!read || decoder.hasError()) {
            // What is no UTF-8 (or gone) is named, not sent; its text part is skipped too.
            result.append(open + QStringLiteral("[binary – cannot embed]</file>"));
            return result;
        }
        result.append(open + u'\n' + text + u'\n' + QStringLiteral("</file>"));
    }
    if (text)
        result.append(*text);
    return result;
}
