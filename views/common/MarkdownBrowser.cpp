#include "views/common/MarkdownBrowser.h"

#include "chat/markdown/MarkdownRenderer.h"
#include "chat/markdown/MarkdownStyle.h"

#include <QApplication>
#include <QClipboard>
#include <QDesktopServices>
#include <QMouseEvent>
#include <QTextBlock>
#include <QUrl>

MarkdownBrowser::MarkdownBrowser(QWidget *parent) : QTextBrowser(parent)
{
    // Links are ours to act on: the renderer's "Copy" links are no places to go to.
    setOpenLinks(false);
    setOpenExternalLinks(false);
}

void MarkdownBrowser::showMarkdown(const QString &markdown)
{
    MarkdownStyle style = MarkdownStyle::fromPalette();
    if (m_proportional)
        style.bodyFont = QApplication::font();
    MarkdownRenderer(style).render(markdown, document());
}

bool MarkdownBrowser::activateLinkAt(const QPoint &viewportPosition)
{
    const QString href = anchorAt(viewportPosition);
    if (href.isEmpty())
        return false;
    const QUrl url(href);
    if (url.scheme() == QLatin1String("kelvara") && url.host() == QLatin1String("copy-code")) {
        // The code travels in the link's own format; the character after the cursor's
        // position is the one clicked.
        QTextCursor cursor = cursorForPosition(viewportPosition);
        QVariant code = cursor.charFormat().property(MarkdownRenderer::CodeCopyPayload);
        if (!code.isValid()) {
            cursor.movePosition(QTextCursor::NextCharacter);
            code = cursor.charFormat().property(MarkdownRenderer::CodeCopyPayload);
        }
        if (!code.isValid())
            return false;
        QApplication::clipboard()->setText(code.toString());
        emit codeCopied(code.toString());
        return true;
    }
    if (url.isRelative() && url.path().endsWith(QLatin1String(".md"))) {
        emit documentRequested(url.path());
        return true;
    }
    if (url.scheme() == QLatin1String("http") || url.scheme() == QLatin1String("https") ||
        url.scheme() == QLatin1String("mailto"))
        return QDesktopServices::openUrl(url);
    return false;
}

void MarkdownBrowser::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton && activateLinkAt(event->position().toPoint())) {
        event->accept();
        return;
    }
    QTextBrowser::mouseReleaseEvent(event);
}
