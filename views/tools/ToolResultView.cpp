#include "views/tools/ToolResultView.h"

#include <QImage>
#include <QJsonObject>
#include <QTextCursor>
#include <QTextImageFormat>
#include <QUrl>

namespace {
// Pictures are drawn only for images a decode costs little for.
constexpr qint64 maxPictureBytes = qint64(4) << 20;
constexpr int pictureSide = 96;

qint64 decodedSize(const QString &base64)
{
    return QByteArray::fromBase64(base64.toLatin1()).size();
}
}  // namespace

ToolResultView::ToolResultView(QWidget *parent) : QTextBrowser(parent)
{
    setObjectName(QStringLiteral("toolResult"));
    setOpenLinks(false);
    setPlaceholderText(QStringLiteral("Run the tool to see what it returns."));
}

QString ToolResultView::sizeText(qint64 bytes)
{
    if (bytes < 1024)
        return QStringLiteral("%1 bytes").arg(bytes);
    if (bytes < 1024 * 1024)
        return QStringLiteral("%1 KB").arg((bytes + 1023) / 1024);
    return QStringLiteral("%1 MB").arg(double(bytes) / (1024.0 * 1024.0), 0, 'f', 1);
}

QString ToolResultView::itemLine(const JSONToolContent &item)
{
    const QJsonObject &m = item.members;
    const QString mimeType = m.value(QStringLiteral("mimeType")).toString(QStringLiteral("no MIME type"));
    if (item.type == QLatin1String("text"))
        return QString();
    if (item.type == QLatin1String("image") || item.type == QLatin1String("audio"))
        return QStringLiteral("%1: %2, %3")
            .arg(item.type, mimeType, sizeText(decodedSize(m.value(QStringLiteral("data")).toString())));
    if (item.type == QLatin1String("resource")) {
        const QJsonObject resource = m.value(QStringLiteral("resource")).toObject();
        const qint64 size = resource.contains(QStringLiteral("blob"))
                                ? decodedSize(resource.value(QStringLiteral("blob")).toString())
                                : resource.value(QStringLiteral("text")).toString().toUtf8().size();
        return QStringLiteral("resource %1: %2, %3")
            .arg(resource.value(QStringLiteral("uri")).toString(),
                 resource.value(QStringLiteral("mimeType")).toString(QStringLiteral("no MIME type")), sizeText(size));
    }
    if (item.type == QLatin1String("resource_link"))
        return QStringLiteral("link %1: %2").arg(m.value(QStringLiteral("uri")).toString(),
                                                 m.value(QStringLiteral("name")).toString());
    return QStringLiteral("%1 item").arg(item.type);
}

void ToolResultView::showMessage(const QString &text)
{
    clear();
    setPlainText(text);
}

void ToolResultView::showResult(const JSONToolResult &result)
{
    clear();
    QTextCursor cursor(document());
    const bool failed = result.structuredContent.value(QStringLiteral("success")).toJson() == QJsonValue(false);
    if (failed)
        cursor.insertText(QStringLiteral("The tool reported a failure:\n"));
    if (result.content.isEmpty())
        cursor.insertText(QStringLiteral("No content."));
    int pictures = 0;
    for (qsizetype i = 0; i < result.content.size(); ++i) {
        const JSONToolContent &item = result.content.at(i);
        if (i > 0)
            cursor.insertText(QStringLiteral("\n"));
        const QString line = itemLine(item);
        cursor.insertText(line.isEmpty() ? item.text : line);
        if (item.type != QLatin1String("image"))
            continue;
        const QString data = item.members.value(QStringLiteral("data")).toString();
        if (data.size() > maxPictureBytes * 4 / 3)
            continue;
        QImage image;
        if (!image.loadFromData(QByteArray::fromBase64(data.toLatin1())))
            continue;
        const QUrl name(QStringLiteral("picture:%1").arg(++pictures));
        if (image.width() > pictureSide || image.height() > pictureSide)
            image = image.scaled(pictureSide, pictureSide, Qt::KeepAspectRatio, Qt::SmoothTransformation);
        document()->addResource(QTextDocument::ImageResource, name, image);
        cursor.insertText(QStringLiteral("\n"));
        QTextImageFormat picture;
        picture.setName(name.toString());
        cursor.insertImage(picture);
    }
}
